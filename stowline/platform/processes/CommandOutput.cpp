#include "stowline/platform/processes/CommandOutput.h"

#include "stowline/platform/processes/ChildProcess.h"

#include <glib.h>
#include <memory>
#include <span>
#include <vector>

namespace stowline::platform {

namespace {

std::optional<std::vector<std::string>> wordsOf(const std::string& line)
{
    int count = 0;
    char** words = nullptr;
    if (line.find('\0') != std::string::npos ||
        ::g_shell_parse_argv(line.c_str(), &count, &words, nullptr) == 0)
        return std::nullopt;
    const std::unique_ptr<char*, decltype(&::g_strfreev)> owner(words, ::g_strfreev);
    const std::span<char*> all(words, static_cast<std::size_t>(count));
    return std::vector<std::string>(all.begin(), all.end());
}

} // namespace

std::optional<std::string> outputOfCommand(const std::string& line, std::chrono::milliseconds limit)
{
    const auto words = wordsOf(line);
    if (!words)
        return std::nullopt;
    auto answer = captureOutput(*words, limit);
    if (!answer || !answer->exit.isSuccess())
        return std::nullopt;
    return std::move(answer->output);
}

} // namespace stowline::platform
