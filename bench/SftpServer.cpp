#include "bench/SftpServer.h"

#include "bench/ServedTree.h"

#include <fmt/format.h>

#include <csignal>

namespace stowline::bench {

SftpServer::SftpServer(const std::filesystem::path& folder)
    : server_({.words = {"/bin/bash", "-c",
                         "exec rclone serve sftp \"$0\" --addr 127.0.0.1:0 --user x --pass y "
                         "--config /dev/null -v 2>&1",
                         folder}})
{
    const std::string_view before = "listening on 127.0.0.1:";
    while (const auto line = server_.readLine()) {
        const auto at = line->find(before);
        if (at == std::string::npos)
            continue;
        port_ = line->substr(at + before.size());
        return;
    }
    giveUp("rclone serves nothing.");
}

SftpServer::~SftpServer()
{
    server_.signal(SIGTERM);
}

void SftpServer::copyTo(const std::filesystem::path& target) const
{
    copy(":sftp:/", target, "");
}

void SftpServer::copyFrom(const std::filesystem::path& source, int transfers) const
{
    copy(source, ":sftp:/", fmt::format("--transfers {}", transfers));
}

void SftpServer::copy(const std::string& from, const std::string& to,
                      const std::string& options) const
{
    const auto result = test::runProgram(
        {.words = {"/bin/bash", "-c",
                   fmt::format("exec rclone copy '{}' '{}' {} --config /dev/null --sftp-host "
                               "127.0.0.1 --sftp-port {} --sftp-user x --sftp-pass "
                               "\"$(rclone obscure y)\"",
                               from, to, options, port_)}});
    expect(result.status == 0, "rclone: " + result.errors);
}

} // namespace stowline::bench
