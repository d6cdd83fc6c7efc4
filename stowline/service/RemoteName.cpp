#include "stowline/service/RemoteName.h"

#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"

#include <algorithm>

namespace stowline {

namespace {

constexpr std::string_view kMark = "=b64=";
constexpr std::string_view kOwn = "=stowline=";

std::string remoteName(std::string_view name)
{
    if (!name.starts_with(kMark) && !name.starts_with(kOwn) &&
        !platform::characterXmlCannotCarry(name))
        return std::string(name);
    std::string text = Base64::base64EncodingWithLineLength(name, 0);
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return std::string(kMark) + text;
}

std::string localName(std::string_view name)
{
    if (!name.starts_with(kMark))
        return std::string(name);
    std::string text(name.substr(kMark.size()));
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    return platform::textFromData(Base64::dataWithBase64EncodedString(text));
}

template <class Change> std::string eachName(std::string_view path, Change change)
{
    std::string result;
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        result += (start == 0 ? "" : "/") + change(path.substr(start, end - start));
        start = end + 1;
    }
    return result;
}

} // namespace

std::string remotePath(std::string_view path)
{
    return eachName(path, remoteName);
}

std::string localPath(std::string_view remote)
{
    return eachName(remote, localName);
}

} // namespace stowline
