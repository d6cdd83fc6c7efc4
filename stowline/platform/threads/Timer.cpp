#include "stowline/platform/threads/Timer.h"

#include <atomic>
#include <condition_variable>
#include <thread>
#include <utility>

namespace stowline::platform {

namespace {

/// The machine's steady clock with one thread that waits for the next callback.
class SteadyTimerClock final : public TimerClock, private ForkParticipant {
public:
    SteadyTimerClock() : state_(std::make_unique<State>()) {}

    [[nodiscard]] Moment now() const override
    {
        return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
    }

    Ticket callAt(Moment moment, std::function<void()> callback) override
    {
        State& state = *state_;
        Ticket ticket = 0;
        {
            const std::lock_guard lock(state.mutex);
            ticket = ++state.lastTicket;
            state.due.emplace(std::pair(moment, ticket), std::move(callback));
            if (!state.started) {
                state.started = true;
                std::thread([&state] { keepTime(state); }).detach();
            }
        }
        state.changed.notify_one();
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
        std::condition_variable changed;
        std::map<std::pair<Moment, Ticket>, std::function<void()>> due;
        Ticket lastTicket = 0;
        bool started = false;
    };

    static void keepTime(State& state)
    {
        std::unique_lock lock(state.mutex);
        for (;;) {
            if (state.due.empty()) {
                state.changed.wait(lock);
                continue;
            }
            const Moment next = state.due.begin()->first.first;
            if (std::chrono::steady_clock::now() < next) {
                state.changed.wait_until(lock, next);
                continue;
            }
            const auto callback = std::move(state.due.begin()->second);
            state.due.erase(state.due.begin());
            lock.unlock();
            try {
                callback();
            } catch (const std::bad_alloc&) { // NOLINT: this time is missed
            }
            lock.lock();
        }
    }

    void beforeFork() override { state_->mutex.lock(); }
    void afterForkInParent() override { state_->mutex.unlock(); }
    void afterForkInChild() override
    {
        state_->mutex.unlock();
        keepForever(std::move(state_)); // timers of the parent stay with the parent
        state_ = std::make_unique<State>();
    }

    std::unique_ptr<State> state_;
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
    std::mutex mutex_;
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
