#include "stowline/service/SettingsRules.h"

#include "stowline/platform/text/Numbers.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

/// Whether a text is a number and nothing else.
bool isNumberText(const Value& value)
{
    const std::string* text = value.string();
    return text && platform::realNumber(*text);
}

} // namespace

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
    case FieldKind::boolean:
        return value.boolean() != nullptr;
    }
    return false;
}

std::string_view nameOf(FieldKind kind)
{
    constexpr std::array<std::string_view, 5> names{"a string", "a number", "a list",
                                                    "a dictionary", "true or false"};
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
