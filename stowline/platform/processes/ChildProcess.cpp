#include "stowline/platform/processes/ChildProcess.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/processes/DescriptorWait.h"
#include "stowline/platform/processes/Spawn.h"
#include "stowline/platform/threads/StopRequest.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;
using Result = Outcome<ChildAnswer, StartFailure>;

/// The place at which the child finds its input file.
constexpr int kInputDescriptor = 3;

struct Channel {
    FileDescriptor ours;
    FileDescriptor theirs;
    [[nodiscard]] bool isOpen() const { return ours.isOpen() && theirs.isOpen(); }
};

/// Moves a descriptor out of the numbers at which the child finds its own, so that placing one
/// never covers another that is still to be placed.
FileDescriptor liftedAbovePlaces(FileDescriptor file)
{
    if (file.number() > kInputDescriptor || !file.isOpen())
        return file;
    return FileDescriptor(::fcntl(file.number(), F_DUPFD_CLOEXEC, kInputDescriptor + 1));
}

Channel makePipe()
{
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return {};
    return {FileDescriptor(ends[0]), liftedAbovePlaces(FileDescriptor(ends[1]))};
}

/// A socket pair rather than a pipe for what we write: a write to a child that is gone can then be
/// told not to raise SIGPIPE in the host program.
Channel makeSocketPair()
{
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return {};
    return {FileDescriptor(ends[0]), liftedAbovePlaces(FileDescriptor(ends[1]))};
}

/// Whether this thread was asked to stop before anything began.
bool isStopRequested()
{
    const StopRequest* stop = StopRequest::ofThisThread();
    return stop && stop->isRequested();
}

void noteEnd(WaitEnd end, ChildAnswer& answer)
{
    answer.endedByLimit |= end == WaitEnd::timeOver;
    answer.endedByStop |= end == WaitEnd::stopped;
}

/// Reads to the end of the output.
/// @return false when it did not come: the answer says why
bool readToEnd(const FileDescriptor& pipe, Clock::time_point deadline, std::size_t most,
               ChildAnswer& answer)
{
    std::array<char, 65536> piece; // NOLINT: filled by read
    for (;;) {
        const WaitEnd end = awaitReadable(pipe.number(), deadline);
        noteEnd(end, answer);
        if (end != WaitEnd::ready)
            return false;
        const ssize_t count = ::read(pipe.number(), piece.data(), piece.size());
        if (count == 0 || (count < 0 && errno != EINTR))
            return true;
        answer.output.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        answer.endedBySize = answer.output.size() > most;
        if (answer.endedBySize)
            return false;
    }
}

/// Waits for the child's end until the deadline, or until a stop is asked for, then ends it.
void awaitExit(StartedChild& child, Clock::time_point deadline, ChildAnswer& answer)
{
    if (const WaitEnd end = child.awaitEnd(deadline); end != WaitEnd::ready) {
        noteEnd(end, answer);
        child.end();
    }
    answer.exit = child.reap();
}

Result runToItsEnd(StartedChild child, const FileDescriptor& output, FileDescriptor* release,
                   const ChildRun& run, Clock::time_point deadline)
{
    ChildAnswer answer;
    if (!readToEnd(output, deadline, run.maximumOutputBytes, answer)) {
        child.end();
    } else if (run.releaseBytes && release) {
        const std::string bytes = run.releaseBytes(answer.output);
        (void)!::send(release->number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    if (release)
        release->close(); // a child that waits for more finds the end
    awaitExit(child, deadline, answer);
    return answer;
}

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
        return "There is not enough memory. Please close programs and try again.";
    default:
        return "Please install the program again.";
    }
}

Result runChild(const ChildRun& run)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    const auto deadline = Clock::now() + run.limit;
    errno = 0;
    const FileDescriptor input = liftedAbovePlaces(anonymousFileHolding(run.input));
    Channel output = input.isOpen() ? makePipe() : Channel();
    Channel release = output.isOpen() ? makeSocketPair() : Channel();
    if (!release.isOpen())
        return StartFailure{errno};
    const std::string program = run.program.string();
    auto child = spawn({.program = program,
                        .arguments = {program, "@/dev/fd/" + std::to_string(kInputDescriptor)},
                        .descriptors = {{release.theirs.number(), STDIN_FILENO},
                                        {output.theirs.number(), STDOUT_FILENO},
                                        {STDERR_FILENO, STDERR_FILENO},
                                        {input.number(), kInputDescriptor}}});
    if (!child)
        return child.error();
    output.theirs.close();
    release.theirs.close();
    return runToItsEnd(std::move(*child), output.ours, &release.ours, run, deadline);
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
    return runToItsEnd(std::move(*child), output.ours, nullptr, {}, deadline);
}

} // namespace stowline::platform
