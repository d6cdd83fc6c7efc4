// Picking single elements out of an answer that nobody parses.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace stowline {

/// What stands between "<name>" and "</name>", each where it first occurs in the text, upper and
/// lower case of ASCII letters being the same. Taken as it stands: neither unescaped nor trimmed.
/// Linear time. Reentrant.
/// @return absent when either tag is missing, or the closing one comes first
[[nodiscard]] std::optional<std::string> elementText(std::string_view text, std::string_view name);

} // namespace stowline
