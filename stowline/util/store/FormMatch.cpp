#include "stowline/util/store/FormMatch.h"

#include <cstddef>

namespace stowline::store {

namespace {

/// Bytes of the character at a place of a text.
std::size_t characterLength(std::string_view text, std::size_t at)
{
    const auto isContinuation = [&](std::size_t place) {
        return place < text.size() && (static_cast<unsigned char>(text[place]) & 0xC0U) == 0x80U;
    };
    std::size_t length = 1;
    constexpr std::size_t longest = 4;
    if (static_cast<unsigned char>(text[at]) >= 0xC0U)
        while (length < longest && isContinuation(at + length))
            ++length;
    return length;
}

} // namespace

bool isOfForm(std::string_view text, std::string_view form)
{
    std::size_t inText = 0;
    std::size_t inForm = 0;
    std::size_t afterStar = std::string_view::npos; // where the form goes on after the last "*"
    std::size_t starTakesTo = 0;                    // how far that has reached in the text
    while (inText < text.size() || inForm < form.size()) {
        if (inForm < form.size() && form[inForm] == '*') {
            afterStar = ++inForm;
            starTakesTo = inText;
            continue;
        }
        if (inForm < form.size() && inText < text.size()) {
            const bool isAny = form[inForm] == '?';
            const bool isEscape = form[inForm] == '\\' && inForm + 1 < form.size();
            if (isAny || form[inForm + (isEscape ? 1 : 0)] == text[inText]) {
                inForm += isEscape ? 2 : 1;
                inText += isAny ? characterLength(text, inText) : 1;
                continue;
            }
        }
        if (afterStar == std::string_view::npos || starTakesTo >= text.size())
            return false;
        starTakesTo += characterLength(text, starTakesTo);
        inText = starTakesTo;
        inForm = afterStar;
    }
    return true;
}

} // namespace stowline::store
