// The work of WebServiceCaller: one SOAP call from argument to archive.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::tool {

/// Exit statuses, as a parent sees them in eight bits: 0, and 255 down to 250.
enum class CallStatus : int {
    done = 0,
    wrongArgumentCount = -1,
    argumentUndecodable = -2,
    requestNoDictionary = -3,
    noResult = -4, ///< the call did not complete within the limit
    archiveEmpty = -5,
    outputIncomplete = -6,
};

struct CallWorkerOptions {
    /// The call is given up at the first slice that begins this long after its start, on the
    /// steady clock; so it may run up to one slice longer.
    std::chrono::milliseconds limit{60'000};
    std::chrono::milliseconds slice{125};
    /// Writes the archive to the parent with one write; false when not every byte was taken.
    std::function<bool(std::string_view)> writeOutput;
    /// Told the name of each stage as it ends, for measurements; may be empty.
    std::function<void(std::string_view)> onStage;
};

/// Performs one call.
///
/// Writes nothing to standard error and, but for outputIncomplete, either the whole archive or
/// nothing. A call that cannot connect, or gets a fault or an answer that is not SOAP, is done: its
/// result says so. Only silence until the limit gives noResult.
/// @param words the program name and one argument: the Base64 text of an archived request, or "@"
///        and the path of a file that holds it
[[nodiscard]] CallStatus runCallWorker(const std::vector<std::string>& words,
                                       const CallWorkerOptions& options);

/// Goes through a call of made-up words without connecting to anything, in a process that is forked
/// for calls later: what a call looks up and reads for the first time (functions of libraries, the
/// product's version) is there for each of them then. Learns no secret.
void rehearseCall();

} // namespace stowline::tool
