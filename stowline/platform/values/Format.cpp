#include "stowline/platform/values/Format.h"

#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace stowline::platform {

namespace {

constexpr std::size_t kWidestField = 4096;
constexpr int kMostDecimals = 100;

/// "%-08.3lld" taken apart.
struct Specifier {
    bool leftAligned = false;
    bool zeroPadded = false;
    std::size_t width = 0;
    std::optional<int> precision;
    bool is64Bit = false;
    char conversion = 0;    ///< 0 when the text is not a specifier that is known
    std::size_t length = 1; ///< characters from the "%" on
};

std::size_t readNumber(std::string_view text, std::size_t& position, std::size_t limit)
{
    std::size_t number = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position)
        number = std::min(limit, number * 10 + static_cast<std::size_t>(text[position] - '0'));
    return number;
}

/// Reads the specifier that starts at the "%" in front of the text.
Specifier readSpecifier(std::string_view text)
{
    Specifier specifier;
    std::size_t at = 1;
    for (; at < text.size() && (text[at] == '-' || text[at] == '0'); ++at)
        (text[at] == '-' ? specifier.leftAligned : specifier.zeroPadded) = true;
    specifier.width = readNumber(text, at, kWidestField);
    if (at < text.size() && text[at] == '.') {
        ++at;
        specifier.precision = static_cast<int>(readNumber(text, at, kMostDecimals));
    }
    for (; at < text.size() && (text[at] == 'l' || text[at] == 'q'); ++at)
        specifier.is64Bit = true;
    if (at < text.size() &&
        std::string_view("@sdiuxXcf%").find(text[at]) != std::string_view::npos) {
        specifier.conversion = text[at];
        specifier.length = at + 1;
    }
    return specifier;
}

std::string hexadecimal(std::uint64_t number, bool upperCase)
{
    std::array<char, 17> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    std::string text(digits.data(), end);
    if (upperCase)
        std::transform(text.begin(), text.end(), text.begin(),
                       [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

std::string decimals(double number, int precision)
{
    std::array<char, 512> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.*f", precision, number);
    return {text.data(), static_cast<std::size_t>(std::max(length, 0))};
}

std::string converted(const Specifier& specifier, const FormatArgument& argument)
{
    const bool isText = specifier.conversion == '@' || specifier.conversion == 's';
    const std::int64_t bits = isText || specifier.conversion == 'f' ? 0 : argument.integer();
    switch (specifier.conversion) {
    case 'd':
    case 'i':
        return std::to_string(specifier.is64Bit ? bits : static_cast<std::int32_t>(bits));
    case 'u':
        return std::to_string(specifier.is64Bit ? static_cast<std::uint64_t>(bits)
                                                : static_cast<std::uint32_t>(bits));
    case 'x':
    case 'X':
        return hexadecimal(specifier.is64Bit ? static_cast<std::uint64_t>(bits)
                                             : static_cast<std::uint32_t>(bits),
                           specifier.conversion == 'X');
    case 'c': {
        std::string character;
        appendUtf8(character, static_cast<char32_t>(bits));
        return character;
    }
    case 'f':
        return decimals(argument.real(), specifier.precision.value_or(6));
    default:
        return argument.text();
    }
}

void appendPadded(std::string& result, const Specifier& specifier, const std::string& text)
{
    if (specifier.width <= text.size()) {
        result += text;
        return;
    }
    const std::size_t padding = specifier.width - text.size();
    if (specifier.leftAligned) {
        result.append(text).append(padding, ' ');
        return;
    }
    const bool isNumber =
        std::string_view("diuxXf").find(specifier.conversion) != std::string_view::npos;
    if (!specifier.zeroPadded || !isNumber) {
        result.append(padding, ' ').append(text);
        return;
    }
    const std::size_t sign = !text.empty() && text.front() == '-' ? 1 : 0;
    result.append(text, 0, sign).append(padding, '0').append(text, sign);
}

} // namespace

void FormatArgument::appendTo(std::string& result) const
{
    if (const auto* view = std::get_if<std::string_view>(&content_))
        result.append(*view);
    else
        result.append(text());
}

std::string FormatArgument::text() const
{
    if (const auto* view = std::get_if<std::string_view>(&content_))
        return std::string(*view);
    if (const auto* error = std::get_if<const Error*>(&content_))
        return (*error)->text();
    if (const auto* object = std::get_if<const Value*>(&content_))
        return (*object)->text();
    if (const auto* number = std::get_if<std::int64_t>(&content_))
        return std::to_string(*number);
    if (const auto* number = std::get_if<std::uint64_t>(&content_))
        return std::to_string(*number);
    if (const auto* number = std::get_if<double>(&content_))
        return Value(*number).text();
    return "(null)";
}

std::int64_t FormatArgument::integer() const
{
    if (const auto* number = std::get_if<std::int64_t>(&content_))
        return *number;
    if (const auto* number = std::get_if<std::uint64_t>(&content_))
        return static_cast<std::int64_t>(*number);
    if (const auto* number = std::get_if<double>(&content_)) {
        // Doubles beyond the range of the integers would be undefined behaviour in a cast.
        constexpr double limit = 9223372036854775808.0;
        return *number >= -limit && *number < limit ? static_cast<std::int64_t>(*number) : 0;
    }
    if (const auto* object = std::get_if<const Value*>(&content_)) {
        if (const auto* number = (*object)->integer())
            return *number;
        if (const auto* number = (*object)->unsignedInteger())
            return static_cast<std::int64_t>(*number);
        if (const auto* number = (*object)->real())
            return FormatArgument(*number).integer();
    }
    if (std::holds_alternative<std::monostate>(content_))
        return 0;
    return leadingInteger(text());
}

double FormatArgument::real() const
{
    if (const auto* number = std::get_if<double>(&content_))
        return *number;
    if (const auto* number = std::get_if<std::uint64_t>(&content_))
        return static_cast<double>(*number);
    if (const auto* object = std::get_if<const Value*>(&content_); object && (*object)->real())
        return *(*object)->real();
    if (const auto* number = std::get_if<std::int64_t>(&content_))
        return static_cast<double>(*number);
    if (std::holds_alternative<std::monostate>(content_))
        return 0;
    return std::strtod(text().c_str(), nullptr);
}

std::string formatWithArguments(std::string_view format, std::span<const FormatArgument> arguments)
{
    std::string result;
    result.reserve(format.size() + 16 * arguments.size());
    std::size_t used = 0;
    std::size_t position = 0;
    while (position < format.size()) {
        const std::size_t percent = std::min(format.find('%', position), format.size());
        result.append(format, position, percent - position);
        position = percent;
        if (position == format.size())
            break;
        const Specifier specifier = readSpecifier(format.substr(position));
        if (specifier.conversion == '%')
            result.push_back('%');
        else if (specifier.conversion == '@' && specifier.width == 0 && used < arguments.size())
            arguments[used++].appendTo(result); // by far the most frequent
        else if (specifier.conversion != 0 && used < arguments.size())
            appendPadded(result, specifier, converted(specifier, arguments[used++]));
        else
            result.append(format, position, specifier.length);
        position += specifier.length;
    }
    return result;
}

std::size_t formatArgumentCount(std::string_view format)
{
    std::size_t count = 0;
    for (auto at = format.find('%'); at != std::string_view::npos;) {
        const Specifier specifier = readSpecifier(format.substr(at));
        if (specifier.conversion != 0 && specifier.conversion != '%')
            ++count;
        at = format.find('%', at + specifier.length);
    }
    return count;
}

} // namespace stowline::platform
