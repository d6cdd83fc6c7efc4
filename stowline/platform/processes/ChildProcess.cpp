#include "stowline/platform/processes/ChildProcess.h"

#include "stowline/platform/processes/ChildConversation.h"
#include "stowline/platform/processes/Spawn.h"
#include "stowline/platform/values/HandledException.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;
using Result = Outcome<ChildAnswer, StartFailure>;

} // namespace

std::string StartFailure::sentence() const
{
    switch (systemError) {
    case EMFILE:
    case ENFILE:
        return "Too many files are open. Please close some, or raise the limit (ulimit -n).";
    case EAGAIN:
        return "No more processes may run. Please end some, or raise the limit (ulimit -u).";
    case ENOMEM:
        return std::string(kNoMemorySentence);
    default:
        return "Please install the program again.";
    }
}

Result runChild(const ChildRun& run)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    const auto deadline = Clock::now() + run.limit;
    auto channels = RunChannels::madeFor(run);
    if (!channels)
        return channels.error();
    const std::string program = run.program.string();
    auto child = spawn({.program = program,
                        .arguments = {program, "@/dev/fd/" + std::to_string(kInputDescriptor)},
                        .descriptors = {{channels->release.theirs.number(), STDIN_FILENO},
                                        {channels->output.theirs.number(), STDOUT_FILENO},
                                        {STDERR_FILENO, STDERR_FILENO},
                                        {channels->input.number(), kInputDescriptor}}});
    if (!child)
        return child.error();
    channels->closeTheirs();
    return converse(*child, channels->output.ours, &channels->release.ours, run, deadline);
}

Result captureOutput(const std::vector<std::string>& command, std::chrono::milliseconds limit)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    if (command.empty())
        return StartFailure{ENOENT};
    const auto deadline = Clock::now() + limit;
    Channel output = makePipe();
    const FileDescriptor nothing =
        liftedAbovePlaces(FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!output.isOpen() || !nothing.isOpen())
        return StartFailure{errno};
    auto child = spawn({.program = programOfCommand(command.front()),
                        .arguments = command,
                        .descriptors = {{nothing.number(), STDIN_FILENO},
                                        {output.theirs.number(), STDOUT_FILENO},
                                        {STDERR_FILENO, STDERR_FILENO}}});
    if (!child)
        return child.error();
    output.theirs.close();
    return converse(*child, output.ours, nullptr, {}, deadline);
}

} // namespace stowline::platform
