// What the helper program answers.
#pragma once

#include "stowline/platform/values/Error.h"

#pragma GCC visibility push(default)
namespace stowline {

/// Result of one call. It carries every child of the response element at its top level and, as one
/// map, under `kWSMethodInvocationResult`; the HTTP response as bytes under
/// `kWSHTTPResponseMessage`; and for a fault the entries `kWSFaultCode`, `kWSFaultString` and
/// `kWSFaultDetail`. A child that bears one of these names does not hide them.
using WebServiceCallResult = Dictionary;

/// What kind of failure a fault result tells of: `fault` for one of the service's own; for a call
/// that got no SOAP answer the kind in its detail (`connection` without one), or what the status of
/// the HTTP response says. Reads results with the response as bytes and as a message.
[[nodiscard]] FailureKind failureKindOf(const WebServiceCallResult& faultResult);

/// What the helper found, in words, where there was no SOAP answer: "status 503", or what is wrong
/// with the answer or the way to it; empty for a fault of the service itself.
[[nodiscard]] std::string failureReasonOf(const WebServiceCallResult& faultResult);

/// Whether a result is a SOAP fault, or says that there was no SOAP answer.
[[nodiscard]] bool WSMethodResultIsFault(const Dictionary& result);

} // namespace stowline
#pragma GCC visibility pop
