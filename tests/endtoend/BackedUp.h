// An account on a development service, a folder to back up, and a look at what is stored.
#pragma once

#include "devserver/Storage.h"
#include "stowline/backup/transfer/UploadJournal.h"
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Command.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <thread>

namespace stowline::test {

using Files = std::map<std::string, std::string>; ///< content by path below the folder

/// Bytes that look random and are the same for a seed.
[[nodiscard]] inline std::string noise(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    std::uint64_t state = seed * 2654435761U + 88172645463325252U;
    for (char& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<char>(state);
    }
    return bytes;
}

class BackedUp {
public:
    explicit BackedUp(const std::vector<std::string>& serverArguments = {},
                      std::optional<std::filesystem::path> data = std::nullopt)
        : server(serverArguments, std::move(data)), command(server.bundle())
    {
        const auto opened = command(Words{"signup", "--email", "a@b.c"}, environment());
        if (opened.status != 0)
            throw std::runtime_error("no account: " + opened.errors);
    }

    [[nodiscard]] Environment environment() const
    {
        return {{"STOWLINE_USERNAME", "ann"}, {"STOWLINE_PASSWORD", password}};
    }

    [[nodiscard]] ProgramResult run(Words words) const
    {
        return command(std::move(words), environment());
    }

    [[nodiscard]] ProgramRun backupRun(Words more = {}) const
    {
        Words words{"backup", folder.path().string(), "--json", "--system", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return command.run(std::move(words), environment());
    }

    [[nodiscard]] ProgramResult backup(Words more = {}) const
    {
        return runProgram(backupRun(std::move(more)));
    }

    /// Makes requests to the service give up after this many seconds.
    void setRequestTimeout(const std::string& seconds) const
    {
        const auto file = server.bundle() / "Resources" / "WebServicesSettings.plist";
        std::string text = platform::readFile(file).value();
        const std::string whole = "<integer>60</integer>";
        for (auto at = text.find(whole); at != std::string::npos; at = text.find(whole))
            text.replace(at, whole.size(), "<string>" + seconds + "</string>");
        if (!platform::writeFileAtomically(file, text))
            throw std::runtime_error("the settings cannot be changed");
    }

    void write(const Files& files) const
    {
        for (const auto& [name, content] : files)
            folder.write(name, content);
    }

    [[nodiscard]] backup::UploadJournal journal() const
    {
        return backup::UploadJournal(command.home().path() / ".local/state/stowline/uploads");
    }

    /// Waits until the journal shows that so many bytes of some upload are confirmed.
    void awaitSent(std::uint64_t bytes) const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline) {
            for (const auto& entry : journal().entries()) {
                if (entry.sentBytes >= bytes)
                    return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // another process's file
        }
        FAIL() << "nothing was sent";
    }

    /// The service's page for people, as it is sent to who signs in with the account.
    [[nodiscard]] std::string statusPage() const
    {
        const auto got = runProgram(
            {{"/usr/bin/python3", sourceFile("scripts/status_page.py"), server.address(), "ann"},
             {},
             password + "\n"});
        EXPECT_EQ(got.status, 0) << got.errors;
        return got.output;
    }

    /// What the service holds below the folder: the newest version of each file, read from its
    /// disk. A file whose content is not what its version says fails the test.
    [[nodiscard]] Files stored() const
    {
        devserver::Storage storage(server.data());
        Files files;
        const auto page =
            storage
                .search({.userName = "ann", .folder = folder.path().string(), .pageSize = 1000000},
                        "*", "")
                .value();
        for (const auto& item : page.items) {
            const auto versions = storage.versions("ann", item.id);
            const std::string content =
                platform::readFile(server.data() / versions.at(0).serverFile.substr(1))
                    .value_or("(missing)");
            EXPECT_EQ(content.size(), versions[0].size) << item.name;
            const std::string path = item.folder + "/" + item.name;
            files.emplace(path.substr(folder.path().string().size() + 1), content);
        }
        return files;
    }

    DevServerProcess server;
    Command command;
    TemporaryFolder folder;
    std::string password = "pass word";
};

/// The value of the last line of a JSON output; null when it is not there.
[[nodiscard]] inline nlohmann::json field(const ProgramResult& result, const std::string& name)
{
    const auto lines = jsonLines(result.output);
    return lines.empty() ? nlohmann::json() : lines.back().value(name, nlohmann::json());
}

} // namespace stowline::test
