#include "stowline/call/CallArchive.h"

#include "stowline/platform/values/PropertyList.h"
#include "stowline/util/Base64.h"

namespace stowline {

std::optional<std::string> archive(const Value& root)
{
    return platform::writeBinaryPropertyList(root);
}

std::optional<Value> unarchive(std::string_view bytes)
{
    if (!bytes.starts_with("bplist"))
        return std::nullopt;
    return platform::readPropertyList(bytes).value;
}

std::optional<std::string> encodedRequest(const Dictionary& request)
{
    const auto bytes = archive(request);
    if (!bytes)
        return std::nullopt;
    return Base64::base64EncodingWithLineLength(*bytes, Base64::kNeverBreaks);
}

} // namespace stowline
