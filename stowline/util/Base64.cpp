#include "stowline/util/Base64.h"

#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <array>

namespace stowline::Base64 {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t kSkipped = 64;
constexpr std::uint8_t kEnd = 65;

/// What each byte means to the decoder: a value, to be skipped, or the end.
constexpr std::array<std::uint8_t, 256> kMeaning = [] {
    std::array<std::uint8_t, 256> meaning{};
    meaning.fill(kSkipped);
    for (std::size_t value = 0; value < kAlphabet.size(); ++value)
        meaning.at(static_cast<unsigned char>(kAlphabet[value])) = static_cast<std::uint8_t>(value);
    meaning.at('=') = kEnd;
    return meaning;
}();

/// Up to four 6-bit values. Emptying the group keeps them, which the end of a text can show.
struct Group {
    std::array<std::uint8_t, 4> values{};
    std::size_t count = 0;

    [[nodiscard]] std::array<std::uint8_t, 3> bytes() const
    {
        const auto [a, b, c, d] = values;
        return {static_cast<std::uint8_t>(a << 2 | b >> 4),
                static_cast<std::uint8_t>((b & 0x0FU) << 4 | c >> 2),
                static_cast<std::uint8_t>((c & 0x03U) << 6 | d)};
    }
};

void finish(const Group& group, Data& decoded)
{
    static constexpr std::array<std::size_t, 4> bytesForCount{0, 1, 1, 2};
    const auto bytes = group.bytes();
    decoded.insert(decoded.end(), bytes.begin(),
                   bytes.begin() + static_cast<std::ptrdiff_t>(bytesForCount.at(group.count)));
}

/// One to three bytes as four characters; missing bytes count as zero.
std::array<char, 4> encodedGroup(std::string_view bytes)
{
    const auto byte = [bytes](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
    };
    const unsigned bits = byte(0) << 16 | byte(1) << 8 | byte(2);
    return {kAlphabet[bits >> 18], kAlphabet[bits >> 12 & 0x3FU],
            bytes.size() > 1 ? kAlphabet[bits >> 6 & 0x3FU] : '=',
            bytes.size() > 2 ? kAlphabet[bits & 0x3FU] : '='};
}

} // namespace

Data initWithBase64EncodedString(std::optional<std::string_view> text)
{
    const auto isOutsideAscii = [](char c) { return static_cast<unsigned char>(c) > 0x7f; };
    if (!text || std::any_of(text->begin(), text->end(), isOutsideAscii))
        return {};
    Data decoded;
    decoded.reserve(text->size() / 4 * 3 + 3);
    Group group;
    for (const char character : *text) {
        const std::uint8_t meaning = kMeaning.at(static_cast<unsigned char>(character));
        if (meaning == kEnd) {
            finish(group, decoded);
            break;
        }
        if (meaning == kSkipped)
            continue;
        group.values.at(group.count++) = meaning;
        if (group.count == group.values.size()) {
            const auto bytes = group.bytes();
            decoded.insert(decoded.end(), bytes.begin(), bytes.end());
            group.count = 0;
        }
    }
    return decoded;
}

Data dataWithBase64EncodedString(std::optional<std::string_view> text)
{
    return initWithBase64EncodedString(text);
}

std::string base64EncodingWithLineLength(std::string_view bytes, std::uint32_t lineLength)
{
    std::string text;
    text.reserve(bytes.size() / 3 * 4 + 4);
    std::int16_t column = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const auto group = encodedGroup(bytes.substr(at, 3));
        text.append(group.data(), group.size());
        column = static_cast<std::int16_t>(column + 4); // wraps after 32764, as the form requires
        if (lineLength != 0 && static_cast<std::uint32_t>(std::int32_t(column)) >= lineLength) {
            text.push_back('\n');
            column = 0;
        }
    }
    return text;
}

std::string base64EncodingWithLineLength(const Data& bytes, std::uint32_t lineLength)
{
    return base64EncodingWithLineLength(platform::viewOfData(bytes), lineLength);
}

} // namespace stowline::Base64
