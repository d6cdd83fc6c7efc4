// Base64 (RFC 4648, standard alphabet) as the service's wire forms need it.
#pragma once

#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::Base64 {

/// Line length that never breaks a line.
inline constexpr std::uint32_t kNeverBreaks = 4294967295U;

/// Decodes leniently; never fails. Linear time. Reentrant.
///
/// Bytes that are not of the alphabet are skipped. The first "=" ends the decoding: with two values
/// waiting it adds one byte, with three two bytes, and with one value one byte, made with the
/// second value of the last full group (zero when there was none). Without "=" a group that is not
/// full is dropped: text without padding loses its last one or two bytes.
/// @return empty for absent text and for text with any character outside ASCII.
[[nodiscard]] Data initWithBase64EncodedString(std::optional<std::string_view> text);

/// The same, as new data.
[[nodiscard]] Data dataWithBase64EncodedString(std::optional<std::string_view> text);

/// Encodes with padding. Linear time. Reentrant.
///
/// @param lineLength 0 for no line breaks. Otherwise a line feed follows each group of four
///        characters at which the count of characters on the line reaches the line length. That
///        count is a signed 16-bit number, compared as unsigned 32-bit after sign extension, so
///        every length from 32769 to 4294934528 breaks after 32768 characters, and 4294967295
///        never does.
[[nodiscard]] std::string base64EncodingWithLineLength(std::string_view bytes,
                                                       std::uint32_t lineLength);
[[nodiscard]] std::string base64EncodingWithLineLength(const Data& bytes, std::uint32_t lineLength);

} // namespace stowline::Base64
#pragma GCC visibility pop
