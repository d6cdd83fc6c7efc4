// Keys and passphrases in memory, by way of libsodium.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace stowline::platform {

/// Bytes that nobody else is to see: between pages that may not be touched, left out of cores,
/// overwritten when they go, and kept out of the swap space as far as the system lets this user
/// lock memory (each takes two pages of it). Their number never changes. Reading from several
/// threads is safe. Throws std::bad_alloc without memory.
class SecretBytes {
public:
    /// None.
    SecretBytes() = default;
    /// So many zeros.
    explicit SecretBytes(std::size_t size);
    /// The other has none afterwards; what was assigned over is overwritten at once.
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    ~SecretBytes();

    /// Fresh bytes of the system's random source.
    [[nodiscard]] static SecretBytes random(std::size_t size);
    /// What somebody else holds; wiping that is theirs.
    [[nodiscard]] static SecretBytes copyOf(std::string_view bytes);

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::uint8_t* data() { return bytes_; }
    [[nodiscard]] const std::uint8_t* data() const { return bytes_; }
    /// Valid as long as this object stands unchanged.
    [[nodiscard]] std::string_view view() const
    {
        return {reinterpret_cast<const char*>(bytes_), size_};
    }

    /// Takes equally long whether or not they are the same.
    [[nodiscard]] bool isSameAs(const SecretBytes& other) const;

private:
    std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace stowline::platform
