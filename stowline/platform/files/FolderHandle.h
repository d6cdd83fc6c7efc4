// Folders held open, and what is in them looked at by name: no path is walked twice, so nobody can
// swap a folder for a link under the feet, and paths may have any length.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/StatusTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace stowline::platform {

enum class ItemType { file, folder, link, pipe, socket, characterDevice, blockDevice };

/// Everything that the system tells of an item but its names and attributes.
struct ItemStatus {
    ItemType type = ItemType::file;
    std::uint64_t size = 0;
    StatusTime modified;
    StatusTime changed;
    std::uint32_t mode = 0; ///< permission, set-id and sticky bits (07777)
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t links = 1;
    std::uint64_t deviceNumber = 0; ///< of a device

    /// Whether both are of the same item, as long as one of them is held open.
    [[nodiscard]] bool isSameItemAs(const ItemStatus& other) const
    {
        return device == other.device && inode == other.inode;
    }
};

struct FileSystemKind {
    bool isPseudo = false;  ///< shows the state of the system and holds no files (proc, sysfs, …)
    bool isNetwork = false; ///< another machine's or a program's (FUSE): stamps and inodes may lie
};

/// Name and value of an extended attribute.
using NamedAttribute = std::pair<std::string, std::string>;

/// One open folder. Movable; for any thread, but listing is for one at a time. Names are single
/// names of any bytes but NUL and "/"; no operation follows a link but where it says so. What fails
/// returns nothing and the system's number in `error`.
class FolderHandle {
public:
    /// The root folder.
    [[nodiscard]] static std::optional<FolderHandle> root(int& error);

    /// Whether something is mounted here: a file system, or a folder of the same one (a bind
    /// mount). false where the system does not say (Linux before 5.8).
    [[nodiscard]] bool isMountRoot() const;

    /// A folder in this one; what is not a folder is refused, links too (ENOTDIR). One that may be
    /// entered but not read can be opened all the same.
    [[nodiscard]] std::optional<FolderHandle> folder(const std::string& name, int& error) const;

    /// The folder that holds this one, wherever it is by now.
    [[nodiscard]] std::optional<FolderHandle> parent(int& error) const;

    /// The names in it but "." and "..", by their bytes. After an error (`error` is not 0, else it
    /// is) those that were told before it.
    [[nodiscard]] std::vector<std::string> names(int& error) const;

    [[nodiscard]] std::optional<ItemStatus> status(int& error) const;
    [[nodiscard]] std::optional<ItemStatus> statusOf(const std::string& name, int& error) const;

    /// Where a link leads to, as it is written in it.
    [[nodiscard]] std::optional<std::string> linkTarget(const std::string& name, int& error) const;

    /// The extended attributes of an item in it ("." is the folder itself) by their names, with
    /// their name spaces; none where the file system keeps none. One that goes meanwhile is left
    /// out.
    [[nodiscard]] std::optional<std::vector<NamedAttribute>> attributesOf(const std::string& name,
                                                                          int& error) const;

    [[nodiscard]] std::optional<FileSystemKind> fileSystem(int& error) const;

    /// For SourceFile::open(); valid as long as this is open.
    [[nodiscard]] int descriptor() const { return folder_.number(); }

private:
    explicit FolderHandle(FileDescriptor folder) : folder_(std::move(folder)) {}
    FileDescriptor folder_;
};

} // namespace stowline::platform
