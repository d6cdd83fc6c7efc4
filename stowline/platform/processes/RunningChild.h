// A child process that has been started, whoever is its parent.
#pragma once

#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/processes/DescriptorWait.h"

#include <chrono>

namespace stowline::platform {

/// For one thread. A child whose end nobody awaited is ended with this.
class RunningChild {
public:
    RunningChild() = default;
    RunningChild(const RunningChild&) = delete;
    RunningChild& operator=(const RunningChild&) = delete;
    virtual ~RunningChild() = default;

    /// Ends it by SIGKILL; does not wait.
    virtual void end() const = 0;

    /// Waits until it has ended, the deadline or a request to stop.
    [[nodiscard]] virtual WaitEnd awaitEnd(std::chrono::steady_clock::time_point deadline) = 0;

    /// Waits until it has ended, and tells how. Once.
    [[nodiscard]] virtual ChildExit reap() = 0;
};

} // namespace stowline::platform
