// What may stand in an entry of the settings file.
#pragma once

#include "stowline/call/WireNames.h"
#include "stowline/platform/values/Value.h"
#include "stowline/service/WebRequestKeys.h"

#include <array>
#include <string_view>

namespace stowline {

enum class FieldKind { string, number, list, dictionary, boolean };

/// A key that an entry may have.
struct KeyRule {
    std::string_view key;
    FieldKind kind;
    bool required;
};

inline constexpr std::array kWebMethodKeys{
    KeyRule{methodKey::url, FieldKind::string, true},
    KeyRule{methodKey::namespaceUri, FieldKind::string, true},
    KeyRule{methodKey::httpHeaders, FieldKind::dictionary, false},
    KeyRule{methodKey::soapHeaders, FieldKind::list, false},
    KeyRule{methodKey::soapParameters, FieldKind::list, false},
    KeyRule{methodKey::resultKeyPath, FieldKind::string, false},
};
inline constexpr std::array kWebRequestKeys{
    KeyRule{webRequestKey::url, FieldKind::string, true},
    KeyRule{webRequestKey::httpMethod, FieldKind::string, false},
    KeyRule{webRequestKey::httpVersion, FieldKind::string, false},
    KeyRule{webRequestKey::requestHeaders, FieldKind::list, false},
    KeyRule{webRequestKey::requestTimeout, FieldKind::number, false},
    KeyRule{webRequestKey::responseHeaderNames, FieldKind::list, false},
    KeyRule{webRequestKey::plainContentLength, FieldKind::boolean, false},
    KeyRule{webRequestKey::requestIdHeader, FieldKind::string, false},
};
inline constexpr std::array kTemplateKeys{
    KeyRule{templateKey::url, FieldKind::string, true},
    KeyRule{templateKey::body, FieldKind::string, true},
    KeyRule{templateKey::httpHeaders, FieldKind::dictionary, false},
};
/// Of the items of a list of parameters or headers, and of SOAP headers, which have no names.
inline constexpr std::array kNamedTemplateKeys{
    KeyRule{methodKey::name, FieldKind::string, true},
    KeyRule{methodKey::templateText, FieldKind::string, true},
};
inline constexpr std::array kBareTemplateKeys{
    KeyRule{methodKey::templateText, FieldKind::string, true},
};

/// Whether a value is of a kind; a text that is a number and nothing else is one too.
[[nodiscard]] bool isOfKind(const Value& value, FieldKind kind);
/// "a string", "a number" and so on.
[[nodiscard]] std::string_view nameOf(FieldKind kind);

/// A name without a colon as XML knows it, with ASCII's part of the rule.
[[nodiscard]] bool isElementName(std::string_view name);

} // namespace stowline
