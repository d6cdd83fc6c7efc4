// Exercises the reading of single elements: what is found stands in the text, between its tags.
#include "stowline/service/TagReading.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    for (const char* name : {"Code", "ProcessGuid", "a", ""}) {
        const auto found = stowline::elementText(text, name);
        if (found && text.find(*found + "</") == std::string_view::npos)
            std::abort();
    }
    return 0;
}
