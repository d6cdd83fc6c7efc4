// Exercises the names that the service carries: every path comes back, and XML can carry it.
#include "stowline/platform/text/Text.h"
#include "stowline/service/RemoteName.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    using namespace stowline;
    const std::string_view path(reinterpret_cast<const char*>(bytes), size);
    const std::string remote = remotePath(path);
    if (localPath(remote) != path || platform::characterXmlCannotCarry(remote))
        std::abort();
    return 0;
}
