// Passwords and secrets at rest, by way of OpenSSL. For services; the client does no cryptography.
#pragma once

#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// Bytes from the system's random source.
[[nodiscard]] Data randomBytes(std::size_t count);

/// A password as it may be stored: "scrypt$<salt>$<hash>" in hexadecimal, with a fresh salt (RFC
/// 7914; N 16384, r 8, p 1).
[[nodiscard]] std::string storedPassword(std::string_view password);

/// Whether a password is the stored one; takes equally long whether or not it is.
[[nodiscard]] bool passwordMatches(std::string_view password, std::string_view stored);

/// A keyed digest (HMAC-SHA-256) as 64 hexadecimal digits.
[[nodiscard]] std::string keyedDigest(std::string_view text, const Data& key);

/// Base64 with padding, on one line (RFC 4648 section 4).
[[nodiscard]] std::string encodedBase64(std::string_view bytes);

/// The bytes of a Base64 text (RFC 4648 section 4), strictly: padded, no line breaks, nothing
/// outside the alphabet.
/// @return absent for any other text
[[nodiscard]] std::optional<std::string> strictlyDecodedBase64(std::string_view text);

/// AES-256-GCM: nonce, ciphertext and tag in one. The key has 32 bytes.
[[nodiscard]] Data sealed(std::string_view secret, const Data& key);

/// @return absent when the bytes were not sealed with this key, or were changed.
[[nodiscard]] std::optional<std::string> unsealed(const Data& box, const Data& key);

} // namespace stowline::platform
