// Results as the helper program makes them.
#pragma once

#include "stowline/call/WebServiceCallResult.h"
#include "stowline/soap/SoapMessage.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline {

/// The result for a message from the service, a fault included.
/// @param httpResponse status line, headers and body as received
[[nodiscard]] WebServiceCallResult resultFromMessage(const soap::Message& message,
                                                     std::string_view httpResponse);

/// A fault result for a call that got no SOAP answer.
/// @param httpResponse what was received instead; absent when nothing was
/// @param kind goes into the detail, unless it is `unspecified`
[[nodiscard]] WebServiceCallResult faultResult(std::string_view code, std::string reason,
                                               std::optional<std::string_view> httpResponse = {},
                                               FailureKind kind = FailureKind::unspecified);

/// The result with every entry left out that an archive cannot carry (text with a NUL character or
/// with bytes that are not UTF-8, anywhere inside the entry).
[[nodiscard]] WebServiceCallResult archivableResult(Dictionary result);

} // namespace stowline
