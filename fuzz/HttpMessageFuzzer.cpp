// Exercises the reading of responses, from which the listed headers are selected.
#include "stowline/platform/http/HttpMessage.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const auto message = stowline::platform::HttpResponseMessage::fromBytes(
        {reinterpret_cast<const char*>(bytes), size});
    if (message.statusCode < 0 || message.statusCode > 999)
        std::abort();
    for (const auto& [name, value] : message.headers) {
        if ((name + value).find('\n') != std::string::npos)
            std::abort();
    }
    (void)message.dictionary();
    return 0;
}
