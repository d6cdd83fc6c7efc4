// Helpers on strings.
#pragma once

#include <string>
#include <string_view>

namespace stowline::StringMethods {

/// Makes a text safe as XML element content: "&", "<" and ">" become entities, in that order.
/// Quotation marks and everything else stay, so the result is not for attribute values. Escaping
/// an escaped text escapes it again. Reentrant.
[[nodiscard]] std::string TW_escapeXMLEntities(std::string_view text);

} // namespace stowline::StringMethods
