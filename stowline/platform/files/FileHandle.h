// Regular files, read and written piece by piece; what goes wrong says which file and why.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace stowline::platform {

/// A file could not be opened, read or written. Its text is a sentence for people.
class FileFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    /// "<deed> <path>: <the system's reason>"
    FileFault(const char* deed, const std::filesystem::path& path, int systemError);

    /// The system's error number; 0 when it was not the system that refused.
    [[nodiscard]] int systemError() const { return systemError_; }

private:
    int systemError_ = 0;
};

/// One open regular file. Not for several threads at once. Operations throw FileFault.
class FileHandle {
public:
    /// Opens a file to be read from its start to its end, and has the system read ahead. Links are
    /// followed. Anything but a regular file is refused, so that no pipe or device makes anybody
    /// wait.
    [[nodiscard]] static FileHandle forReading(const std::filesystem::path& path);

    /// Makes an empty file where there is nothing, not even a dangling link, with the mode that new
    /// files get, open for writing.
    /// @param mostPermissions bits of the mode beyond these are not given
    /// @return absent when something is there already. Of several callers at once, one gets a file.
    [[nodiscard]] static std::optional<FileHandle> create(const std::filesystem::path& path,
                                                          unsigned mostPermissions = 0666);

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// The bits of its mode for owner, group and others.
    [[nodiscard]] unsigned permissions() const;

    /// Bytes in the file now.
    [[nodiscard]] std::uint64_t size() const;

    /// Reads up to as many bytes as fit. @return how many; 0 at the end of the file
    [[nodiscard]] std::size_t read(std::span<char> room);

    /// Reads at an offset, without moving the position, until the room is full or the file ends.
    /// @return how many
    [[nodiscard]] std::size_t readAt(std::uint64_t offset, std::span<char> room) const;

    void write(std::string_view bytes);

    /// Moves up to `most` bytes from this file's position to the other's, inside the file system
    /// where it can do that, else through `room`. What is a hole in this file is left out in the
    /// other, which must be a new one; endHere() then gives it its length.
    /// @return how many; 0 at the end of this file
    [[nodiscard]] std::size_t moveTo(FileHandle& destination, std::size_t most,
                                     std::span<char> room);

    /// Makes the position the end of the file, also behind a hole.
    void endHere();

    /// Whether its path still leads to it.
    [[nodiscard]] bool isInPlace() const noexcept;

    /// Takes a file that create() made away again, wherever its folder is by now; nothing else that
    /// stands in its place. Failures are ignored.
    void discard() noexcept;

    /// Closes it now, and tells of what could not be written after all.
    void close();

private:
    FileHandle(FileDescriptor file, std::filesystem::path path, FileDescriptor folder = {})
        : file_(std::move(file)), path_(std::move(path)), folder_(std::move(folder))
    {
    }
    FileDescriptor file_;
    std::filesystem::path path_;
    FileDescriptor folder_; ///< of a file that was created
    /// Device and inode of a file that was created.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> identity_;
    bool movesInside_ = true; ///< until the file system refuses

    [[nodiscard]] std::size_t moveBytes(FileHandle& destination, std::size_t most,
                                        std::span<char> room);
    void lookForData();
    std::int64_t position_ = 0;   ///< of moveTo()
    std::int64_t dataBegins_ = 0; ///< the next bytes that are not a hole
    std::int64_t dataEnds_ = 0;
    bool hasHoles_ = false; ///< some were left out in it
};

} // namespace stowline::platform
