#include "stowline/platform/processes/CommandOutput.h"

#include "stowline/platform/processes/ChildConversation.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/processes/LeftProcesses.h"
#include "stowline/platform/processes/Spawn.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cerrno>
#include <fcntl.h>
#include <glib.h>
#include <memory>
#include <span>
#include <unistd.h>
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

std::string faultInCommand(const std::string& line)
{
    if (wordsOf(line))
        return {};
    if (line.find('\0') != std::string::npos)
        return "This command holds a NUL byte";
    int count = 0;
    GError* fault = nullptr;
    (void)::g_shell_parse_argv(line.c_str(), &count, nullptr, &fault);
    const std::unique_ptr<GError, decltype(&::g_error_free)> owner(fault, ::g_error_free);
    if (!fault || fault->code == G_SHELL_ERROR_EMPTY_STRING)
        return "This command names no program";
    // With one more character behind it a backslash stands before something.
    return wordsOf(line + "x")
               ? "The command " + line + " ends with a backslash that stands before nothing"
               : "The command " + line + " has an unmatched quotation mark";
}

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

CommandEnd runCommand(const std::string& line, const std::vector<std::string>& variables,
                      std::chrono::milliseconds limit)
{
    using Kind = CommandEnd::Kind;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const auto words = wordsOf(line);
    if (!words)
        return {Kind::malformed};
    if (isStopRequested())
        return {Kind::stopped};
    const FileDescriptor nothing =
        liftedAbovePlaces(FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!nothing.isOpen())
        return {Kind::notStarted, errno};
    const LeftProcesses left;
    auto child = spawn({.program = programOfCommand(words->front()),
                        .arguments = *words,
                        .descriptors = {{nothing.number(), STDIN_FILENO},
                                        {STDERR_FILENO, STDOUT_FILENO},
                                        {STDERR_FILENO, STDERR_FILENO}},
                        .variables = variables});
    if (!child)
        return {Kind::notStarted, child.error().systemError};
    const WaitEnd waited = child->awaitEnd(deadline);
    if (waited != WaitEnd::ready)
        child->end();
    const ChildExit exit = child->reap();
    left.end(waited == WaitEnd::ready ? LeftProcesses::Which::ofOurSession
                                      : LeftProcesses::Which::all);
    if (waited != WaitEnd::ready)
        return {waited == WaitEnd::stopped ? Kind::stopped : Kind::timeOver};
    if (exit.isSuccess())
        return {};
    return {exit.bySignal ? Kind::bySignal : Kind::failed, exit.status};
}

} // namespace stowline::platform
