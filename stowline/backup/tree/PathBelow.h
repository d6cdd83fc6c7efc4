// Whether a path lies below another one.
#pragma once

#include <string_view>

namespace stowline::backup {

/// Of absolute paths without a slash at the end, "/" alone excepted.
[[nodiscard]] inline bool isBelow(std::string_view path, std::string_view folder)
{
    if (folder == "/")
        return path != "/";
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

/// The same, and of the folder itself.
[[nodiscard]] inline bool isAtOrBelow(std::string_view path, std::string_view folder)
{
    return path == folder || isBelow(path, folder);
}

} // namespace stowline::backup
