// The names in the dictionaries that cross the process boundary. A key's text is its own name.
#pragma once

#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// Keys of a call's result.
inline constexpr std::string_view kWSMethodInvocationResult = "kWSMethodInvocationResult";
inline constexpr std::string_view kWSHTTPResponseMessage = "kWSHTTPResponseMessage";
inline constexpr std::string_view kWSFaultCode = "kWSFaultCode";
inline constexpr std::string_view kWSFaultString = "kWSFaultString";
inline constexpr std::string_view kWSFaultDetail = "kWSFaultDetail";

/// The one protocol there is: SOAP 1.1 with the 2001 XML Schema types.
inline constexpr std::string_view kWSSOAP2001Protocol = "kWSSOAP2001Protocol";

/// Fault codes of results that no service wrote (SOAP 1.1 section 4.4.1 leaves room for them).
inline constexpr std::string_view kFaultCodeNoAnswer = "Client.NoAnswer";
inline constexpr std::string_view kFaultCodeUnreadableAnswer = "Client.UnreadableAnswer";
inline constexpr std::string_view kFaultCodeUnsendable = "Client.Unsendable";

/// Key of the failure's kind in the detail of such a result.
inline constexpr std::string_view kFailureKindKey = "failureKind";

/// Keys of a call's request, and of the method entry inside it.
namespace requestKey {
inline constexpr std::string_view url = "url";
inline constexpr std::string_view methodInfo = "methodInfo";
inline constexpr std::string_view methodName = "methodName";
inline constexpr std::string_view parameterSubstitutions = "soapParamSubstitutions";
inline constexpr std::string_view headerSubstitutions = "soapHeaderSubstitutions";
inline constexpr std::string_view proxy = "proxy";
} // namespace requestKey

namespace methodKey {
inline constexpr std::string_view url = "URL";
inline constexpr std::string_view namespaceUri = "namespace";
inline constexpr std::string_view httpHeaders = "httpHeaders";
inline constexpr std::string_view soapHeaders = "soapHeaders";
inline constexpr std::string_view soapParameters = "soapParams";
inline constexpr std::string_view name = "name";
inline constexpr std::string_view templateText = "template";
inline constexpr std::string_view resultKeyPath = "resultKeyPath";
} // namespace methodKey

} // namespace stowline
#pragma GCC visibility pop
