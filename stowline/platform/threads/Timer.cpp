#include "stowline/platform/threads/Timer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <exception>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace stowline::platform {

namespace {

using Due = std::map<std::pair<TimerClock::Moment, TimerClock::Ticket>, std::function<void()>>;

/// The machine's time since its start, suspended or not, with one thread that waits for the next
/// callback. The kernel wakes it (timerfd), also right after a suspension.
class SteadyTimerClock final : public TimerClock, private ForkParticipant {
public:
    SteadyTimerClock() : state_(std::make_unique<State>()) {}

    [[nodiscard]] Moment now() const override
    {
        timespec time = {};
        ::clock_gettime(CLOCK_BOOTTIME, &time);
        return Moment(std::chrono::duration_cast<Duration>(std::chrono::seconds(time.tv_sec) +
                                                           std::chrono::nanoseconds(time.tv_nsec)));
    }

    Ticket callAt(Moment moment, std::function<void()> callback) override
    {
        State& state = *state_;
        const std::lock_guard lock(state.mutex);
        const Ticket ticket = ++state.lastTicket;
        state.due.emplace(std::pair(moment, ticket), std::move(callback));
        start(state);
        setAlarm(state);
        return ticket;
    }

    void callOff(Ticket ticket) override
    {
        const std::lock_guard lock(state_->mutex);
        std::erase_if(state_->due,
                      [ticket](const auto& entry) { return entry.first.second == ticket; });
    }

private:
    struct State {
        std::mutex mutex;
        Due due;
        Ticket lastTicket = 0;
        int alarm = -1; ///< a descriptor
        bool isWatched = false;
    };

    /// Where there is no descriptor or no thread what is due waits; the next call tries again.
    static void start(State& state)
    {
        if (state.alarm < 0)
            state.alarm = ::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC);
        if (state.isWatched || state.alarm < 0)
            return;
        try {
            std::thread([&state, alarm = state.alarm] { keepTime(state, alarm); }).detach();
            state.isWatched = true;
        } catch (const std::exception&) { // NOLINT: see above
        }
    }

    /// For the first of what is due; what has come due already rings at once.
    static void setAlarm(const State& state)
    {
        if (state.due.empty())
            return;
        const auto first =
            std::max<std::int64_t>(1, state.due.begin()->first.first.time_since_epoch().count());
        itimerspec when = {};
        when.it_value.tv_sec = first / 1000;
        when.it_value.tv_nsec = first % 1000 * 1000000;
        (void)::timerfd_settime(state.alarm, TFD_TIMER_ABSTIME, &when, nullptr);
    }

    static void keepTime(State& state, int alarm)
    {
        for (;;) {
            std::uint64_t rings = 0;
            if (::read(alarm, &rings, sizeof rings) < 0 && errno != EINTR)
                return giveUp(state);
            while (const auto callback = takeDue(state)) {
                try {
                    callback();
                } catch (const std::bad_alloc&) { // NOLINT: this time is missed
                }
            }
        }
    }

    /// Somebody closed the descriptor: the next call begins anew.
    static void giveUp(State& state)
    {
        const std::lock_guard lock(state.mutex);
        state.alarm = -1;
        state.isWatched = false;
    }

    /// @return what has come due first; empty, with the alarm set, when nothing has
    static std::function<void()> takeDue(State& state)
    {
        const std::lock_guard lock(state.mutex);
        if (state.due.empty() || state.due.begin()->first.first > shared().now()) {
            setAlarm(state);
            return {};
        }
        auto callback = std::move(state.due.begin()->second);
        state.due.erase(state.due.begin());
        return callback;
    }

    void beforeFork() override { state_->mutex.lock(); }
    void afterForkInParent() override { state_->mutex.unlock(); }
    void afterForkInChild() override
    {
        state_->mutex.unlock();
        auto own = std::make_unique<State>(); // timers of the parent stay with the parent
        own->lastTicket = state_->lastTicket; // and cannot be taken for those of the child
        if (state_->alarm >= 0)
            ::close(state_->alarm);
        keepForever(std::exchange(state_, std::move(own)));
    }

    std::unique_ptr<State> state_;
    const ForkRegistration registration_{*this};
};

} // namespace

TimerClock& TimerClock::shared()
{
    static auto& clock = *new SteadyTimerClock; // never destroyed: its thread may be waiting
    return clock;
}

TimerClock::Moment ManualTimerClock::now() const
{
    const std::lock_guard lock(mutex_);
    return now_;
}

TimerClock::Ticket ManualTimerClock::callAt(Moment moment, std::function<void()> callback)
{
    const std::lock_guard lock(mutex_);
    due_.emplace(std::pair(moment, ++lastTicket_), std::move(callback));
    return lastTicket_;
}

void ManualTimerClock::callOff(Ticket ticket)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(due_, [ticket](const auto& entry) { return entry.first.second == ticket; });
}

void ManualTimerClock::advance(Duration by)
{
    std::unique_lock lock(mutex_);
    const Moment target = now_ + by;
    while (!due_.empty() && due_.begin()->first.first <= target) {
        now_ = std::max(now_, due_.begin()->first.first);
        const auto callback = std::move(due_.begin()->second);
        due_.erase(due_.begin());
        lock.unlock();
        callback();
        lock.lock();
    }
    now_ = target;
}

/// Shared with callbacks that are under way, which find it cancelled when the timer is gone.
class Timer::Core : public std::enable_shared_from_this<Timer::Core> {
public:
    Core(SerialQueue& queue, std::function<void()> handler, TimerClock& clock)
        : queue_(queue), handler_(std::move(handler)), clock_(clock)
    {
    }

    void start(TimerClock::Duration firstDelay, TimerClock::Duration interval)
    {
        const std::lock_guard lock(mutex_);
        callOffLocked();
        interval_ = interval;
        firingMissed_ = false;
        scheduleLocked(clock_.now() + firstDelay);
    }

    void suspend()
    {
        const std::lock_guard lock(mutex_);
        suspended_ = true;
    }

    void resume()
    {
        bool fire = false;
        {
            const std::lock_guard lock(mutex_);
            suspended_ = false;
            fire = std::exchange(firingMissed_, false);
        }
        if (fire)
            fireOnQueue();
    }

    void cancel()
    {
        const std::lock_guard lock(mutex_);
        cancelled_ = true;
        callOffLocked();
    }

private:
    void callOffLocked()
    {
        if (ticket_ != 0)
            clock_.callOff(std::exchange(ticket_, 0));
        ++generation_;
    }

    void scheduleLocked(TimerClock::Moment moment)
    {
        if (cancelled_)
            return;
        ticket_ =
            clock_.callAt(moment, [core = weak_from_this(), generation = generation_, moment] {
                if (const auto alive = core.lock())
                    alive->comeDue(generation, moment);
            });
    }

    void comeDue(std::uint64_t generation, TimerClock::Moment moment)
    {
        {
            const std::lock_guard lock(mutex_);
            if (cancelled_ || generation != generation_)
                return;
            ticket_ = 0;
            if (interval_.count() > 0)
                scheduleLocked(moment + interval_);
            if (suspended_) {
                firingMissed_ = true;
                return;
            }
        }
        fireOnQueue();
    }

    void fireOnQueue()
    {
        queue_.async([core = shared_from_this()] {
            if (!core->cancelled_)
                core->handler_();
        });
    }

    SerialQueue& queue_;
    std::function<void()> handler_;
    TimerClock& clock_;
    ForkSafeMutex mutex_;
    TimerClock::Duration interval_{};
    TimerClock::Ticket ticket_ = 0;
    std::uint64_t generation_ = 0;
    bool suspended_ = false;
    bool firingMissed_ = false;
    std::atomic<bool> cancelled_ = false;
};

Timer::Timer(SerialQueue& queue, std::function<void()> handler, TimerClock& clock)
    : core_(std::make_shared<Core>(queue, std::move(handler), clock))
{
}

Timer::~Timer()
{
    core_->cancel();
}

void Timer::start(TimerClock::Duration firstDelay, TimerClock::Duration interval)
{
    core_->start(firstDelay, interval);
}

void Timer::suspend()
{
    core_->suspend();
}

void Timer::resume()
{
    core_->resume();
}

void Timer::cancel()
{
    core_->cancel();
}

} // namespace stowline::platform
