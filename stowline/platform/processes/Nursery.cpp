#include "stowline/platform/processes/Nursery.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/ChildConversation.h"
#include "stowline/platform/processes/NurseryConditions.h"
#include "stowline/platform/processes/NurseryMessages.h"
#include "stowline/platform/processes/Spawn.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;
using Result = Outcome<ChildAnswer, StartFailure>;

constexpr int kMostChildren = 1000;

/// How long a nursery may be silent that is to tell of a child, before it is ended itself.
constexpr std::chrono::milliseconds kPatience{5000};

FileDescriptor handleOf(pid_t id)
{
    const auto number = static_cast<int>(::syscall(SYS_pidfd_open, id, 0));
    return liftedAbovePlaces(FileDescriptor(number));
}

/// One waiting program. Any number of threads may use it at once.
class Nursery {
public:
    Nursery(FileDescriptor socket, std::string conditions)
        : socket_(std::move(socket)), conditions_(std::move(conditions)), owner_(::getpid())
    {
    }
    Nursery(const Nursery&) = delete;
    Nursery& operator=(const Nursery&) = delete;
    ~Nursery() { giveUp(); }

    /// @return or why there is none
    static Outcome<std::shared_ptr<Nursery>, NoNursery> begun(const std::string& program,
                                                              const std::string& conditions)
    {
        Channel channel = makeSocketPair(SOCK_SEQPACKET);
        const FileDescriptor host = liftedAboveNurserys(handleOf(::getpid()));
        constexpr int yes = 1;
        if (!channel.isOpen() || !host.isOpen() ||
            ::setsockopt(channel.theirs.number(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes) != 0)
            return NoNursery{"no socket, or no handle of this process"};
        auto nursery = std::make_shared<Nursery>(std::move(channel.ours), conditions);
        const FileDescriptor theirs = liftedAboveNurserys(std::move(channel.theirs));
        const auto id =
            spawnOrphan({.program = program,
                         .arguments = {program, kNurseryWord, std::to_string(kNurserySocket)},
                         .descriptors = {{-1, STDIN_FILENO},
                                         {-1, STDOUT_FILENO},
                                         {-1, STDERR_FILENO},
                                         {theirs.number(), kNurserySocket},
                                         {host.number(), kNurseryHost}}});
        if (!id)
            return NoNursery{"no waiting program could be started"};
        nursery->process_ = handleOf(*id);
        nursery->id_ = *id;
        return nursery;
    }

    /// Once it alone has the other end: whether the handle is of this very nursery, which lives.
    [[nodiscard]] bool isThere() const
    {
        pollfd watched{socket_.number(), 0, 0};
        return process_.isOpen() && ::poll(&watched, 1, 0) == 0;
    }

    [[nodiscard]] bool isOurs() const { return owner_ == ::getpid(); }
    [[nodiscard]] bool fits(const std::string& conditions) const
    {
        return isOurs() && !isGivenUp_ && conditions_ == conditions && isThere();
    }

    /// Counts a child that is to be begun. @return whether it was the last one
    [[nodiscard]] bool isLastAfterThis() { return ++children_ >= kMostChildren; }

    [[nodiscard]] int hand(const std::array<int, kCallDescriptors>& descriptors) const
    {
        return sendCall(socket_.number(), descriptors);
    }

    /// Notes that it told something, of whichever call. @return when it did so last
    void noteWord() { lastWord_ = Clock::now().time_since_epoch(); }
    [[nodiscard]] Clock::time_point lastWord() const { return Clock::time_point(lastWord_); }

    /// Asks for no more children; those that are there come to their end, and it ends with them.
    void giveUp()
    {
        if (isOurs() && !isGivenUp_.exchange(true))
            ::shutdown(socket_.number(), SHUT_WR);
    }

    /// Whether somebody stopped it (SIGSTOP), so that it does nothing until it is continued.
    [[nodiscard]] bool isStopped() const
    {
        const auto stat = readFile("/proc/" + std::to_string(id_) + "/stat").value_or("");
        const auto name = stat.rfind(") ");
        return name != std::string::npos && (stat[name + 2] == 'T' || stat[name + 2] == 't');
    }

    /// Ends it at once with all its children.
    void kill()
    {
        giveUp();
        if (isOurs() && process_.isOpen())
            ::syscall(SYS_pidfd_send_signal, process_.number(), SIGKILL, nullptr, 0);
    }

private:
    /// Out of the numbers at which a nursery finds its own.
    static FileDescriptor liftedAboveNurserys(FileDescriptor file)
    {
        if (file.number() > kNurseryHost || !file.isOpen())
            return file;
        return FileDescriptor(::fcntl(file.number(), F_DUPFD_CLOEXEC, kNurseryHost + 1));
    }

    FileDescriptor socket_;
    FileDescriptor process_;
    pid_t id_ = -1;
    const std::string conditions_;
    const pid_t owner_;
    std::atomic<int> children_ = 0;
    std::atomic<bool> isGivenUp_ = false;
    std::atomic<Clock::duration> lastWord_ = Clock::duration::zero();
};

/// The nursery that this process uses now.
class CurrentNursery {
public:
    static CurrentNursery& instance()
    {
        static CurrentNursery current;
        return current;
    }

    /// The one for the next child; begins it where there is none that fits.
    Outcome<std::shared_ptr<Nursery>, NoNursery> forChild(const std::string& program,
                                                          bool isCounted)
    {
        auto conditions = nurseryConditions(program);
        if (!conditions) {
            giveUp(nullptr);
            return conditions.error();
        }
        const WholeInFork whole; // a child of a fork must not keep the nursery's end of the socket
        const std::lock_guard lock(mutex_);
        if (!nursery_ || !nursery_->fits(*conditions)) {
            nursery_.reset();
            auto begun = Nursery::begun(program, *conditions);
            if (!begun)
                return begun;
            if (!(*begun)->isThere()) {
                (*begun)->giveUp();
                return NoNursery{"the waiting program ended, or the system has no handle of it"};
            }
            nursery_ = *begun;
        }
        auto chosen = nursery_;
        if (isCounted && chosen->isLastAfterThis())
            nursery_.reset();
        return chosen;
    }

    /// Of one that did badly, or whatever there is.
    void giveUp(const Nursery* nursery)
    {
        const std::lock_guard lock(mutex_);
        if (nursery && nursery_.get() != nursery)
            return;
        if (nursery_)
            nursery_->giveUp();
        nursery_.reset();
    }

private:
    ForkSafeMutex mutex_;
    std::shared_ptr<Nursery> nursery_;
};

/// A child of a nursery, as its host knows it: by the socket of the one call.
class NurseryChild final : public RunningChild {
public:
    NurseryChild(std::shared_ptr<Nursery> nursery, FileDescriptor report)
        : nursery_(std::move(nursery)), report_(std::move(report))
    {
    }
    NurseryChild(const NurseryChild&) = delete;
    NurseryChild& operator=(const NurseryChild&) = delete;
    ~NurseryChild() override
    {
        if (!isOver_) {
            end();
            (void)reap();
        }
    }

    void end() const override { ::shutdown(report_.number(), SHUT_WR); }

    /// Waits until something arrives from the child, as long as it is not sure that there is one. A
    /// nursery that is stopped or hangs is ended: only then is it sure that it will not begin it.
    void awaitBeginning(const FileDescriptor& output, Clock::time_point deadline)
    {
        auto since = Clock::now();
        for (;;) {
            const auto patience = patienceEnd(since);
            const WaitEnd end = awaitReadable(output.number(), std::min(deadline, patience));
            if (end != WaitEnd::timeOver || Clock::now() >= deadline)
                return;
            (void)takeReports();
            if (isOver_ || isAtWork_)
                return;
            if (mayHaveBegun_ ? !nursery_->isStopped() : Clock::now() < patienceEnd(since)) {
                since = mayHaveBegun_ ? Clock::now() : since; // it takes its time
                continue;
            }
            nursery_->kill();
            if (mayHaveBegun_)
                isLost_ = isOver_ = true; // stopped as it forked: nobody can say what became of it
            else
                (void)reap(); // what it had told before
            return;
        }
    }

    /// Whether it counts as begun, and nothing more will ever be heard of it.
    [[nodiscard]] bool isLost() const { return isLost_; }

    WaitEnd awaitEnd(Clock::time_point deadline) override
    {
        auto since = Clock::now();
        while (!takeReports()) {
            const WaitEnd end =
                awaitReadable(report_.number(), std::min(deadline, patienceEnd(since)));
            if (end == WaitEnd::stopped || (end == WaitEnd::timeOver && Clock::now() >= deadline))
                return end;
            const bool isLong = end == WaitEnd::timeOver && Clock::now() >= patienceEnd(since);
            if (isLong && nursery_->isStopped()) {
                nursery_->kill(); // the output is there; how the child ended nobody will know
                break;
            }
            if (isLong) // the child takes its time
                since = Clock::now();
        }
        return WaitEnd::ready;
    }

    ChildExit reap() override
    {
        const auto deadline = Clock::now() + kPatience;
        for (;;) {
            if (takeReports())
                return exit_;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd watched{report_.number(), POLLIN, 0};
            if (left.count() <= 0) {
                nursery_->kill(); // and its children end with it
                isOver_ = true;
            } else {
                (void)::poll(&watched, 1, static_cast<int>(left.count()));
            }
        }
    }

    /// Whether the child may have begun what it does.
    [[nodiscard]] bool mayHaveBegun() const { return mayHaveBegun_ && !isRefused_; }

private:
    /// Others may have been served meanwhile: then it is busy, and not silent.
    [[nodiscard]] Clock::time_point patienceEnd(Clock::time_point since) const
    {
        return std::max(since, nursery_->lastWord()) + kPatience;
    }

    /// Takes what the nursery told. @return whether there is nothing more to be told
    bool takeReports()
    {
        while (!isOver_) {
            NurseryReport report;
            const ReportState state = receiveReport(report_.number(), report);
            if (state == ReportState::none)
                return false;
            isOver_ = state != ReportState::report || isLast(report.kind);
            mayHaveBegun_ |= state == ReportState::nonsense; // who knows what was to be said
            if (state == ReportState::report)
                take(report);
        }
        return true;
    }

    static bool isLast(NurseryReport::Kind kind)
    {
        return kind != NurseryReport::Kind::begun && kind != NurseryReport::Kind::working;
    }

    void take(const NurseryReport& report)
    {
        nursery_->noteWord();
        isAtWork_ |= report.kind == NurseryReport::Kind::working;
        // A child that is there was not refused, whoever says so.
        isRefused_ |= report.kind == NurseryReport::Kind::refused && !isAtWork_;
        mayHaveBegun_ |= report.kind != NurseryReport::Kind::refused;
        if (report.kind == NurseryReport::Kind::ended)
            exit_ = {report.value, report.bySignal != 0, true};
        if (report.kind == NurseryReport::Kind::leaving)
            exit_ = {report.value, false, true};
    }

    const std::shared_ptr<Nursery> nursery_;
    const FileDescriptor report_;
    ChildExit exit_{.status = 0, .bySignal = false, .isKnown = false};
    bool mayHaveBegun_ = false;
    bool isAtWork_ = false;
    bool isRefused_ = false;
    bool isLost_ = false;
    bool isOver_ = false;
};

/// What a run has open while its child is at work.
struct HandedOver {
    RunChannels channels;
    std::unique_ptr<NurseryChild> child;
};

/// Asks the nursery for a child.
/// @return absent when it cannot be asked, and `reason` says why
std::optional<HandedOver> handedOver(const std::shared_ptr<Nursery>& nursery, const ChildRun& run,
                                     std::string& reason)
{
    const WholeInFork whole; // a child of a fork must not keep the other ends
    auto channels = RunChannels::madeFor(run);
    Channel report = channels ? makeSocketPair(SOCK_SEQPACKET) : Channel();
    int error = errno;
    if (report.isOpen())
        error = nursery->hand({channels->release.theirs.number(), channels->output.theirs.number(),
                               STDERR_FILENO, channels->input.number(), report.theirs.number()});
    if (!report.isOpen() || error != 0) {
        reason = "the waiting program cannot be asked (error " + std::to_string(error) + ")";
        return std::nullopt;
    }
    channels->closeTheirs();
    return HandedOver{std::move(*channels),
                      std::make_unique<NurseryChild>(nursery, std::move(report.ours))};
}

/// Runs a child of the nursery.
/// @return absent when none was begun, and `reason` says why
std::optional<ChildAnswer> ranInNursery(const std::shared_ptr<Nursery>& nursery,
                                        const ChildRun& run, Clock::time_point deadline,
                                        std::string& reason)
{
    auto handed = handedOver(nursery, run, reason);
    if (!handed)
        return std::nullopt;
    handed->child->awaitBeginning(handed->channels.output.ours, deadline);
    if (handed->child->isLost()) {
        CurrentNursery::instance().giveUp(nursery.get());
        return ChildAnswer{.exit = {.status = 0, .bySignal = false, .isKnown = false}};
    }
    ChildAnswer answer = converse(*handed->child, handed->channels.output.ours,
                                  &handed->channels.release.ours, run, deadline);
    if (answer.exit.bySignal || !answer.exit.isKnown)
        CurrentNursery::instance().giveUp(nursery.get());
    const bool isCut = answer.endedByLimit || answer.endedByStop || answer.endedBySize;
    if (handed->child->mayHaveBegun() || isCut)
        return answer;
    reason = "the waiting program began no child";
    return std::nullopt;
}

} // namespace

Result runNurseryChild(const ChildRun& run, const std::function<void(std::string_view)>& onAlone)
{
    if (isStopRequested())
        return ChildAnswer{.endedByStop = true};
    const auto deadline = Clock::now() + run.limit;
    std::string reason;
    const auto nursery = CurrentNursery::instance().forChild(run.program.string(), true);
    if (nursery) {
        if (auto answer = ranInNursery(*nursery, run, deadline, reason))
            return std::move(*answer);
    } else {
        reason = nursery.error().reason;
    }
    onAlone(reason);
    return runChild(run);
}

void beginNursery(const std::filesystem::path& program)
{
    (void)CurrentNursery::instance().forChild(program.string(), false);
}

void endNursery()
{
    CurrentNursery::instance().giveUp(nullptr);
}

} // namespace stowline::platform
