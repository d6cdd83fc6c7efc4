// Sealing, deriving keys, and keys of passphrases, by way of libsodium.
#pragma once

#include "stowline/platform/desktop/SecretBytes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace stowline::platform {

/// Bytes of every key here. With a key of another size every operation throws
/// std::invalid_argument: some digests would be made without a key then.
constexpr std::size_t kSealingKeySize = 32;
/// What a box has beyond its content: the nonce before it, the tag after it.
constexpr std::size_t kSealingNonceSize = 24;
constexpr std::size_t kSealingTagSize = 16;
constexpr std::size_t kSealingOverhead = kSealingNonceSize + kSealingTagSize;

/// Adds a sealed box to a text: a fresh random nonce, the content, the tag (XChaCha20-Poly1305 of
/// draft-irtf-cfrg-xchacha-03). Any thread. Throws std::bad_alloc without memory.
/// @param associated is not in the box, and must be the same when it is opened
/// @param key of kSealingKeySize bytes
void appendSealedBox(std::string& to, std::string_view content, std::string_view associated,
                     const SecretBytes& key);

/// Puts the content of a box in place of a text. Any thread.
/// @return false: it was not sealed with this key and these associated bytes, or was changed; the
///         text is empty then
[[nodiscard]] bool openSealedBox(std::string& content, std::string_view box,
                                 std::string_view associated, const SecretBytes& key);

/// The same for a content that is a secret itself.
/// @param secret of the content's size, which the box must have; zeros when false is returned
[[nodiscard]] bool openSealedSecret(SecretBytes& secret, std::string_view box,
                                    std::string_view associated, const SecretBytes& key);

/// A keyed digest (BLAKE2b, RFC 7693) of 32 bytes. With a purpose of its own as message, a key for
/// one use. Any thread.
[[nodiscard]] SecretBytes derivedKey(const SecretBytes& key, std::string_view message);

/// The same for what need not be secret.
/// @param size of the digest, 16 to 64 bytes; else throws std::invalid_argument
[[nodiscard]] std::string keyedBlake2b(const SecretBytes& key, std::string_view message,
                                       std::size_t size);

/// Bytes of the system's random source.
[[nodiscard]] std::string randomText(std::size_t size);

/// What trying one passphrase costs.
struct PassphraseCost {
    std::uint64_t operations = 3;
    std::uint64_t memoryKib = 262144;

    [[nodiscard]] bool operator==(const PassphraseCost&) const = default;
};

constexpr std::size_t kPassphraseSaltSize = 16;

/// The key of a passphrase (Argon2id 1.3, RFC 9106, one lane). Any thread. Throws std::bad_alloc
/// when the memory that it takes cannot be had.
/// @param salt of kPassphraseSaltSize bytes
/// @param cost one operation or more, 8 KiB or more
[[nodiscard]] SecretBytes passphraseKey(std::string_view passphrase, std::string_view salt,
                                        const PassphraseCost& cost);

} // namespace stowline::platform
