// Exercises reading archives and binary property lists, as a broken or hostile peer might send
// them: no input may crash, hang or exhaust the memory, and what is read must be writable again.
#include "stowline/call/CallArchive.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    if (const auto value = stowline::unarchive(text)) {
        if (const auto again = stowline::archive(*value)) {
            if (!stowline::unarchive(*again))
                std::abort();
        }
    }
    return 0;
}
