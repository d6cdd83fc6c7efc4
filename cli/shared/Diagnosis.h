// Looking for what stands between this machine and the service, one thing at a time.
#pragma once

#include "stowline/platform/values/Error.h"

#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// What was looked at, whether it is well, what was found and what to do.
struct Finding {
    std::string subject; ///< "helper", "network", "tls", "http", "address"
    bool isWell = true;
    std::string text;
    FailureKind kind = FailureKind::unspecified; ///< when it is not well
};

/// Whether the helper program can be run. Runs it.
[[nodiscard]] Finding lookAtHelper();

/// Whether there is a way to the reachability host of the settings.
[[nodiscard]] Finding lookAtNetwork();

/// The addresses of all web methods, web requests and templates of the settings, as calls use them,
/// one of each origin. Those whose host is only known after a sign-in ("http://%@/…") are missing.
[[nodiscard]] std::vector<std::string> serviceAddresses();

/// Whether an address answers, as a call would find it: any answer but a proxy's is well, for it
/// shows that name, connection and certificate are. Blocks for at most ten seconds. The credentials
/// of an address are not in the text.
[[nodiscard]] Finding lookAtAddress(const std::string& address);

/// The first of these that is not well; absent when all are.
[[nodiscard]] std::optional<Finding> firstTrouble();

} // namespace stowline::cli
