// What became of calls whose results and error slots do not tell.
#pragma once

#include "stowline/platform/values/Error.h"

#include <optional>

#pragma GCC visibility push(default)
namespace stowline {

/// Learns why operations of WebServiceBroker fail on this thread, while it exists: also the
/// failures that an operation keeps from its error slot (a helper program that does not answer, a
/// summary that is not taken), and of those that have no slot.
///
///     const FailureWatch watch;
///     WebServiceBroker::sendBackupReportForUserName(…);
///     if (const auto& failure = watch.failure()) …
///
/// For the thread that made it. Watches nest; each learns everything.
class FailureWatch {
public:
    FailureWatch() noexcept;
    ~FailureWatch();
    FailureWatch(const FailureWatch&) = delete;
    FailureWatch& operator=(const FailureWatch&) = delete;

    /// Why the operation that ended last failed, and of several failures the first; absent when it
    /// did what it was asked to do, or none has run. A sentence for people where the error slot has
    /// none; the same error where it has one.
    [[nodiscard]] const std::optional<Error>& failure() const noexcept { return failure_; }

    /// Its kind; `unspecified` when there was no failure.
    [[nodiscard]] FailureKind kind() const noexcept
    {
        return failure_ ? failure_->kind : FailureKind::unspecified;
    }

private:
    friend class Operation;
    FailureWatch* const outer_;
    std::optional<Error> failure_;
};

} // namespace stowline
#pragma GCC visibility pop
