// The stowline command as tests run it.
#pragma once

#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <nlohmann/json.hpp>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace stowline::test {

/// Runs the command with a home folder of its own.
class Command {
public:
    explicit Command(std::filesystem::path bundle) : bundle_(std::move(bundle)) {}

    [[nodiscard]] ProgramRun run(std::vector<std::string> words,
                                 std::map<std::string, std::string> environment = {},
                                 std::string input = {}) const
    {
        words.insert(words.begin(), builtProgram("stowline"));
        environment.emplace("HOME", home_.path().string());
        environment.emplace("STOWLINE_BUNDLE", bundle_.string());
        // What a test finds overdue is not told to the person who runs it.
        environment.emplace("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        return {std::move(words), std::move(environment), std::move(input)};
    }

    template <class... Arguments>
    [[nodiscard]] ProgramResult operator()(Arguments... arguments) const
    {
        return runProgram(run(std::forward<Arguments>(arguments)...));
    }

    [[nodiscard]] const TemporaryFolder& home() const { return home_; }

private:
    std::filesystem::path bundle_;
    TemporaryFolder home_;
};

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// The lines of a JSON output; the test fails when one is not an object.
inline std::vector<nlohmann::json> jsonLines(const std::string& output)
{
    std::vector<nlohmann::json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(nlohmann::json::parse(line));
    return lines;
}

/// Whether the command told people so, or printed it.
[[nodiscard]] inline bool says(const ProgramResult& result, const std::string& text)
{
    return (result.errors + result.output).find(text) != std::string::npos;
}

} // namespace stowline::test
