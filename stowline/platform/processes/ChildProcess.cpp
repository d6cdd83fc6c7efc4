#include "stowline/platform/processes/ChildProcess.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/processes/DescriptorWait.h"
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/threads/StopRequest.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ; // NOLINT: the platform's name

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

/// The place at which the child finds its input file.
constexpr int kInputDescriptor = 3;

class SpawnPlan {
public:
    SpawnPlan()
    {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan()
    {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    void give(const FileDescriptor& file, int asNumber)
    {
        ::posix_spawn_file_actions_adddup2(&actions_, file.number(), asNumber);
    }

    void openNull(int asNumber)
    {
        ::posix_spawn_file_actions_addopen(&actions_, asNumber, "/dev/null", O_RDONLY, 0);
    }

    /// Keeps every descriptor from this number on from the child, also those that other parts of
    /// the host program forgot to mark.
    void closeFrom(int number) { ::posix_spawn_file_actions_addclosefrom_np(&actions_, number); }

    /// @return the child's process id; -1 when it could not be started.
    pid_t start(const std::string& program, const std::vector<std::string>& arguments, bool search)
    {
        std::vector<char*> words;
        words.reserve(arguments.size() + 1);
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        const std::string name = std::string(kParentVariable) + "=";
        const std::string parent = name + std::to_string(::getpid());
        std::vector<char*> variables;
        for (char** variable = environ; *variable; ++variable) {
            if (!std::string_view(*variable).starts_with(name))
                variables.push_back(*variable);
        }
        variables.push_back(const_cast<char*>(parent.c_str()));
        variables.push_back(nullptr);
        pid_t child = -1;
        const auto spawn = search ? ::posix_spawnp : ::posix_spawn;
        if (spawn(&child, program.c_str(), &actions_, &attributes_, words.data(),
                  variables.data()) != 0)
            return -1;
        return child;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

struct Channel {
    FileDescriptor ours;
    FileDescriptor theirs;
    [[nodiscard]] bool isOpen() const { return ours.isOpen() && theirs.isOpen(); }
};

/// Moves a descriptor out of the numbers that a spawn plan writes to, so that placing one never
/// covers another that is still to be placed.
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

/// Reads to the end of the output, unless the time is over or a stop is asked for first.
WaitEnd readToEnd(const FileDescriptor& pipe, Clock::time_point deadline, std::string& output)
{
    std::array<char, 65536> piece; // NOLINT: filled by read
    for (;;) {
        const WaitEnd end = awaitReadable(pipe.number(), deadline);
        if (end != WaitEnd::ready)
            return end;
        const ssize_t count = ::read(pipe.number(), piece.data(), piece.size());
        if (count > 0)
            output.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return WaitEnd::ready;
    }
}

ChildExit exitOf(int status)
{
    if (WIFSIGNALED(status))
        return {WTERMSIG(status), true};
    return {WEXITSTATUS(status), false};
}

ChildExit reap(pid_t child)
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return exitOf(status);
}

void noteEnd(WaitEnd end, ChildAnswer& answer)
{
    answer.endedByLimit |= end == WaitEnd::timeOver;
    answer.endedByStop |= end == WaitEnd::stopped;
}

/// Whether this thread was asked to stop before anything began.
bool isStopRequested()
{
    const StopRequest* stop = StopRequest::ofThisThread();
    return stop && stop->isRequested();
}

/// A child that was started. Nothing of it is left after this, however its owner ends: one that
/// nobody waited for, because memory ran out meanwhile, is ended.
class Child {
public:
    explicit Child(pid_t id) : id_(id) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        if (id_ < 0)
            return;
        end();
        (void)reap(id_);
    }

    [[nodiscard]] bool isStarted() const { return id_ > 0; }
    void end() const { ::kill(id_, SIGKILL); }

    /// Waits for its end until the deadline, or until a stop is asked for, then ends it.
    ChildExit wait(Clock::time_point deadline, ChildAnswer& answer)
    {
        const pid_t id = std::exchange(id_, -1);
        const FileDescriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
        const WaitEnd end =
            watch.isOpen() ? awaitReadable(watch.number(), deadline) : WaitEnd::timeOver;
        if (end != WaitEnd::ready) {
            int status = 0;
            if (::waitpid(id, &status, WNOHANG) == id)
                return exitOf(status);
            noteEnd(end, answer);
            ::kill(id, SIGKILL);
        }
        return reap(id);
    }

private:
    pid_t id_; ///< -1 when it was not started or has been reaped
};

} // namespace

std::optional<ChildAnswer> runChild(const ChildRun& run)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    const auto deadline = Clock::now() + run.limit;
    const FileDescriptor input = liftedAbovePlaces(anonymousFileHolding(run.input));
    Channel output = makePipe();
    Channel release = makeSocketPair();
    if (!input.isOpen() || !output.isOpen() || !release.isOpen())
        return std::nullopt;

    SpawnPlan plan;
    plan.give(release.theirs, STDIN_FILENO);
    plan.give(output.theirs, STDOUT_FILENO);
    plan.give(input, kInputDescriptor);
    plan.closeFrom(kInputDescriptor + 1);
    const std::string program = run.program.string();
    Child child(
        plan.start(program, {program, "@/dev/fd/" + std::to_string(kInputDescriptor)}, false));
    if (!child.isStarted())
        return std::nullopt;
    output.theirs.close();
    release.theirs.close();

    ChildAnswer answer;
    const WaitEnd end = readToEnd(output.ours, deadline, answer.output);
    if (end != WaitEnd::ready) {
        noteEnd(end, answer);
        child.end();
    } else if (run.releaseBytes) {
        const std::string bytes = run.releaseBytes(answer.output);
        (void)!::send(release.ours.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    release.ours.close(); // a child that waits for more finds the end
    answer.exit = child.wait(deadline, answer);
    return answer;
}

std::optional<ChildAnswer> captureOutput(const std::vector<std::string>& command,
                                         std::chrono::milliseconds limit)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    const auto deadline = Clock::now() + limit;
    Channel output = makePipe();
    if (!output.isOpen() || command.empty())
        return std::nullopt;
    SpawnPlan plan;
    plan.openNull(STDIN_FILENO);
    plan.give(output.theirs, STDOUT_FILENO);
    plan.closeFrom(kInputDescriptor);
    Child child(plan.start(command.front(), command, true));
    if (!child.isStarted())
        return std::nullopt;
    output.theirs.close();
    ChildAnswer answer;
    const WaitEnd end = readToEnd(output.ours, deadline, answer.output);
    if (end != WaitEnd::ready) {
        noteEnd(end, answer);
        child.end();
    }
    answer.exit = child.wait(deadline, answer);
    return answer;
}

} // namespace stowline::platform
