#include "stowline/platform/processes/Spawn.h"

#include "stowline/platform/processes/HelperProgram.h"
#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ; // NOLINT: the platform's name

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

/// What the child reads and writes before it is another program. It shares our memory until then,
/// while the thread that starts it stands still.
struct Becoming {
    const char* program;
    char* const* arguments;
    char* const* environment;
    const GivenDescriptor* descriptors;
    std::size_t descriptorCount;
    int owned; ///< -1, or a socket whose events shall end the child
    int error = 0;
    void* stack = nullptr; ///< for the orphan of a child that is only its parent
    pid_t orphan = -1;
};

/// The kernel's form of a signal's disposition: all zero is the default one.
struct DefaultDisposition {
    std::array<unsigned long, 4> words{};
};

constexpr int kSignals = 64;
constexpr std::size_t kSignalSetBytes = 8;

/// System calls go past the C library's functions, which tools that watch the memory replace: the
/// child must not touch what those remember of us.
template <class... Words> long callKernel(long number, Words... words)
{
    return ::syscall(number, words...);
}

void closeAllFrom(unsigned first)
{
    if (callKernel(SYS_close_range, first, ~0U, 0U) == 0)
        return;
    constexpr unsigned most = 1U << 16; // kernels without that call
    for (unsigned number = first; number < most; ++number)
        callKernel(SYS_close, number);
}

/// In the child. Only what is safe between fork and exec.
__attribute__((no_sanitize("address", "thread", "undefined"))) int becomeProgram(void* content)
{
    auto& becoming = *static_cast<Becoming*>(content);
    const DefaultDisposition standard;
    for (int signal = 1; signal <= kSignals; ++signal)
        callKernel(SYS_rt_sigaction, signal, &standard, nullptr, kSignalSetBytes);
    if (becoming.owned >= 0) {
        callKernel(SYS_fcntl, becoming.owned, F_SETOWN, callKernel(SYS_getpid));
        callKernel(SYS_fcntl, becoming.owned, F_SETSIG, SIGKILL);
        callKernel(SYS_fcntl, becoming.owned, F_SETFL, O_ASYNC);
    }
    int last = -1;
    for (std::size_t i = 0; i < becoming.descriptorCount; ++i) {
        const GivenDescriptor& given = becoming.descriptors[i];
        if (given.ours < 0)
            callKernel(SYS_close, given.place);
        else if (given.ours == given.place)
            callKernel(SYS_fcntl, given.place, F_SETFD, 0);
        else
            callKernel(SYS_dup3, given.ours, given.place, 0);
        last = std::max(last, given.place);
    }
    closeAllFrom(static_cast<unsigned>(last + 1));
    const unsigned long noSignals = 0;
    callKernel(SYS_rt_sigprocmask, SIG_SETMASK, &noSignals, nullptr, kSignalSetBytes);
    callKernel(SYS_execve, becoming.program, becoming.arguments, becoming.environment);
    becoming.error = errno;
    callKernel(SYS_exit_group, 127);
    return 127;
}

/// In the child that ends at once, so that its own child is nobody's.
__attribute__((no_sanitize("address", "thread", "undefined"))) int becomeParent(void* content)
{
    auto& becoming = *static_cast<Becoming*>(content);
    becoming.orphan =
        ::clone(becomeProgram, becoming.stack, CLONE_VM | CLONE_VFORK | SIGCHLD, content);
    if (becoming.orphan < 0)
        becoming.error = errno;
    callKernel(SYS_exit_group, 0);
    return 0;
}

/// A stack for the child until it is another program, and one for a child of that.
class BorrowedStack {
public:
    BorrowedStack()
        : bottom_(::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))
    {
    }
    BorrowedStack(const BorrowedStack&) = delete;
    BorrowedStack& operator=(const BorrowedStack&) = delete;
    ~BorrowedStack()
    {
        if (isThere())
            ::munmap(bottom_, kBytes);
    }
    [[nodiscard]] bool isThere() const { return bottom_ != MAP_FAILED; }
    [[nodiscard]] void* top() const { return static_cast<char*>(bottom_) + kBytes; }
    [[nodiscard]] void* middle() const { return static_cast<char*>(bottom_) + kBytes / 2; }

private:
    static constexpr std::size_t kBytes = 256UL * 1024;
    void* bottom_;
};

/// While it exists, this thread takes no signals: a handler of the host must not run in the child.
class SignalsHeld {
public:
    SignalsHeld()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &earlier_);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { ::pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }

private:
    sigset_t earlier_{};
};

/// Words as the kernel takes them.
std::vector<char*> pointersTo(const std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// Our environment, with these words ("NAME=value") in the place of ours.
std::vector<char*> environmentWith(const std::vector<std::string>& words)
{
    const auto isReplaced = [&words](std::string_view variable) {
        return std::ranges::any_of(words, [variable](std::string_view word) {
            return variable.starts_with(word.substr(0, word.find('=') + 1));
        });
    };
    std::vector<char*> variables;
    for (char** variable = environ; *variable; ++variable) {
        if (!isReplaced(*variable))
            variables.push_back(*variable);
    }
    for (const std::string& word : words)
        variables.push_back(const_cast<char*>(word.c_str()));
    variables.push_back(nullptr);
    return variables;
}

/// The request's own, and the word that tells the child who started it.
std::vector<std::string> variablesOf(const SpawnRequest& request)
{
    auto words = request.variables;
    words.push_back(std::string(kParentVariable) + "=" + std::to_string(::getpid()));
    return words;
}

/// What a request says, as the kernel takes it.
class Words {
public:
    explicit Words(const SpawnRequest& request)
        : variables_(variablesOf(request)), arguments_(pointersTo(request.arguments)),
          environment_(environmentWith(variables_))
    {
    }
    Words(const Words&) = delete;
    Words& operator=(const Words&) = delete;
    ~Words() = default;

    /// Valid as long as this and the request.
    [[nodiscard]] Becoming becoming(const SpawnRequest& request) const
    {
        return {.program = request.program.c_str(),
                .arguments = arguments_.data(),
                .environment = environment_.data(),
                .descriptors = request.descriptors.data(),
                .descriptorCount = request.descriptors.size(),
                .owned = -1};
    }

private:
    const std::vector<std::string> variables_;
    const std::vector<char*> arguments_;
    const std::vector<char*> environment_;
};

/// Whether the system sends signals to processes by handle. Asked each time: a filter of system
/// calls may come later.
bool canSignalByHandle()
{
    return callKernel(SYS_pidfd_send_signal, -1, 0, nullptr, 0) < 0 && errno == EBADF;
}

StartFailure failureOf(int error)
{
    return {error};
}

/// @return the child's number, or -1 with errno; its handle where the system has such
pid_t cloned(Becoming& becoming, int& handle)
{
    const BorrowedStack stack;
    if (!stack.isThere())
        return -1;
    const SignalsHeld held;
    constexpr int flags = CLONE_VM | CLONE_VFORK | SIGCHLD;
    pid_t id = ::clone(becomeProgram, stack.top(), flags | CLONE_PIDFD, &becoming, &handle);
    if (id < 0 && (errno == EINVAL || errno == ENOSYS || errno == EPERM))
        id = ::clone(becomeProgram, stack.top(), flags, &becoming);
    return id;
}

ChildExit exitFrom(const siginfo_t& info)
{
    return {info.si_status, info.si_code != CLD_EXITED};
}

constexpr ChildExit kUnknownExit{.status = 0, .bySignal = false, .isKnown = false};

} // namespace

StartedChild::StartedChild(pid_t id, FileDescriptor process, FileDescriptor lifeline,
                           FileDescriptor owned)
    : id_(id), process_(std::move(process)), lifeline_(std::move(lifeline)),
      owned_(std::move(owned))
{
}

StartedChild::StartedChild(StartedChild&& other) noexcept
    : RunningChild(), id_(std::exchange(other.id_, -1)), process_(std::move(other.process_)),
      lifeline_(std::move(other.lifeline_)), owned_(std::move(other.owned_))
{
}

StartedChild::~StartedChild()
{
    if (id_ < 0)
        return;
    end();
    (void)reap();
}

void StartedChild::end() const
{
    if (process_.isOpen() &&
        callKernel(SYS_pidfd_send_signal, process_.number(), SIGKILL, nullptr, 0) == 0)
        return;
    if (lifeline_.isOpen())
        (void)!::send(lifeline_.number(), "x", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

bool StartedChild::hasEnded() const
{
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0
               ? errno == ECHILD
               : info.si_pid != 0;
}

WaitEnd StartedChild::awaitEnd(Clock::time_point deadline)
{
    if (process_.isOpen())
        return awaitReadable(process_.number(), deadline);
    constexpr std::chrono::microseconds longest{10'000};
    std::chrono::microseconds pause{100};
    const StopRequest* stop = StopRequest::ofThisThread();
    while (!hasEnded()) {
        if (stop && stop->isRequested())
            return WaitEnd::stopped;
        if (Clock::now() >= deadline)
            return WaitEnd::timeOver;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longest);
    }
    return WaitEnd::ready;
}

ChildExit StartedChild::reap()
{
    const pid_t id = std::exchange(id_, -1);
    siginfo_t info{};
    int result = -1;
    if (process_.isOpen()) {
        const auto handle = static_cast<id_t>(process_.number());
        do
            result = ::waitid(P_PIDFD, handle, &info, WEXITED);
        while (result != 0 && errno == EINTR);
        if (result == 0 || errno == ECHILD)
            return result == 0 ? exitFrom(info) : kUnknownExit;
    }
    do
        result = ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED);
    while (result != 0 && errno == EINTR);
    return result == 0 ? exitFrom(info) : kUnknownExit;
}

Outcome<StartedChild, StartFailure> spawn(const SpawnRequest& request)
{
    std::array<int, 2> ends{-1, -1};
    if (!canSignalByHandle() &&
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return failureOf(errno);
    FileDescriptor lifeline(ends[0]);
    FileDescriptor owned(ends[1]);
    const Words words(request);
    Becoming becoming = words.becoming(request);
    becoming.owned = owned.number();
    int handle = -1;
    const pid_t id = cloned(becoming, handle);
    if (id < 0)
        return failureOf(errno);
    StartedChild child(id, FileDescriptor(handle), std::move(lifeline), std::move(owned));
    if (becoming.error != 0) // it has ended: the destructor collects it
        return failureOf(becoming.error);
    return child;
}

Outcome<pid_t, StartFailure> spawnOrphan(const SpawnRequest& request)
{
    const Words words(request);
    Becoming becoming = words.becoming(request);
    const BorrowedStack stack;
    if (!stack.isThere())
        return failureOf(errno);
    becoming.stack = stack.middle();
    const SignalsHeld held;
    // Without a signal for its end, the parent in between is for nobody to wait for but us.
    const pid_t between = ::clone(becomeParent, stack.top(), CLONE_VM | CLONE_VFORK, &becoming);
    if (between < 0)
        return failureOf(errno);
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(between), &info, WEXITED | __WCLONE) != 0 &&
           errno == EINTR) {
    }
    if (becoming.error != 0)
        return failureOf(becoming.error);
    return becoming.orphan;
}

std::string programOfCommand(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::string_view rest = path ? path : "/usr/local/bin:/usr/bin:/bin";
    while (name.find('/') == std::string::npos && !rest.empty()) {
        const auto end = rest.find(':');
        const std::string folder(rest.substr(0, end));
        std::string file = (folder.empty() ? "." : folder) + "/" + name;
        if (::access(file.c_str(), X_OK) == 0)
            return file;
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return name;
}

} // namespace stowline::platform
