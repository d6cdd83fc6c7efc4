#include "stowline/platform/desktop/SealedBox.h"

#include <new>
#include <sodium.h>
#include <stdexcept>

namespace stowline::platform {

static_assert(kSealingKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(kSealingNonceSize == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);
static_assert(kSealingTagSize == crypto_aead_xchacha20poly1305_ietf_ABYTES);
static_assert(kSealingKeySize == crypto_generichash_KEYBYTES);
static_assert(kPassphraseSaltSize == crypto_pwhash_SALTBYTES);

namespace {

const unsigned char* octets(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* octets(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

/// The library chooses the processor's code and opens the random source once a process.
void prepare()
{
    if (::sodium_init() < 0)
        throw std::bad_alloc();
}

void requireSize(const SecretBytes& key)
{
    if (key.size() != kSealingKeySize)
        throw std::invalid_argument("a sealing key of another size");
}

void digestTo(unsigned char* digest, std::size_t size, std::string_view message,
              const SecretBytes& key)
{
    prepare();
    requireSize(key);
    if (::crypto_generichash(digest, size, octets(message), message.size(), key.data(),
                             key.size()) != 0)
        throw std::invalid_argument("a digest of a size that there is not");
}

/// @param content room for what is in the box; zeros unless it is genuine
bool openTo(unsigned char* content, std::string_view box, std::string_view associated,
            const SecretBytes& key)
{
    prepare();
    requireSize(key);
    const unsigned char* const nonce = octets(box);
    return ::crypto_aead_xchacha20poly1305_ietf_decrypt(
               content, nullptr, nullptr, nonce + kSealingNonceSize, box.size() - kSealingNonceSize,
               octets(associated), associated.size(), nonce, key.data()) == 0;
}

} // namespace

void appendSealedBox(std::string& to, std::string_view content, std::string_view associated,
                     const SecretBytes& key)
{
    prepare();
    requireSize(key);
    const std::size_t start = to.size();
    to.resize(start + kSealingOverhead + content.size());
    unsigned char* const nonce = octets(to) + start;
    ::randombytes_buf(nonce, kSealingNonceSize);
    ::crypto_aead_xchacha20poly1305_ietf_encrypt(
        nonce + kSealingNonceSize, nullptr, octets(content), content.size(), octets(associated),
        associated.size(), nullptr, nonce, key.data());
}

bool openSealedBox(std::string& content, std::string_view box, std::string_view associated,
                   const SecretBytes& key)
{
    content.clear();
    if (box.size() < kSealingOverhead)
        return false;
    content.resize(box.size() - kSealingOverhead);
    const bool isGenuine = openTo(octets(content), box, associated, key);
    if (!isGenuine)
        content.clear();
    return isGenuine;
}

bool openSealedSecret(SecretBytes& secret, std::string_view box, std::string_view associated,
                      const SecretBytes& key)
{
    return box.size() == secret.size() + kSealingOverhead &&
           openTo(secret.data(), box, associated, key);
}

SecretBytes derivedKey(const SecretBytes& key, std::string_view message)
{
    SecretBytes derived(kSealingKeySize);
    digestTo(derived.data(), derived.size(), message, key);
    return derived;
}

std::string keyedBlake2b(const SecretBytes& key, std::string_view message, std::size_t size)
{
    if (size < crypto_generichash_BYTES_MIN)
        throw std::invalid_argument("a digest too short to tell anything apart");
    std::string digest(size, '\0');
    digestTo(octets(digest), size, message, key);
    return digest;
}

std::string randomText(std::size_t size)
{
    prepare();
    std::string bytes(size, '\0');
    ::randombytes_buf(bytes.data(), size);
    return bytes;
}

SecretBytes passphraseKey(std::string_view passphrase, std::string_view salt,
                          const PassphraseCost& cost)
{
    SecretBytes key(kSealingKeySize);
    if (::crypto_pwhash(key.data(), key.size(), passphrase.data(), passphrase.size(), octets(salt),
                        cost.operations, cost.memoryKib * 1024, crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw std::bad_alloc();
    return key;
}

} // namespace stowline::platform
