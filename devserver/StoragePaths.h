// Paths as the storage keeps them.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace stowline::devserver {

/// The folder above a path, and its last name.
[[nodiscard]] inline std::pair<std::string, std::string> split(const std::string& path)
{
    const auto slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

/// A folder as it is stored: led by a slash, none at its end; "" for the root.
[[nodiscard]] inline std::string normalized(std::string folder)
{
    while (folder.ends_with('/'))
        folder.pop_back();
    return folder.empty() || folder.starts_with('/') ? folder : "/" + folder;
}

/// The folder below which machines keep the records of their runs, each chain in one of its own.
inline constexpr std::string_view kRecordsFolder = "/=stowline=/records/";

/// Whether a normalized folder is that of a chain of records.
[[nodiscard]] inline bool isRecord(std::string_view folder)
{
    return folder.starts_with(kRecordsFolder);
}

} // namespace stowline::devserver
