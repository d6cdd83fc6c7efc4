// A file that is written in pieces at given places, for services that store what others send.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

struct stat;

namespace stowline::platform {

/// One regular file open for reading and writing, mode 0600; links are not followed. Not for
/// several threads at once. Operations throw FileFault.
class ContentFile {
public:
    /// Opens a file, or makes an empty one, with the folders on the way to it (mode 0700).
    [[nodiscard]] static ContentFile openOrCreate(const std::filesystem::path& path);

    /// Opens a file for reading. @return absent when there is none
    [[nodiscard]] static std::optional<ContentFile> open(const std::filesystem::path& path);

    /// What the system says of the file as it is now: inode, size, modification and change time, in
    /// one word. As long as it is the same, nobody has written to the file.
    [[nodiscard]] std::string stamp() const;

    [[nodiscard]] std::uint64_t size() const;

    /// Up to that many bytes from an offset; fewer at the file's end only.
    [[nodiscard]] std::string read(std::uint64_t offset, std::size_t length) const;

    /// Makes the file end here; what is missing up to there is zeros.
    void truncate(std::uint64_t size);

    /// Writes bytes at an offset. Blocks of zeros at and after the file's end are left out, so that
    /// they take no room on the disk; the file ends after them all the same.
    void write(std::uint64_t offset, std::string_view bytes);

    /// Reads the whole file in pieces.
    void read(const std::function<void(std::string_view)>& take) const;

    /// Makes durable what was written.
    void synchronize();

private:
    ContentFile(FileDescriptor file, std::filesystem::path path)
        : file_(std::move(file)), path_(std::move(path))
    {
    }
    [[nodiscard]] struct ::stat status() const;
    void writePiece(std::uint64_t offset, std::string_view bytes);

    FileDescriptor file_;
    std::filesystem::path path_;
};

/// Makes durable which names stand in a folder. Throws FileFault.
void synchronizeFolder(const std::filesystem::path& folder);

} // namespace stowline::platform
