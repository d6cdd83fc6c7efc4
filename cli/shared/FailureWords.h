// What each kind of failure means for people and for scripts.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/values/Error.h"

#include <string>

namespace stowline::cli {

/// The exit status for a call that failed: 5 when it may be tried again, 6 when the service refused
/// it, 8 when there is no way to the service, 10 when the settings are to blame, else 1.
[[nodiscard]] ExitStatus statusFor(FailureKind kind);

/// What happened and what to do about it, in sentences.
/// @param host whom the call was for ("backup.example.com", or "the service")
[[nodiscard]] std::string
wordsFor(FailureKind kind, const std::string& host,
         platform::CertificateFault certificate = platform::CertificateFault::none);

} // namespace stowline::cli
