#include "stowline/platform/processes/LeftProcesses.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Numbers.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kPatience{2000};

struct Child {
    pid_t id = 0;
    pid_t session = 0;
};

/// What /proc/N/stat says of a process (proc(5)): its name in brackets, which may hold anything,
/// then its state, its parent, its group, its session.
struct Standing {
    pid_t parent = 0;
    pid_t session = 0;
};

Standing standingOf(pid_t id)
{
    const std::string text = readFile("/proc/" + std::to_string(id) + "/stat").value_or("");
    const auto nameEnd = text.rfind(')');
    std::istringstream rest(nameEnd == std::string::npos ? "" : text.substr(nameEnd + 1));
    std::string state;
    pid_t group = 0;
    Standing standing;
    rest >> state >> standing.parent >> group >> standing.session;
    return rest ? standing : Standing();
}

std::vector<Child> childrenNow()
{
    std::vector<Child> children;
    std::error_code fault;
    for (fs::directory_iterator entry("/proc", fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const auto id = wholeNumber<pid_t>(entry->path().filename().string());
        if (!id)
            continue;
        const Standing standing = standingOf(*id);
        if (standing.parent == ::getpid())
            children.push_back({*id, standing.session});
    }
    return children;
}

std::set<pid_t> idsOf(const std::vector<Child>& children)
{
    std::set<pid_t> ids;
    for (const Child& child : children)
        ids.insert(child.id);
    return ids;
}

bool isSubreaper()
{
    int isOn = 0;
    return ::prctl(PR_GET_CHILD_SUBREAPER, &isOn) == 0 && isOn != 0;
}

/// Waits, whatever this thread was asked, until a child has ended.
void awaitEnd(pid_t id)
{
    const FileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
    if (!handle.isOpen())
        return;
    pollfd ready{.fd = handle.number(), .events = POLLIN, .revents = 0};
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    int result = 0;
    do {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        result = ::poll(&ready, 1, static_cast<int>(std::max(left.count(), 0L)));
    } while (result < 0 && errno == EINTR);
}

/// @return whether it has ended and is collected
bool isCollected(pid_t id)
{
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG) != 0 ||
           info.si_pid == id;
}

} // namespace

LeftProcesses::LeftProcesses() : wasOn_(isSubreaper()), earlier_(idsOf(childrenNow()))
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

LeftProcesses::~LeftProcesses()
{
    ::prctl(PR_SET_CHILD_SUBREAPER, wasOn_ ? 1 : 0);
}

void LeftProcesses::end(Which which) const
{
    while (endOnce(which)) { // what these have left in turn is ours by now
    }
}

/// @return whether anything was ended, so that more may have become ours
bool LeftProcesses::endOnce(Which which) const
{
    bool isAnyEnded = false;
    std::vector<pid_t> ending;
    for (const Child& child : childrenNow()) {
        if (earlier_.contains(child.id))
            continue;
        // A child that nobody has collected keeps its number, so the signal is for no other one.
        if (isCollected(child.id))
            isAnyEnded = true;
        else if ((which == Which::all || child.session == ::getsid(0)) &&
                 ::kill(child.id, SIGKILL) == 0)
            ending.push_back(child.id);
    }
    for (const pid_t id : ending) {
        awaitEnd(id);
        isAnyEnded = isCollected(id) || isAnyEnded;
    }
    return isAnyEnded;
}

} // namespace stowline::platform
