// Timers that run a task on a serial queue.
#pragma once

#include "stowline/platform/threads/SerialQueue.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Where timers take the time from. The shared one counts the time since the machine's start, also
/// while it was suspended; setting the wall clock neither fires nor delays a timer. Where it has no
/// thread to wait with, a timer waits until another one is started. In the child of a fork() no
/// timer is set. Tests use a clock they move by hand.
class TimerClock {
public:
    using Duration = std::chrono::milliseconds;
    using Moment = std::chrono::time_point<std::chrono::steady_clock, Duration>;
    using Ticket = std::uint64_t;

    virtual ~TimerClock() = default;
    [[nodiscard]] virtual Moment now() const = 0;

    /// Runs the callback once when the moment has come, on a thread of the clock; the callback must
    /// be short. @return a ticket to call it off with.
    virtual Ticket callAt(Moment moment, std::function<void()> callback) = 0;

    /// Calls a callback off. It may still be about to run on another thread.
    virtual void callOff(Ticket ticket) = 0;

    /// The clock of the process. Never destroyed.
    static TimerClock& shared();
};

/// A clock that stands still until it is moved. Any thread.
class ManualTimerClock final : public TimerClock {
public:
    [[nodiscard]] Moment now() const override;
    Ticket callAt(Moment moment, std::function<void()> callback) override;
    void callOff(Ticket ticket) override;

    /// Moves the time on and runs what has come due, in order of time, on the calling thread.
    void advance(Duration by);

private:
    mutable ForkSafeMutex mutex_;
    Moment now_{};
    Ticket lastTicket_ = 0;
    std::map<std::pair<Moment, Ticket>, std::function<void()>> due_;
};

/// Runs a handler on a queue, once or again and again. It waits for
/// start().
///
/// Any thread. After cancel() has returned on the timer's own queue, or after cancel() and one
/// round through that queue, the handler does not run any more. The queue must outlive the timer.
class Timer {
public:
    /// @param queue the handler runs there
    explicit Timer(SerialQueue& queue, std::function<void()> handler,
                   TimerClock& clock = TimerClock::shared());
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Fires after the first delay and then, when the interval is above zero, each interval later.
    /// Replaces what was set before.
    void start(TimerClock::Duration firstDelay, TimerClock::Duration interval = {});

    /// Holds the timer back; a firing that comes due meanwhile happens once on resume().
    void suspend();
    void resume();

    /// Ends the timer for good.
    void cancel();

private:
    class Core;
    std::shared_ptr<Core> core_;
};

} // namespace stowline::platform
#pragma GCC visibility pop
