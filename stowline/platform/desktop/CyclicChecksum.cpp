#include "stowline/platform/desktop/CyclicChecksum.h"

#include <isa-l/crc.h>

namespace stowline::platform {

std::uint32_t continuedCrc32(std::uint32_t running, const void* bytes, std::size_t length)
{
    return length == 0
               ? running
               : ::crc32_gzip_refl(running, static_cast<const unsigned char*>(bytes), length);
}

} // namespace stowline::platform
