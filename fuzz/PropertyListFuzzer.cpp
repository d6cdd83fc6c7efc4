// Exercises reading XML property lists: settings files as people write them, and worse.
#include "stowline/platform/values/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    stowline::platform::PropertyListSource source;
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const auto reading = stowline::platform::readPropertyList(text, &source);
    if (reading.value)
        (void)reading.value->text();
    return 0;
}
