// Asking work to stop: a run, a call that waits for the network, a pause between tries.
#pragma once

#include <chrono>
#include <memory>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A request to stop that several threads share; copies are the same request. It is made once and
/// never taken back. Any thread, and request() in a signal handler too.
class StopRequest {
public:
    /// Nothing is asked yet. Where the system has no descriptor left, waits end at their time only.
    StopRequest();

    /// Asks to stop and wakes everybody who waits. Async-signal-safe.
    void request() const noexcept;

    [[nodiscard]] bool isRequested() const noexcept;

    /// Waits until it is requested or the time is over. @return isRequested()
    bool waitFor(std::chrono::steady_clock::duration atMost) const;

    /// A descriptor that becomes readable with the request and stays so, for poll(2); -1 where
    /// there is none. Valid as long as a copy of the request exists; not to be read from.
    [[nodiscard]] int descriptor() const noexcept;

    /// The request that this thread's blocking operations obey: that of its innermost StopScope;
    /// null when there is none.
    [[nodiscard]] static const StopRequest* ofThisThread() noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// While it exists, blocking operations of this thread (calls of the service layer, requests over
/// HTTP, waits for child processes) end as failed soon after the request. Scopes nest.
class StopScope {
public:
    explicit StopScope(const StopRequest& request) noexcept;
    ~StopScope();
    StopScope(const StopScope&) = delete;
    StopScope& operator=(const StopScope&) = delete;

private:
    const StopRequest* const outer_;
};

} // namespace stowline::platform

namespace stowline {
using platform::StopRequest;
using platform::StopScope;
} // namespace stowline
#pragma GCC visibility pop
