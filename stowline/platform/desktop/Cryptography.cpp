#include "stowline/platform/desktop/Cryptography.h"

#include "stowline/platform/text/Text.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <memory>
#include <stdexcept>

namespace stowline::platform {

namespace {

constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kHashSize = 32;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::uint64_t kScryptCost = 16384;
constexpr std::uint64_t kScryptMemory = std::uint64_t(64) << 20;

using Cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

Data passwordHash(std::string_view password, std::string_view salt)
{
    Data hash(kHashSize);
    if (EVP_PBE_scrypt(password.data(), password.size(),
                       reinterpret_cast<const unsigned char*>(salt.data()), salt.size(),
                       kScryptCost, 8, 1, kScryptMemory, hash.data(), hash.size()) != 1)
        throw std::runtime_error("The password cannot be hashed");
    return hash;
}

std::string storedForm(std::string_view password, const std::string& saltText)
{
    return "scrypt$" + saltText + "$" + hexadecimalText(passwordHash(password, saltText));
}

} // namespace

Data randomBytes(std::size_t count)
{
    Data bytes(count);
    if (RAND_bytes(bytes.data(), static_cast<int>(count)) != 1)
        throw std::runtime_error("The system has no random bytes to give");
    return bytes;
}

std::string storedPassword(std::string_view password)
{
    return storedForm(password, hexadecimalText(randomBytes(kSaltSize)));
}

bool passwordMatches(std::string_view password, std::string_view stored)
{
    const auto saltStart = stored.find('$');
    const auto saltEnd = stored.rfind('$');
    if (!stored.starts_with("scrypt$") || saltEnd <= saltStart)
        return false;
    const std::string salt(stored.substr(saltStart + 1, saltEnd - saltStart - 1));
    const std::string expected = storedForm(password, salt);
    return expected.size() == stored.size() &&
           CRYPTO_memcmp(expected.data(), stored.data(), stored.size()) == 0;
}

Data sealed(std::string_view secret, const Data& key)
{
    Data box = randomBytes(kNonceSize);
    box.resize(kNonceSize + secret.size() + kTagSize);
    std::uint8_t* const content = box.data() + kNonceSize;
    const Cipher cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    int length = 0;
    const bool done =
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(), box.data()) == 1 &&
        EVP_EncryptUpdate(cipher.get(), content, &length,
                          reinterpret_cast<const unsigned char*>(secret.data()),
                          static_cast<int>(secret.size())) == 1 &&
        EVP_EncryptFinal_ex(cipher.get(), content + length, &length) == 1 &&
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, kTagSize,
                            content + secret.size()) == 1;
    if (!done)
        throw std::runtime_error("The text cannot be encrypted");
    return box;
}

std::optional<std::string> unsealed(const Data& box, const Data& key)
{
    if (box.size() < kNonceSize + kTagSize)
        return std::nullopt;
    Data copy = box; // the tag is handed over as changeable memory
    const std::size_t size = box.size() - kNonceSize - kTagSize;
    std::string secret(size, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(secret.data());
    const Cipher cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    int length = 0;
    const bool genuine = EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(),
                                            copy.data()) == 1 &&
                         EVP_DecryptUpdate(cipher.get(), out, &length, copy.data() + kNonceSize,
                                           static_cast<int>(size)) == 1 &&
                         EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, kTagSize,
                                             copy.data() + kNonceSize + size) == 1 &&
                         EVP_DecryptFinal_ex(cipher.get(), out + length, &length) == 1;
    return genuine ? std::optional(secret) : std::nullopt;
}

std::string keyedDigest(std::string_view text, const Data& key)
{
    Data digest(EVP_MAX_MD_SIZE);
    unsigned size = 0;
    if (!HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
              reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(),
              &size))
        throw std::runtime_error("The text cannot be digested");
    digest.resize(size);
    return hexadecimalText(digest);
}

std::string encodedBase64(std::string_view bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::optional<std::string> strictlyDecodedBase64(std::string_view text)
{
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.empty())
        return std::string();
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    const std::string_view digits = text.substr(0, text.size() - padding);
    if (text.size() % 4 != 0 || digits.find_first_not_of(alphabet) != std::string_view::npos)
        return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int count = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                      reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<int>(text.size()));
    if (count < 0)
        return std::nullopt;
    bytes.resize(static_cast<std::size_t>(count) - padding);
    return bytes;
}

} // namespace stowline::platform
