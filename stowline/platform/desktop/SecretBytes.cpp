#include "stowline/platform/desktop/SecretBytes.h"

#include <new>
#include <sodium.h>
#include <utility>

namespace stowline::platform {

SecretBytes::SecretBytes(std::size_t size) : size_(size)
{
    if (size == 0)
        return;
    if (::sodium_init() < 0)
        throw std::bad_alloc();
    bytes_ = static_cast<std::uint8_t*>(::sodium_malloc(size));
    if (!bytes_)
        throw std::bad_alloc();
    ::sodium_memzero(bytes_, size);
}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept
{
    SecretBytes taken(std::move(other));
    std::swap(bytes_, taken.bytes_);
    std::swap(size_, taken.size_);
    return *this; // what was here is overwritten now, and the other has none
}

SecretBytes::~SecretBytes()
{
    ::sodium_free(bytes_); // overwrites it first
}

SecretBytes SecretBytes::random(std::size_t size)
{
    SecretBytes bytes(size);
    ::randombytes_buf(bytes.data(), size);
    return bytes;
}

SecretBytes SecretBytes::copyOf(std::string_view text)
{
    SecretBytes bytes(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
        bytes.bytes_[i] = static_cast<std::uint8_t>(text[i]);
    return bytes;
}

bool SecretBytes::isSameAs(const SecretBytes& other) const
{
    return size_ == other.size_ &&
           (size_ == 0 || ::sodium_memcmp(bytes_, other.bytes_, size_) == 0);
}

} // namespace stowline::platform
