// What is known of one item of a file tree: everything but its content.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

enum class ItemKind { file, folder, link, pipe, socket, characterDevice, blockDevice };

/// A moment as file systems keep it: seconds since 1970 in universal time, may be negative, and
/// nanoseconds from 0 to 999,999,999.
struct Timestamp {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    auto operator<=>(const Timestamp&) const = default;
};

/// An extended attribute (xattr(7)); the name with its name space ("user.comment",
/// "system.posix_acl_access", "security.capability"), the value any bytes.
struct ExtendedAttribute {
    std::string name;
    std::string value;
    auto operator<=>(const ExtendedAttribute&) const = default;
};

/// One item as it was when it was looked at. A plain value.
struct ItemRecord {
    std::string path; ///< absolute, without "." and ".."; any bytes but NUL; "/" is the root folder
    ItemKind kind = ItemKind::file;
    std::uint64_t size = 0; ///< bytes of a file; 0 for all else
    Timestamp modified;
    Timestamp changed;       ///< of the status (ctime)
    std::uint32_t mode = 0;  ///< permission, set-id and sticky bits (07777)
    std::uint32_t owner = 0; ///< number of the user
    std::uint32_t group = 0;
    std::string ownerName; ///< empty when the number has no name
    std::string groupName;
    std::uint64_t device = 0; ///< the file system's number in this run; no identity beyond it
    std::uint64_t inode = 0;
    std::uint64_t links = 1;                   ///< names of the file (hard links)
    std::string linkTarget;                    ///< of a link; any bytes
    std::uint64_t deviceNumber = 0;            ///< of a device: which one it is
    std::vector<ExtendedAttribute> attributes; ///< in the order of their names
    /// Of a folder: another file system begins at it. Where one did and does no more, a disk is not
    /// mounted.
    bool isMountPoint = false;

    bool operator==(const ItemRecord&) const = default;
};

/// The folder that an item is in ("/" is in none: empty) and its name there ("/" for the root).
[[nodiscard]] std::string_view parentOf(std::string_view path);
[[nodiscard]] std::string_view nameOf(std::string_view path);

/// The path of a name in a folder.
[[nodiscard]] std::string pathIn(std::string_view folder, std::string_view name);

/// The order in which trees are walked and records are written: folder by folder, a folder before
/// what is in it, names by their bytes; so "/a", "/a/x", "/a-b". Negative, 0 or positive.
[[nodiscard]] int comparePaths(std::string_view left, std::string_view right);

} // namespace stowline::backup
#pragma GCC visibility pop
