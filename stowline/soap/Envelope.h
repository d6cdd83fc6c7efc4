// The SOAP 1.1 request envelope, document/literal.
#pragma once

#include "stowline/soap/TemplateExpansion.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stowline::soap {

inline constexpr std::string_view kEnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr std::string_view kSchemaInstanceNamespace =
    "http://www.w3.org/2001/XMLSchema-instance";

/// One call before its parameters are filled.
struct Invocation {
    std::string methodName;
    std::string namespaceUri;
    /// Header fragments, already expanded; absent for an envelope without a header.
    std::optional<std::vector<std::string>> headers;
    /// Element name and value template of each parameter, in order.
    std::vector<std::pair<std::string, std::string>> parameters;
    SubstitutionMap substitutions;
};

/// One parameter as an element: the template expanded with escaped values.
///
/// An expansion that begins with "<<" and ends with ">>" still holds a placeholder at its ends and
/// gives an empty element with xsi:nil="true". A carriage return is written as "&#13;", because a
/// reader of XML would turn a bare one into a line feed.
[[nodiscard]] std::string parameterElement(std::string_view name, std::string_view templateText,
                                           const SubstitutionMap& substitutions);

/// The whole envelope (SOAP 1.1 section 4): the method element declares its namespace as the
/// default one, the parameters stand in it unprefixed.
[[nodiscard]] std::string envelopeFor(const Invocation& invocation);

/// Value of the SOAPAction field when the settings name none: the namespace and the method name
/// joined by a single slash, in quotation marks.
[[nodiscard]] std::string defaultSoapAction(std::string_view namespaceUri,
                                            std::string_view methodName);

} // namespace stowline::soap
