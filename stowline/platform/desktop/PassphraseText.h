// Passphrases as text: the one form in which they become keys, and how much there is of them.
#pragma once

#include "stowline/platform/desktop/SecretBytes.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace stowline::platform {

/// A passphrase in Unicode's composed form (NFC, Unicode Standard Annex 15), so that it is the same
/// from every keyboard. What is in that form already is copied nowhere else; of other text ICU has
/// letters in ordinary memory for a while. Any thread. Throws std::bad_alloc without memory.
/// @return absent for what is not UTF-8
[[nodiscard]] std::optional<SecretBytes> composedPassphrase(std::string_view passphrase);

/// How many different code points a text has, of those before the first byte that is not UTF-8.
/// Keeps them nowhere.
[[nodiscard]] std::size_t differentCharacters(std::string_view text);

} // namespace stowline::platform
