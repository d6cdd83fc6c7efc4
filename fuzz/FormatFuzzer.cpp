// Exercises run-time formats: no format may read an argument that is not there.
#include "stowline/platform/values/Format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    using namespace stowline::platform;
    const std::string_view format(reinterpret_cast<const char*>(bytes), size);
    (void)formatArgumentCount(format);
    (void)formatText(format);
    (void)formatText(format, "text", -1, 2.5, std::nullopt);
    return 0;
}
