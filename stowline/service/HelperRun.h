// Running the helper program for one call.
#pragma once

#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/platform/values/Error.h"

#include <expected>
#include <optional>

namespace stowline {

/// Runs WebServiceCaller with a request, and reads its answer.
///
/// Where the system does not tell how the helper ended, since the host program ignores or collects
/// the ends of its children itself, an answer that is whole counts, and nothing else does: the
/// helper writes one only when the call is done.
/// @return the result; or no error, when it ran and gave none; or the error, when it could not be
///         started, answered with more than is taken, or the thread was asked to stop
[[nodiscard]] std::expected<Dictionary, std::optional<Error>>
resultOfHelper(const WebServiceCallRequest& request);

} // namespace stowline
