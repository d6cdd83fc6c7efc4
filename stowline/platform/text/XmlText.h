// Text that stands in XML.
#pragma once

#include <string>
#include <string_view>

namespace stowline::platform {

/// The text as the content of an XML element: "&", "<" and ">" become entities. Quotation marks and
/// everything else stay, so the result is not for the value of an attribute, and a reader takes a
/// carriage return in it for a line feed (XML 1.0 section 2.11). Reentrant.
[[nodiscard]] std::string escapedForXml(std::string_view text);

} // namespace stowline::platform
