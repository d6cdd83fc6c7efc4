// What the helper program answers.
#pragma once

#include "stowline/platform/values/Error.h"
#include "stowline/soap/SoapMessage.h"

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// Result of one call. It carries every child of the response element at its top level and, as one
/// map, under `kWSMethodInvocationResult`; the HTTP response as bytes under
/// `kWSHTTPResponseMessage`; and for a fault the entries `kWSFaultCode`, `kWSFaultString` and
/// `kWSFaultDetail`. A child that bears one of these names does not hide them.
using WebServiceCallResult = Dictionary;

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

/// What kind of failure a fault result tells of: `fault` for one of the service's own; for a call
/// that got no SOAP answer the kind in its detail (`connection` without one), or what the status of
/// the HTTP response says. Reads results with the response as bytes and as a message.
[[nodiscard]] FailureKind failureKindOf(const WebServiceCallResult& faultResult);

/// Whether a result is a SOAP fault, or says that there was no SOAP answer.
[[nodiscard]] bool WSMethodResultIsFault(const Dictionary& result);

/// The result with every entry left out that an archive cannot carry (text with a NUL character or
/// with bytes that are not UTF-8, anywhere inside the entry).
[[nodiscard]] WebServiceCallResult archivableResult(const Dictionary& result);

} // namespace stowline
#pragma GCC visibility pop
