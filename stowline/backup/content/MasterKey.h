// The key that everything of a vault is sealed with, and what is made of it.
#pragma once

#include "stowline/platform/desktop/SecretBytes.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace stowline::backup {

/// Names one stored content, at random: no two have the same, not even two states of one file.
constexpr std::size_t kContentIdentifierSize = 32;
/// Bytes of a master key's name.
constexpr std::size_t kKeyNameSize = 8;

/// A master key: random, never stored but wrapped, and in locked memory while it is used. Nothing
/// is sealed with it directly. Reading from several threads is safe. Throws std::bad_alloc without
/// memory. One that was moved from is not a key: whatever is asked of it throws std::logic_error.
class MasterKey {
public:
    /// A fresh one.
    [[nodiscard]] static MasterKey make();
    /// Throws std::invalid_argument for more or fewer bytes.
    /// @param bytes platform::kSealingKeySize of them
    explicit MasterKey(platform::SecretBytes bytes);

    [[nodiscard]] const platform::SecretBytes& bytes() const;

    /// Tells keys apart without telling anything of them: kKeyNameSize bytes, made of the key.
    [[nodiscard]] const std::string& name() const;

    /// The key that the chunks of one content are sealed with.
    /// @param identifier of kContentIdentifierSize bytes
    [[nodiscard]] platform::SecretBytes contentKey(std::string_view identifier) const;

private:
    platform::SecretBytes bytes_;
    std::string name_;
};

} // namespace stowline::backup
