// Exercises reading SOAP answers, and a response's bytes, as any server might send them.
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/soap/SoapMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    (void)stowline::soap::readMessage(text);
    (void)stowline::platform::HttpResponseMessage::fromBytes(text).dictionary();
    return 0;
}
