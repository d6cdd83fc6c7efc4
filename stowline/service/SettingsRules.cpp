#include "stowline/service/SettingsRules.h"

#include "stowline/call/WireNames.h"
#include "stowline/service/WebRequestKeys.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace stowline {

namespace {

constexpr std::array kWebMethodKeys{
    KeyRule{methodKey::url, FieldKind::string, true},
    KeyRule{methodKey::namespaceUri, FieldKind::string, true},
    KeyRule{methodKey::httpHeaders, FieldKind::dictionary, false},
    KeyRule{methodKey::soapHeaders, FieldKind::list, false},
    KeyRule{methodKey::soapParameters, FieldKind::list, false},
    KeyRule{methodKey::resultKeyPath, FieldKind::string, false},
};
constexpr std::array kWebRequestKeys{
    KeyRule{webRequestKey::url, FieldKind::string, true},
    KeyRule{webRequestKey::httpMethod, FieldKind::string, false},
    KeyRule{webRequestKey::httpVersion, FieldKind::string, false},
    KeyRule{webRequestKey::requestHeaders, FieldKind::list, false},
    KeyRule{webRequestKey::requestTimeout, FieldKind::number, false},
    KeyRule{webRequestKey::responseHeaderNames, FieldKind::list, false},
};
constexpr std::array kTemplateKeys{
    KeyRule{"URL", FieldKind::string, true},
    KeyRule{"body", FieldKind::string, true},
    KeyRule{"httpHeaders", FieldKind::dictionary, false},
};
constexpr std::array kNamedTemplateKeys{
    KeyRule{methodKey::name, FieldKind::string, true},
    KeyRule{methodKey::templateText, FieldKind::string, true},
};
constexpr std::array kBareTemplateKeys{
    KeyRule{methodKey::templateText, FieldKind::string, true},
};

/// Whether a text is a number and nothing else.
bool isNumberText(const Value& value)
{
    const std::string* text = value.string();
    double number = 0;
    return text &&
           std::from_chars(text->data(), text->data() + text->size(), number).ptr ==
               text->data() + text->size() &&
           !text->empty();
}

} // namespace

std::span<const KeyRule> webMethodKeys()
{
    return kWebMethodKeys;
}

std::span<const KeyRule> webRequestKeys()
{
    return kWebRequestKeys;
}

std::span<const KeyRule> templateKeys()
{
    return kTemplateKeys;
}

std::span<const KeyRule> namedTemplateKeys()
{
    return kNamedTemplateKeys;
}

std::span<const KeyRule> bareTemplateKeys()
{
    return kBareTemplateKeys;
}

bool isOfKind(const Value& value, FieldKind kind)
{
    switch (kind) {
    case FieldKind::string:
        return value.string() != nullptr;
    case FieldKind::number:
        return value.kindName() == "number" || isNumberText(value);
    case FieldKind::list:
        return value.array() != nullptr;
    case FieldKind::dictionary:
        return value.dictionary() != nullptr;
    }
    return false;
}

std::string_view nameOf(FieldKind kind)
{
    constexpr std::array<std::string_view, 4> names{"a string", "a number", "a list",
                                                    "a dictionary"};
    return names.at(static_cast<std::size_t>(kind));
}

bool isElementName(std::string_view name)
{
    const auto starts = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               static_cast<unsigned char>(c) >= 0x80;
    };
    const auto goesOn = [&](char c) {
        return starts(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    };
    return !name.empty() && starts(name.front()) && std::all_of(name.begin(), name.end(), goesOn);
}

} // namespace stowline
