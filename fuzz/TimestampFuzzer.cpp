// Exercises timestamps: what is read is written again as it stood, up to a clock change.
#include "stowline/platform/time/DateText.h"
#include "stowline/util/DateMethods.h"
#include "stowline/util/StringMethods.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    using namespace stowline;
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    if (const auto date = platform::dateFromInternetTimeText(text)) {
        if (platform::internetTimeText(*date) != text)
            std::abort();
    }
    if (const auto date = StringMethods::TW_dateFromISO8601DateTime(text)) {
        const std::string written = DateMethods::TW_ISO8601DateTimeFromDate(*date);
        if (StringMethods::TW_dateFromISO8601DateTime(written) != date)
            std::abort();
    }
    return 0;
}
