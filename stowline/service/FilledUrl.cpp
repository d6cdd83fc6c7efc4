#include "stowline/service/FilledUrl.h"

#include "stowline/call/WireNames.h"
#include "stowline/platform/text/HostName.h"

namespace stowline {

std::string filledUrl(const Dictionary& entry, std::span<const platform::FormatArgument> arguments)
{
    const std::string* format = findString(entry, methodKey::url);
    return platform::addressForCalls(
        platform::formatWithArguments(format ? *format : "", arguments));
}

} // namespace stowline
