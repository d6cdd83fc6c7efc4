// A file that lines are added to, by this program alone.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace stowline::platform {

/// One file open for adding to its end. Not for several threads at once.
///
/// While it is open other programs, and other objects in this one, can tell that it is in use
/// (an advisory lock of the open file, fcntl(2), F_OFD_SETLK). A child of fork() may go on adding
/// to it.
class AppendFile {
public:
    /// Makes an empty file, mode 0600, where there is nothing.
    /// @return whether it was made; false also when something is there already
    [[nodiscard]] static bool create(const std::filesystem::path& path);

    /// Opens an existing regular file; links are not followed.
    /// @return absent when it cannot be opened or is in use
    [[nodiscard]] static std::optional<AppendFile> open(const std::filesystem::path& path);

    /// Whether somebody has it open in this way. Asking disturbs nobody who opens it meanwhile.
    [[nodiscard]] static bool isInUse(const std::filesystem::path& path);

    /// Deletes a file that nobody has open in this way, nor opens meanwhile.
    static void removeUnlessInUse(const std::filesystem::path& path);

    /// Its size; absent when no directory has a name for it any more, so that nobody would ever
    /// read what is added.
    [[nodiscard]] std::optional<std::uint64_t> linkedSize() const;

    /// Adds all bytes, or, when the file system does not take them all, none.
    [[nodiscard]] bool append(std::string_view bytes);

    /// Makes durable what was added.
    void synchronize();

private:
    explicit AppendFile(FileDescriptor file) : file_(std::move(file)) {}
    FileDescriptor file_;
};

} // namespace stowline::platform
