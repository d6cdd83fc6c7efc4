// What may stand in an entry of the settings file.
#pragma once

#include "stowline/platform/Value.h"

#include <span>
#include <string_view>

namespace stowline {

enum class FieldKind { string, number, list, dictionary };

/// A key that an entry may have.
struct KeyRule {
    std::string_view key;
    FieldKind kind;
    bool required;
};

[[nodiscard]] std::span<const KeyRule> webMethodKeys();
[[nodiscard]] std::span<const KeyRule> webRequestKeys();
[[nodiscard]] std::span<const KeyRule> templateKeys();
/// Of the items of a list of parameters or headers, and of SOAP headers, which have no names.
[[nodiscard]] std::span<const KeyRule> namedTemplateKeys();
[[nodiscard]] std::span<const KeyRule> bareTemplateKeys();

/// Whether a value is of a kind; a text that is a number and nothing else is one too.
[[nodiscard]] bool isOfKind(const Value& value, FieldKind kind);
/// "a string", "a number" and so on.
[[nodiscard]] std::string_view nameOf(FieldKind kind);

/// A name without a colon as XML knows it, with ASCII's part of the rule.
[[nodiscard]] bool isElementName(std::string_view name);

} // namespace stowline
