#include "stowline/platform/desktop/PassphraseText.h"

#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Utf8.h"

#include <new>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>

namespace stowline::platform {

namespace {

/// Composed text has at most three times the bytes of what it is made of (Annex 15, section 9).
constexpr std::size_t kMostGrowth = 3;

const icu::Normalizer2& composition()
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* const found = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status))
        throw std::bad_alloc();
    return *found;
}

/// Whether the first character of a text is in the text before it.
bool isRepeated(std::string_view before, char32_t character)
{
    while (!before.empty()) {
        const auto [earlier, length] = firstUtf8Character(before);
        if (earlier == character)
            return true;
        before.remove_prefix(length);
    }
    return false;
}

} // namespace

std::optional<SecretBytes> composedPassphrase(std::string_view passphrase)
{
    if (!isValidUtf8(passphrase))
        return std::nullopt;
    const icu::StringPiece given(passphrase.data(), static_cast<std::int32_t>(passphrase.size()));
    UErrorCode status = U_ZERO_ERROR;
    if (composition().isNormalizedUTF8(given, status) && U_SUCCESS(status))
        return SecretBytes::copyOf(passphrase);
    SecretBytes room(passphrase.size() * kMostGrowth);
    icu::CheckedArrayByteSink sink(reinterpret_cast<char*>(room.data()),
                                   static_cast<std::int32_t>(room.size()));
    composition().normalizeUTF8(0, given, sink, nullptr, status);
    if (U_FAILURE(status) || sink.Overflowed())
        throw std::bad_alloc();
    return SecretBytes::copyOf(
        room.view().substr(0, static_cast<std::size_t>(sink.NumberOfBytesWritten())));
}

std::size_t differentCharacters(std::string_view text)
{
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto [character, length] = firstUtf8Character(text.substr(at));
        if (length == 0)
            break;
        count += isRepeated(text.substr(0, at), character) ? 0 : 1;
        at += length;
    }
    return count;
}

} // namespace stowline::platform
