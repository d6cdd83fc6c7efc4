// Exercises template expansion and the parameter element: whatever the value, the element that
// comes out reads back as exactly that value.
#include "stowline/platform/text/Text.h"
#include "stowline/soap/Envelope.h"
#include "stowline/soap/SoapMessage.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    using namespace stowline;
    const std::string value(reinterpret_cast<const char*>(bytes), size);
    const std::string element = soap::parameterElement("p", "x<<A>>", {{"<<A>>", value}});
    (void)soap::expandTemplate(value, {{"<<A>>", value}, {value, "b"}}, size % 2 == 0);
    if (platform::characterXmlCannotCarry(value))
        return 0;
    const auto reading = soap::readMessage(
        "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body>"
        "<R>" +
        element + "</R></e:Body></e:Envelope>");
    const auto found =
        reading.message ? platform::valueAtKeyPath(reading.message->content, "p") : std::nullopt;
    if (found != Value("x" + value))
        std::abort();
    return 0;
}
