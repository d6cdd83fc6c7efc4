// Running the helper program for one call.
#pragma once

#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/platform/values/Error.h"
#include "stowline/platform/values/Outcome.h"
#include "stowline/service/Operation.h"

namespace stowline {

/// Why there is no result.
struct HelperFailure {
    Error error;
    bool isTold = true; ///< false: it ran and gave no result, which callers learn without an error
};

/// Runs WebServiceCaller with a request, and reads its answer. It is forked by a nursery where one
/// can be used (platform/processes/Nursery.h), else started for this call; the answer is the same.
///
/// Where the system does not tell how the helper ended, since the host program ignores or collects
/// the ends of its children itself, an answer that is whole counts, and nothing else does: the
/// helper writes one only when the call is done.
/// @param operation that the log names where it is told why the nursery was of no use
/// @return the result; or why there is none: it could not be started, gave no answer, answered with
///         more than is taken, or the thread was asked to stop
[[nodiscard]] platform::Outcome<Dictionary, HelperFailure>
resultOfHelper(const Operation& operation, const WebServiceCallRequest& request);

/// See WebServiceBroker::useNursery() and beginNursery().
void useNurseryForHelpers(bool isUsed);
void beginNurseryForHelpers();

} // namespace stowline
