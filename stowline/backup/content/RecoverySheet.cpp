#include "stowline/backup/content/RecoverySheet.h"

#include "stowline/backup/content/KeyFault.h"
#include "stowline/platform/desktop/SealedBox.h"

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::string_view kCheckPurpose = "stowline: check of a recovery text";
constexpr std::size_t kCheckSize = 3;
constexpr std::size_t kBytes = platform::kSealingKeySize + kCheckSize;
constexpr unsigned kBitsOfLetter = 5;
constexpr std::size_t kLetters = kBytes * 8 / kBitsOfLetter;
constexpr std::size_t kGroup = 4;
static_assert(kLetters * kBitsOfLetter == kBytes * 8 && kLetters % kGroup == 0);

std::string checkOf(const platform::SecretBytes& key)
{
    return platform::keyedBlake2b(key, kCheckPurpose, 16).substr(0, kCheckSize);
}

/// A bit of bytes, counted from the highest of the first.
std::size_t placeOf(std::size_t bit)
{
    return bit / 8;
}
unsigned maskOf(std::size_t bit)
{
    return 0x80U >> (bit % 8);
}

/// @return 32 for what is not a letter of the alphabet
std::size_t valueOf(char letter)
{
    if (letter >= 'a' && letter <= 'z')
        letter = static_cast<char>(letter - 'a' + 'A');
    switch (letter) {
    case '0':
        letter = 'O';
        break;
    case '1':
        letter = 'I';
        break;
    case '8':
        letter = 'B';
        break;
    default:
        break;
    }
    return std::min(kAlphabet.find(letter), kAlphabet.size());
}

[[noreturn]] void refuse()
{
    throw KeyFault(KeyFault::Kind::damaged,
                   "That is not the text of a recovery sheet: a letter is missing or mistyped.");
}

} // namespace

platform::SecretBytes recoveryText(const MasterKey& key)
{
    platform::SecretBytes bytes(kBytes);
    std::ranges::copy(key.bytes().view(), bytes.data());
    std::ranges::copy(checkOf(key.bytes()), bytes.data() + platform::kSealingKeySize);
    platform::SecretBytes text(kLetters + kLetters / kGroup - 1);
    std::size_t at = 0;
    for (std::size_t letter = 0; letter < kLetters; ++letter) {
        std::size_t value = 0;
        for (std::size_t bit = letter * kBitsOfLetter; bit < (letter + 1) * kBitsOfLetter; ++bit)
            value = value << 1 | ((bytes.data()[placeOf(bit)] & maskOf(bit)) != 0 ? 1U : 0U);
        if (letter != 0 && letter % kGroup == 0)
            text.data()[at++] = ' ';
        text.data()[at++] = static_cast<std::uint8_t>(kAlphabet[value]);
    }
    return text;
}

MasterKey keyOfRecoveryText(std::string_view text)
{
    platform::SecretBytes bytes(kBytes);
    std::size_t bit = 0;
    for (const char letter : text) {
        if (letter == ' ' || letter == '-' || letter == '\n' || letter == '\t' || letter == '\r')
            continue;
        const std::size_t value = valueOf(letter);
        if (value == kAlphabet.size() || bit == kBytes * 8)
            refuse();
        for (std::size_t mask = 1U << (kBitsOfLetter - 1); mask != 0; mask >>= 1, ++bit) {
            if ((value & mask) != 0)
                bytes.data()[placeOf(bit)] =
                    static_cast<std::uint8_t>(bytes.data()[placeOf(bit)] | maskOf(bit));
        }
    }
    if (bit != kBytes * 8)
        refuse();
    auto key = platform::SecretBytes::copyOf(bytes.view().substr(0, platform::kSealingKeySize));
    if (checkOf(key) != bytes.view().substr(platform::kSealingKeySize))
        refuse();
    return MasterKey(std::move(key));
}

} // namespace stowline::backup
