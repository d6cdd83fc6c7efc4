#include "stowline/platform/processes/ChildConversation.h"

#include "stowline/platform/processes/DescriptorWait.h"
#include "stowline/platform/threads/StopRequest.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

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
void awaitExit(RunningChild& child, Clock::time_point deadline, ChildAnswer& answer)
{
    if (const WaitEnd end = child.awaitEnd(deadline); end != WaitEnd::ready) {
        noteEnd(end, answer);
        child.end();
    }
    answer.exit = child.reap();
}

} // namespace

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

Channel makeSocketPair(int type)
{
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return {};
    return {FileDescriptor(ends[0]), liftedAbovePlaces(FileDescriptor(ends[1]))};
}

bool isStopRequested()
{
    const StopRequest* stop = StopRequest::ofThisThread();
    return stop && stop->isRequested();
}

Outcome<RunChannels, StartFailure> RunChannels::madeFor(const ChildRun& run)
{
    errno = 0;
    RunChannels channels;
    channels.input = liftedAbovePlaces(anonymousFileHolding(run.input));
    if (channels.input.isOpen())
        channels.output = makePipe();
    if (channels.output.isOpen())
        channels.release = makeSocketPair(SOCK_STREAM);
    if (!channels.release.isOpen())
        return StartFailure{errno};
    return channels;
}

void RunChannels::closeTheirs()
{
    input.close();
    output.theirs.close();
    release.theirs.close();
}

ChildAnswer converse(RunningChild& child, const FileDescriptor& output, FileDescriptor* release,
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

} // namespace stowline::platform
