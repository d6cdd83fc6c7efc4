// Exercises the Base64 codec: decoding takes any text and agrees with a strict decoder wherever
// that takes the text, and what is encoded comes back and is what another encoder makes.
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/util/Base64.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    namespace Base64 = stowline::Base64;
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const stowline::Data lenient = Base64::dataWithBase64EncodedString(text);
    if (const auto strict = stowline::platform::strictlyDecodedBase64(text)) {
        if (lenient != stowline::Data(strict->begin(), strict->end()))
            std::abort();
    }
    if (Base64::base64EncodingWithLineLength(text, 0) != stowline::platform::encodedBase64(text))
        std::abort();
    const stowline::Data data(bytes, bytes + size);
    for (const std::uint32_t lineLength : {0U, 1U, 76U, Base64::kNeverBreaks}) {
        const auto encoded = Base64::base64EncodingWithLineLength(data, lineLength);
        if (Base64::dataWithBase64EncodedString(encoded) != data)
            std::abort();
    }
    return 0;
}
