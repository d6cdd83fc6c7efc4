// Trying one step of a run until it is done, refused, or not worth trying any more.
#pragma once

#include "stowline/backup/transfer/Pace.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/platform/values/Error.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace stowline::backup {

/// How a step ended that did not come to its end.
enum class StepEnd {
    failed,      ///< for good: a repetition would fail too
    temporary,   ///< tried until the time was used up
    refused,     ///< the service said no, several times or until the time was used up
    interrupted, ///< the run was asked to stop
};

struct StepFailure {
    StepEnd end = StepEnd::failed;
    std::string reason; ///< a sentence with its full stop; empty when refused without a word
};

/// The patience of one run. Any thread.
///
/// Each try obeys the run's StopRequest and ends with the step's time, however slowly its answer
/// drips. When a step has used up its time, the steps after it get one try each until one succeeds
/// again: a service that is down does not cost the whole time for every file.
class Tries {
public:
    /// @param budgetPerStep how long to try one thing again
    /// @param now what tells when the budget is used up
    Tries(Duration budgetPerStep, StopRequest stop,
          std::function<Moment()> now = std::chrono::steady_clock::now);
    ~Tries();
    Tries(const Tries&) = delete;
    Tries& operator=(const Tries&) = delete;

    /// One try. @return whether the step is done; else the error says why not, if anything
    using Attempt = std::function<bool(std::optional<Error>& error)>;

    /// @param refusalsTaken how often the service may say no before it is believed; when the time
    ///        ends earlier, its last no is
    /// @return absent when the step is done
    [[nodiscard]] std::optional<StepFailure> repeat(const Attempt& attempt, int refusalsTaken = 3);

    /// One try of what can be done without; ends after half a minute at the latest.
    bool once(const Attempt& attempt);

    [[nodiscard]] const StopRequest& stop() const { return stop_; }

private:
    [[nodiscard]] bool tryOnce(const Attempt& attempt, std::optional<Error>& error,
                               Moment deadline);
    void watch();

    const Duration budget_;
    const StopRequest stop_;
    const std::function<Moment()> now_;
    std::atomic<bool> isServiceDown_ = false;
    std::mutex mutex_; ///< of what follows
    std::condition_variable ended_;
    bool isOver_ = false;
    std::multimap<Moment, StopRequest> running_; ///< by when each try must end
    std::thread watcher_;
};

} // namespace stowline::backup
