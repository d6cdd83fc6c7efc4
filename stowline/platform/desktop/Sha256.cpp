#include "stowline/platform/desktop/Sha256.h"

#include <openssl/evp.h>

#include <array>
#include <new>

namespace stowline::platform {

namespace {

using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

Context newContext()
{
    Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!context)
        throw std::bad_alloc();
    return context;
}

/// With this algorithm the library fails for want of memory alone.
void require(int result)
{
    if (result != 1)
        throw std::bad_alloc();
}

} // namespace

struct Sha256::State {
    Context context = newContext();
};

Sha256::Sha256() : state_(std::make_unique<State>())
{
    require(EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr));
}

Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;
Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes)
{
    require(EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size()));
}

std::string Sha256::hexadecimal() const
{
    const Context copy = newContext();
    require(EVP_MD_CTX_copy_ex(copy.get(), state_->context.get()));
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    require(EVP_DigestFinal_ex(copy.get(), digest.data(), &size));
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

std::string Sha256::of(std::string_view bytes)
{
    Sha256 digest;
    digest.update(bytes);
    return digest.hexadecimal();
}

} // namespace stowline::platform
