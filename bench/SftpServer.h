// rclone's server of a folder, and rclone as its client.
#pragma once

#include "tests/support/Program.h"

#include <filesystem>
#include <string>

namespace stowline::bench {

/// Serves a folder over SFTP, on a port of its choice.
class SftpServer {
public:
    explicit SftpServer(const std::filesystem::path& folder);
    ~SftpServer();
    SftpServer(const SftpServer&) = delete;
    SftpServer& operator=(const SftpServer&) = delete;

    /// Copies with rclone between the served folder and another; throws unless that works.
    void copyTo(const std::filesystem::path& target) const;
    void copyFrom(const std::filesystem::path& source, int transfers) const;

private:
    void copy(const std::string& from, const std::string& to, const std::string& options) const;

    test::BackgroundProgram server_;
    std::string port_;
};

} // namespace stowline::bench
