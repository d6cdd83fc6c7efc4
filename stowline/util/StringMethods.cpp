#include "stowline/util/StringMethods.h"

#include "stowline/platform/text/XmlText.h"

namespace stowline::StringMethods {

bool TW_hasSpaces(std::string_view text)
{
    return text.find(' ') != std::string_view::npos;
}

std::string TW_escapeXMLEntities(std::string_view text)
{
    // One pass gives what three replacements, the ampersand's first, would give.
    return platform::escapedForXml(text);
}

} // namespace stowline::StringMethods
