// What a kept connection was made of, and what must not have changed for it to be used again.
#pragma once

#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/TrustRoots.h"

#include <string>

namespace stowline::platform {

/// A text that differs when a request's connection would be made by another proxy (the request's,
/// or what the environment says) or, over TLS, with other trust roots: other files, or the same
/// ones changed since.
[[nodiscard]] std::string connectionConditions(const HttpRequest& request, const TrustRoots& roots);

} // namespace stowline::platform
