// Ctrl-C and requests to end, for commands that have something to put right first.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/platform/threads/StopRequest.h"

#include <chrono>
#include <optional>
#include <string>

namespace stowline::cli {

/// Ends the program with a sentence when it is asked to end (SIGINT, SIGTERM), unless an
/// Interruptible exists: then the first request is noted, and the second ends it at once. Called
/// once, after the signals are held (platform::holdTerminationSignals).
/// @return false where no thread can be had for it: the signals stay held
[[nodiscard]] bool watchForTermination();

/// While one exists, the work under way asks now and then whether it should stop. One at a time.
class Interruptible {
public:
    Interruptible();
    ~Interruptible();
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

    /// The status to end with when the program has been asked to end; absent until then. Any
    /// thread.
    [[nodiscard]] static std::optional<ExitStatus> request();

    /// The same as a request that blocking work obeys.
    [[nodiscard]] static const StopRequest& stopRequest();

    /// What to say instead of "Interrupted." when a second request ends the program at once.
    static void sayWhenLeft(std::string sentence);

    /// Waits until the program is asked to end or the time is over. @return as request()
    static std::optional<ExitStatus> awaitRequest(std::chrono::steady_clock::duration atMost);
};

} // namespace stowline::cli
