// What the file system knows of a file besides its content.
#pragma once

#include "stowline/platform/time/Date.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

struct FileStatus {
    std::uint64_t size = 0;
    /// When the file was made. Where the file system does not keep that, the earliest of its last
    /// access, change of content and change of status: not later than it should be by much for a
    /// file that nobody reads.
    Date created;
    Date modified;
    bool isRegular = false; ///< a plain file, no link to one
    bool isFolder = false;
    std::uint64_t device = 0; ///< this and the next tell it from every other item
    std::uint64_t inode = 0;
};

/// Of the item itself; a link is not followed. Any thread.
/// @return absent when there is no such item
[[nodiscard]] std::optional<FileStatus> fileStatus(const std::filesystem::path& path);

/// Whether the content of a path may become what neither this user nor root wrote: somebody else
/// owns the file or the folder that holds it, or everybody may write into it (into a folder with
/// the sticky bit only what is new). Links are followed. Any thread.
/// @return true also where it cannot be told
[[nodiscard]] bool mayOthersWrite(const std::filesystem::path& path);

/// Extended attributes of the user's name space (xattr(7)): `name` is kept as "user.<name>".
/// @return 0, or the system's error number: ENODATA for an attribute that is not there, ENOTSUP
///         where the file system keeps none
[[nodiscard]] int findExtendedAttribute(const std::filesystem::path& path, const std::string& name);
[[nodiscard]] int setExtendedAttribute(const std::filesystem::path& path, const std::string& name);
[[nodiscard]] int removeExtendedAttribute(const std::filesystem::path& path,
                                          const std::string& name);

/// Bytes that an ordinary user can still write to the file system of a path; absent when that
/// cannot be told.
[[nodiscard]] std::optional<std::uint64_t> freeSpaceAt(const std::filesystem::path& path);

} // namespace stowline::platform
#pragma GCC visibility pop
