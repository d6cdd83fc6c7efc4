#include "stowline/service/TagReading.h"

#include "stowline/platform/text/Text.h"

namespace stowline {

std::optional<std::string> elementText(std::string_view text, std::string_view name)
{
    const std::string folded = platform::asciiLowercase(text);
    const std::string element = platform::asciiLowercase(name);
    const auto opening = folded.find("<" + element + ">");
    const auto closing = folded.find("</" + element + ">");
    if (opening == std::string::npos || closing == std::string::npos)
        return std::nullopt;
    const auto start = opening + element.size() + 2;
    if (closing < start)
        return std::nullopt;
    return std::string(text.substr(start, closing - start));
}

} // namespace stowline
