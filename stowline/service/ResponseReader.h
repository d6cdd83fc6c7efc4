// Reading the response to a plain HTTP request, with its two time-outs.
#pragma once

#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/ReadStream.h"
#include "stowline/platform/values/Error.h"

#include <chrono>
#include <functional>
#include <optional>

namespace stowline {

/// The messages of the failures found here; all are of code 250. Their kinds are invalidSettings,
/// timeOut and connection.
inline constexpr std::string_view kNoStreamMessage = "Unable to create network stream";
inline constexpr std::string_view kTimeoutMessage = "Request timeout";
inline constexpr std::string_view kUnexpectedStatusMessage = "Unexpected stream status";

using MonotonicClock = std::function<std::chrono::steady_clock::time_point()>;

/// Opens a stream and reads the whole body.
///
/// The time-out bounds the opening (name, connection, TLS) as a whole; afterwards it bounds the
/// silence: the time in which no byte is sent or received. A slow but steady exchange may take as
/// long as it takes. Data is read in pieces of at most 65,536 bytes.
/// @param responseHeader cleared first; filled at the end of the body when the stream has one
/// @param error cleared first; code 250 with one of the messages above, or the stream's own
/// @return the body, maybe empty; absent with an error
[[nodiscard]] std::optional<Data>
readResponse(platform::ReadStream& stream, double timeoutSeconds,
             std::optional<platform::HttpResponseMessage>* responseHeader, ErrorSlot error,
             const MonotonicClock& now = std::chrono::steady_clock::now);

/// Sends a request, whose "User-Agent" becomes the client's, and reads the response as above. The
/// description of an error is written to the console log. Proxies are the system's. Blocks.
[[nodiscard]] std::optional<Data>
readResponseForHTTPMessage(platform::HttpRequest request, double timeoutSeconds,
                           std::optional<platform::HttpResponseMessage>* responseHeader,
                           ErrorSlot error);

/// Sets a header field: of the same name in any case the value, with the new spelling, in the place
/// of the earlier one; else at the end.
void setHeader(std::vector<platform::HttpHeader>& headers, const std::string& name,
               const std::string& value);

} // namespace stowline
