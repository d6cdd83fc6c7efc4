// Putting items into a folder by its descriptor: whatever happens to paths meanwhile, nothing is
// made, read or changed anywhere else, and no link is followed.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/TargetItem.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

/// A regular file that is being filled. Operations that return int return 0 or the system's error
/// number. Not for several threads at once.
class TargetFile {
public:
    explicit TargetFile(FileDescriptor file) : file_(std::move(file)) {}

    [[nodiscard]] std::optional<TargetStatus> status() const;
    /// The same open file; absent when the system has no more descriptors.
    [[nodiscard]] std::optional<TargetItem> item(int& error) const;

    /// Keeps others of this program away until it is closed. @return false when one has it
    [[nodiscard]] bool lock() const;

    /// Reads until the room is full or the file ends. @return how many; absent on an error
    [[nodiscard]] std::optional<std::size_t> readAt(std::uint64_t offset,
                                                    std::span<char> room) const;

    /// Writes bytes; whole blocks of zeros are left out, so that they take no room on the disk
    /// where nothing stood before. The file ends behind them all the same.
    [[nodiscard]] int writeAt(std::uint64_t offset, std::string_view bytes) const;
    [[nodiscard]] int truncate(std::uint64_t size) const;
    [[nodiscard]] int synchronize() const;

private:
    FileDescriptor file_;
};

/// An open folder. A `name` is one name in it: no slash, not "." or ".."; a link there is never
/// followed. Operations that return int return 0 or the system's error number. Several threads may
/// use one.
class TargetFolder {
public:
    /// Opens a folder that the user named (links are followed), and makes it and what is missing
    /// above it when `makes` is true.
    [[nodiscard]] static std::optional<TargetFolder> open(const std::filesystem::path& path,
                                                          bool makes, int& error);

    /// Opens a folder below this one ("a/b"; "" is this one): through folders only, no link, no way
    /// out (openat2(2) where the kernel has it).
    /// @param error ELOOP or ENOTDIR when a link or another item is in the way
    [[nodiscard]] std::optional<TargetFolder> below(std::string_view path, int& error) const;

    /// The same, and through no mount either, be it of the same file system.
    /// @param error EXDEV when something is mounted there or on the way
    [[nodiscard]] std::optional<TargetFolder> belowOnSameMount(std::string_view path,
                                                               int& error) const;

    /// Absent: see `error`; ENOENT: there is nothing.
    [[nodiscard]] std::optional<TargetStatus> find(const std::string& name, int& error) const;
    /// Whether something is mounted under a name (or, with an empty one, at this folder), another
    /// folder of the same file system too. Linux before 5.8 tells only of other file systems.
    [[nodiscard]] bool isMountPoint(const std::string& name) const;
    /// Of the folder itself.
    [[nodiscard]] std::optional<TargetStatus> status() const;
    /// But "." and ".."; absent when the folder cannot be read.
    [[nodiscard]] std::optional<std::vector<std::string>> names(int& error) const;
    [[nodiscard]] std::optional<std::string> linkTarget(const std::string& name, int& error) const;

    /// Opens a regular file for reading.
    [[nodiscard]] std::optional<TargetFile> openFile(const std::string& name, int& error) const;
    /// Opens a regular file for reading and writing; makes one of mode 0600 where there is nothing.
    [[nodiscard]] std::optional<TargetFile> openOrMakeFile(const std::string& name,
                                                           int& error) const;

    [[nodiscard]] int makeFolder(const std::string& name, std::uint32_t mode) const;
    [[nodiscard]] int makeLink(const std::string& name, const std::string& target) const;
    /// A pipe, socket or device. @param deviceNumber of a device
    [[nodiscard]] int makeNode(const std::string& name, TargetKind kind,
                               std::uint64_t deviceNumber) const;
    /// Another name for an item that may stand in another folder of the file system.
    [[nodiscard]] int makeHardLink(const TargetItem& item, const std::string& name) const;
    /// In this folder; what stands under the new name is replaced, but never a folder by another
    /// item.
    [[nodiscard]] int rename(const std::string& from, const std::string& to) const;
    /// The same where nothing may stand under the new name. @return EEXIST when something does
    [[nodiscard]] int renameToNew(const std::string& from, const std::string& to) const;
    [[nodiscard]] int remove(const std::string& name) const;
    [[nodiscard]] int removeFolder(const std::string& name) const;

    /// Holds an item of any kind; with an empty name the folder itself.
    [[nodiscard]] std::optional<TargetItem> item(const std::string& name, int& error) const;
    /// Whether an item of this folder, of whatever name it was, has this one now.
    [[nodiscard]] bool isNameOf(const TargetItem& item, const std::string& name) const;
    /// Of what stands under the name; with an empty one, of the folder itself.
    [[nodiscard]] int setMode(const std::string& name, std::uint32_t mode) const;

    /// Makes everything durable that was done on the folder's file system.
    [[nodiscard]] int synchronizeFileSystem() const;

private:
    explicit TargetFolder(FileDescriptor folder) : folder_(std::move(folder)) {}

    FileDescriptor folder_;
};

/// Whether this process has the right to make devices. Where it has not the right of the whole
/// system, as in a container, making one may fail all the same.
[[nodiscard]] bool mayMakeDevices();

} // namespace stowline::platform
