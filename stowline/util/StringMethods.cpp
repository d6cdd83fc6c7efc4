#include "stowline/util/StringMethods.h"

namespace stowline::StringMethods {

bool TW_hasSpaces(std::string_view text)
{
    return text.find(' ') != std::string_view::npos;
}

std::string TW_escapeXMLEntities(std::string_view text)
{
    // One pass gives what three replacements, the ampersand's first, would give.
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

} // namespace stowline::StringMethods
