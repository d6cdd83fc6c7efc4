#include "stowline/backup/index/PathKey.h"

#include <algorithm>
#include <utility>

namespace stowline::backup {

namespace {

std::string withByteReplaced(std::string_view text, char from, char to)
{
    std::string replaced(text);
    std::ranges::replace(replaced, from, to);
    return replaced;
}

} // namespace

std::string pathKey(std::string_view path)
{
    return withByteReplaced(path, '/', '\0');
}

std::string pathOfKey(std::string_view key)
{
    return withByteReplaced(key, '\0', '/');
}

KeyRange keysAtAndBelow(std::string_view path)
{
    std::string key = pathKey(path);
    // Behind the NUL that ends a name comes what no name begins with but longer ones.
    std::string end = (path == "/" ? std::string() : key) + '\x01';
    return {std::move(key), std::move(end)};
}

} // namespace stowline::backup
