// An open file, pipe or socket that closes itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace stowline::platform {

/// Owns one descriptor. Movable; not for use by several threads at once.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { close(); }

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool isOpen() const { return number_ >= 0; }
    void close();

    /// Hands the descriptor over; this no longer owns it.
    [[nodiscard]] int release() { return std::exchange(number_, -1); }

private:
    int number_ = -1;
};

/// A file without a name that is gone with its last descriptor: in memory and sealed against
/// changes, or where the system has none such, one that only this user may read, on a disk.
/// Close-on-exec, at its beginning.
/// @return a closed descriptor, and errno, when the system refuses.
[[nodiscard]] FileDescriptor anonymousFileHolding(std::string_view content);

/// Writes all bytes, going on after interruptions and partial writes.
[[nodiscard]] bool writeAll(int descriptor, std::string_view bytes);

/// Reads to the end of the file; absent on a read error.
[[nodiscard]] std::optional<std::string> readToEnd(int descriptor);

} // namespace stowline::platform
