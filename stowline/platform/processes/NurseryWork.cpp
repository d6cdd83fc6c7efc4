#include "stowline/platform/processes/NurseryWork.h"

#include "stowline/platform/processes/ChildConversation.h"
#include "stowline/platform/processes/NurseryMessages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExitBits = 0xff; // as wait(2) tells them

/// Where a child finds the socket on which it and the nursery tell of its call.
constexpr int kReportPlace = kInputDescriptor + 1;

/// A child that has not ended yet, for the one call that it is for.
struct Charge {
    pid_t id = -1;
    FileDescriptor process;
    FileDescriptor report;
    bool isToEnd = false; ///< nobody waits for what it does any more
};

int handleOfProcess(pid_t id)
{
    return static_cast<int>(::syscall(SYS_pidfd_open, id, 0));
}

/// Whether the host asks for the end of a call: by the half of the socket that it shut down.
bool isAskedToEnd(int report)
{
    char byte = 0;
    const ssize_t count = ::recv(report, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return count >= 0 || (errno != EAGAIN && errno != EINTR);
}

/// Puts the descriptors of a call to their places, and closes all others.
void takeDescriptors(const std::array<FileDescriptor, kCallDescriptors>& given)
{
    constexpr std::array<std::pair<CallDescriptor, int>, 5> places{
        std::pair{CallDescriptor::release, STDIN_FILENO},
        {CallDescriptor::output, STDOUT_FILENO},
        {CallDescriptor::errors, STDERR_FILENO},
        {CallDescriptor::request, kInputDescriptor},
        {CallDescriptor::report, kReportPlace}};
    // Those at the places are the nursery's own, and what was received lies above them.
    for (const auto& [descriptor, place] : places) {
        if (::dup2(given.at(static_cast<std::size_t>(descriptor)).number(), place) != place)
            std::_Exit(EXIT_FAILURE);
    }
    ::fcntl(kReportPlace, F_SETFD, FD_CLOEXEC);
    if (::close_range(kReportPlace + 1, ~0U, 0) == 0)
        return;
    constexpr int most = 1 << 16;
    for (int number = kReportPlace + 1; number < most; ++number)
        ::close(number);
}

class Nursery {
public:
    Nursery(std::string program, const NurseryWork& work)
        : program_(std::move(program)), work_(work), own_(::getpid()), host_(hostOfSocket())
    {
    }

    static pid_t hostOfSocket()
    {
        ucred creator{};
        socklen_t size = sizeof creator;
        ::getsockopt(kNurserySocket, SOL_SOCKET, SO_PEERCRED, &creator, &size);
        return creator.pid;
    }

    int run()
    {
        auto idleSince = Clock::now();
        while (isOpen_ || !charges_.empty()) {
            const bool isIdle = charges_.empty();
            const auto left = idleSince + work_.idleLimit - Clock::now();
            if (isIdle && left.count() <= 0)
                return EXIT_SUCCESS;
            const auto limit = isIdle ? std::chrono::ceil<std::chrono::milliseconds>(left)
                                      : std::chrono::milliseconds(-1);
            const bool isTold = awaitEvents(mayPrepare() ? std::chrono::milliseconds(0) : limit);
            if (!isTold && errno == EINTR)
                continue;
            if (isTold && mayPrepare() && isQuiet()) {
                prepareSomething();
                continue;
            }
            if (!isTold || watched_[1].revents != 0) { // without events no end would be noticed
                endAll();
                return isTold ? EXIT_SUCCESS : EXIT_FAILURE;
            }
            lookAfterCharges();
            if (watched_[0].revents != 0)
                takeCalls();
            if (!charges_.empty())
                idleSince = Clock::now();
        }
        return EXIT_SUCCESS;
    }

private:
    [[nodiscard]] bool mayPrepare() const { return isToPrepareSoon_ || hasMoreToPrepare_; }

    /// It only saves children time: where there is no memory for it, each does it itself.
    void prepareSomething()
    {
        try {
            if (std::exchange(isToPrepareSoon_, false))
                work_.prepareSoon();
            else
                hasMoreToPrepare_ = work_.prepareMore();
        } catch (const std::bad_alloc&) {
            hasMoreToPrepare_ = false;
        }
    }

    /// Waits for the host's end, for calls, for children and for those who ask for their end.
    bool awaitEvents(std::chrono::milliseconds atMost)
    {
        watched_.clear();
        watched_.push_back({isOpen_ ? kNurserySocket : -1, POLLIN, 0});
        watched_.push_back({kNurseryHost, POLLIN, 0});
        for (const Charge& charge : charges_) {
            watched_.push_back({charge.process.number(), POLLIN, 0});
            watched_.push_back({charge.isToEnd ? -1 : charge.report.number(), POLLIN, 0});
        }
        return ::poll(watched_.data(), watched_.size(), static_cast<int>(atMost.count())) >= 0;
    }

    [[nodiscard]] bool isQuiet() const
    {
        return std::ranges::none_of(watched_,
                                    [](const pollfd& place) { return place.revents != 0; });
    }

    void endAll()
    {
        for (Charge& charge : charges_) {
            ::kill(charge.id, SIGKILL); // it is our child, and not reaped: the number is its own
            reap(charge);
        }
    }

    void lookAfterCharges()
    {
        std::size_t at = 2;
        for (Charge& charge : charges_) {
            const bool hasEnded = watched_[at].revents != 0;
            const bool isAsked = watched_[at + 1].revents != 0;
            at += 2;
            if (hasEnded)
                reap(charge);
            else if (isAsked && isAskedToEnd(charge.report.number())) {
                ::kill(charge.id,
                       SIGKILL); // taken note of when it has ended: others may be waiting
                charge.isToEnd = true;
            }
        }
        std::erase_if(charges_, [](const Charge& charge) { return charge.id < 0; });
    }

    /// Waits for the end of a child, and tells the host of it.
    static void reap(Charge& charge)
    {
        siginfo_t info{};
        int result = -1;
        do
            result = ::waitid(P_PID, static_cast<id_t>(charge.id), &info, WEXITED);
        while (result != 0 && errno == EINTR);
        charge.id = -1;
        if (result == 0)
            sendReport(charge.report.number(), {NurseryReport::Kind::ended, info.si_status,
                                                info.si_code == CLD_EXITED ? 0 : 1});
    }

    void takeCalls()
    {
        for (;;) {
            ReceivedCall call;
            switch (receiveCall(kNurserySocket, call)) {
            case Reception::call:
                if (call.sender == host_) // not a process that the host forked
                    begin(call);
                break;
            case Reception::nonsense:
                break;
            case Reception::nothing:
                return;
            case Reception::end:
                isOpen_ = false;
                return;
            }
        }
    }

    void begin(ReceivedCall& call)
    {
        FileDescriptor& report =
            call.descriptors.at(static_cast<std::size_t>(CallDescriptor::report));
        charges_.reserve(charges_.size() + 1);
        if (isAskedToEnd(report.number())) {
            sendReport(report.number(), {NurseryReport::Kind::refused, ECANCELED, 0});
            return;
        }
        // Said before: what a child does that nobody was told of would be done twice.
        if (!sendReport(report.number(), {NurseryReport::Kind::begun, 0, 0}))
            return;
        const pid_t id = ::fork();
        if (id == 0)
            std::_Exit(workAsChild(call));
        if (id < 0) {
            sendReport(report.number(), {NurseryReport::Kind::refused, errno, 0});
            return;
        }
        lookAfter(id, std::move(report));
        if (std::exchange(hasBegunNone_, false))
            hasMoreToPrepare_ = static_cast<bool>(work_.prepareMore);
        if (isToPrepareSoon_)
            prepareSomething(); // beside the first child, which does the same
    }

    /// A child that was begun; there is room for its charge.
    void lookAfter(pid_t id, FileDescriptor report)
    {
        Charge charge{id, FileDescriptor(handleOfProcess(id)), std::move(report)};
        if (charge.process.isOpen()) {
            charges_.push_back(std::move(charge));
            return;
        }
        ::kill(id, SIGKILL); // its end could not be noticed
        reap(charge);
    }

    /// In the child: becomes what a program started alone would be, and does its work.
    int workAsChild(const ReceivedCall& call)
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL); // our parent has one thread: it is the process
        if (::getppid() != own_)
            return EXIT_FAILURE;
        sendReport(call.descriptors.at(static_cast<std::size_t>(CallDescriptor::report)).number(),
                   {NurseryReport::Kind::working, 0, 0});
        takeDescriptors(call.descriptors);
        const int status =
            work_.run({program_, "@/dev/fd/" + std::to_string(kInputDescriptor)}) & kExitBits;
        sendReport(kReportPlace, {NurseryReport::Kind::leaving, status, 0});
        return status;
    }

    const std::string program_;
    const NurseryWork& work_;
    const pid_t own_;
    const pid_t host_;
    bool isOpen_ = true; ///< whether calls may still come
    bool hasBegunNone_ = true;
    bool isToPrepareSoon_ = static_cast<bool>(work_.prepareSoon);
    bool hasMoreToPrepare_ = false;
    std::vector<Charge> charges_;
    std::vector<pollfd> watched_;
};

} // namespace

bool isNursery(const std::vector<std::string>& words)
{
    if (words.size() != 3 || words[1] != kNurseryWord || words[2] != std::to_string(kNurserySocket))
        return false;
    int type = 0;
    socklen_t size = sizeof type;
    const bool isOurs = ::getsockopt(kNurserySocket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 &&
                        type == SOCK_SEQPACKET;
    return isOurs && Nursery::hostOfSocket() > 0 && ::fcntl(kNurseryHost, F_GETFD) >= 0;
}

int runNursery(const std::string& program, const NurseryWork& work)
{
    for (const int place : {kNurserySocket, kNurseryHost})
        ::fcntl(place, F_SETFD, FD_CLOEXEC);
    work.prepare();
    return Nursery(program, work).run();
}

} // namespace stowline::platform
