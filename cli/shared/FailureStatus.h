// What each kind of failure means for scripts; for people: stowline/service/FailureSentence.h.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/platform/values/Error.h"

namespace stowline::cli {

/// The exit status for a call that failed: 5 when it may be tried again, 6 when the service refused
/// it, 8 when there is no way to the service, 10 when the settings are to blame, else 1.
[[nodiscard]] ExitStatus statusFor(FailureKind kind);

} // namespace stowline::cli
