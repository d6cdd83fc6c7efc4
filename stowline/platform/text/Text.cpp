#include "stowline/platform/text/Text.h"

#include "stowline/platform/text/Utf8.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <utility>

namespace stowline::platform {

namespace {

char asciiLower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
}

bool beginsCharacter(char byte)
{
    return !continuesUtf8Character(byte);
}

} // namespace

std::size_t validUtf8PrefixLength(std::string_view text)
{
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t length = firstUtf8Character(text.substr(position)).length;
        if (length == 0)
            break;
        position += length;
    }
    return position;
}

bool isValidUtf8(std::string_view text)
{
    return validUtf8PrefixLength(text) == text.size();
}

void appendUtf8(std::string& text, char32_t codePoint)
{
    std::array<char, U8_MAX_LENGTH> bytes{};
    std::size_t length = 0;
    bool isImpossible = false;
    U8_APPEND(bytes.data(), length, bytes.size(), codePoint, isImpossible);
    if (!isImpossible)
        text.append(bytes.data(), length);
}

std::optional<std::string> characterXmlCannotCarry(std::string_view text)
{
    std::size_t position = 0;
    while (position < text.size()) {
        const auto [codePoint, length] = firstUtf8Character(text.substr(position));
        if (length == 0)
            return "bytes that are not UTF-8";
        const bool control =
            codePoint < 0x20 && codePoint != '\t' && codePoint != '\n' && codePoint != '\r';
        if (control || codePoint == 0xFFFE || codePoint == 0xFFFF) {
            std::array<char, 48> name{};
            std::snprintf(name.data(), name.size(), "the control character U+%04X",
                          static_cast<unsigned>(codePoint));
            return name.data();
        }
        position += length;
    }
    return std::nullopt;
}

std::size_t characterCount(std::string_view text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
}

std::size_t offsetOfCharacter(std::string_view text, std::size_t index)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (beginsCharacter(text[at]) && index-- == 0)
            return at;
    }
    return text.size();
}

namespace {

/// First and last of each run, in order.
constexpr std::array<std::pair<char32_t, char32_t>, 12> kInvisible{{{0x00, 0x08},
                                                                    {0x0B, 0x1F},
                                                                    {0x7F, 0x9F},
                                                                    {0x061C, 0x061C},
                                                                    {0x180E, 0x180E},
                                                                    {0x200B, 0x200B},
                                                                    {0x200E, 0x200F},
                                                                    {0x2028, 0x202E},
                                                                    {0x2060, 0x206F},
                                                                    {0xFEFF, 0xFEFF},
                                                                    {0xFFF9, 0xFFFB},
                                                                    {0xE0000, 0xE007F}}};

bool isInvisible(char32_t character)
{
    return std::ranges::any_of(kInvisible, [character](const auto& run) {
        return run.first <= character && character <= run.second;
    });
}

} // namespace

std::string withoutControls(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const auto [character, length] = firstUtf8Character(text);
        const std::size_t taken = std::max<std::size_t>(length, 1); // a byte that is not UTF-8
        if (length != 0 && isInvisible(character))
            shown.push_back('?');
        else
            shown += text.substr(0, taken);
        text.remove_prefix(taken);
    }
    return shown;
}

std::string asciiLowercase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), asciiLower);
    return lower;
}

bool equalsIgnoringAsciiCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return asciiLower(a) == asciiLower(b); });
}

std::int64_t leadingInteger(std::string_view text)
{
    std::size_t position = text.find_first_not_of(" \t\n\r\f\v");
    if (position == std::string_view::npos)
        return 0;
    const bool negative = text[position] == '-';
    if (negative || text[position] == '+')
        ++position;
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t number = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        const int digit = text[position] - '0';
        // Counted downwards when negative: the lowest number has no positive counterpart.
        if (__builtin_mul_overflow(number, 10, &number) ||
            __builtin_add_overflow(number, negative ? -digit : digit, &number))
            return negative ? lowest : highest;
    }
    return number;
}

std::string replacingOccurrences(std::string_view text, std::string_view what,
                                 std::string_view with)
{
    std::string result;
    std::size_t copied = 0;
    if (!what.empty()) {
        for (auto at = text.find(what); at != std::string_view::npos;
             at = text.find(what, copied)) {
            result.append(text, copied, at - copied).append(with);
            copied = at + what.size();
        }
    }
    return result.append(text, copied);
}

std::string countText(std::uint64_t count, std::string_view one, std::string_view many)
{
    std::string text = std::to_string(count);
    for (std::size_t at = text.size(); at > 3; at -= 3)
        text.insert(at - 3, ",");
    return text.append(" ").append(count == 1 ? one : many);
}

std::string hexadecimalText(const Data& bytes)
{
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes)
        text.append({digits[byte >> 4], digits[byte & 0x0FU]});
    return text;
}

Data dataFromText(std::string_view text)
{
    return {text.begin(), text.end()};
}

std::string textFromData(const Data& bytes)
{
    return std::string(viewOfData(bytes));
}

std::string withoutTrailingBlanks(std::string text)
{
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

std::optional<std::string> assignedValue(std::string_view assignments, std::string_view name)
{
    const std::string wanted = "\n" + std::string(name) + "=";
    const std::string text = "\n" + std::string(assignments);
    const auto found = text.find(wanted);
    if (found == std::string::npos)
        return std::nullopt;
    const auto begin = found + wanted.size();
    std::string value = withoutTrailingBlanks(text.substr(begin, text.find('\n', begin) - begin));
    if (value.size() >= 2 && value.front() == value.back() && (value[0] == '"' || value[0] == '\''))
        value = value.substr(1, value.size() - 2);
    return value.empty() ? std::nullopt : std::optional(value);
}

std::string escapedForHtml(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

} // namespace stowline::platform
