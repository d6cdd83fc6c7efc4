// A file that somebody else may be writing to, read by its descriptor alone.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/StatusTime.h"
#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace stowline::platform {

/// Which file it is, and what tells one of its states from the next: times to the nanosecond,
/// and of the status (ctime) too, which nobody can put back.
struct FileState {
    std::uint64_t size = 0;
    StatusTime modified;
    StatusTime changed;
    std::uint64_t inode = 0;
    std::uint64_t device = 0; ///< within one run; no identity beyond it
    bool operator==(const FileState&) const = default;
};

/// One open regular file. Movable; reading is for any thread, also for several at once.
class SourceFile {
public:
    static constexpr int kNoFolder = -1;

    /// Opens a name in an open folder, or a path where `folder` is kNoFolder. A link in the last
    /// name is not followed; what is not a regular file is refused before anybody waits for it.
    /// Access times stay where the system allows that.
    /// @param error the system's number when there is no file; EINVAL for what is not a regular
    /// file
    [[nodiscard]] static std::optional<SourceFile> open(int folder, const std::string& name,
                                                        int& error);

    /// Takes a descriptor that is open for reading. @return absent when it is not a regular file
    [[nodiscard]] static std::optional<SourceFile> of(FileDescriptor file, int& error);

    /// The same open file under another descriptor.
    [[nodiscard]] std::optional<SourceFile> again(int& error) const;

    /// Reads a pipe, or whatever a descriptor is of, to its end into a file without a name in a
    /// folder.
    /// @param stop ends it; `error` is then ECANCELED
    [[nodiscard]] static std::optional<SourceFile> spooled(int descriptor,
                                                           const std::filesystem::path& folder,
                                                           const StopRequest& stop, int& error);

    /// As the file is now. Absent when the system does not say.
    [[nodiscard]] std::optional<FileState> state() const;

    /// Reads at an offset until the room is full or the file ends. What the file system knows to
    /// be a hole is filled with zeros without being read.
    /// @return how many; absent on a read error (`error` is the system's number)
    [[nodiscard]] std::optional<std::size_t> readAt(std::uint64_t offset, std::span<char> room,
                                                    int& error) const;

    /// Copies what the file holds now into a file without a name (mode 0600, gone with its
    /// descriptor): by reference where the file system can do that, else byte for byte. What is
    /// added to the file meanwhile is not part of the copy; of a file that holds more than its size
    /// says, as those of /proc do, the copy has all, up to kMostUnstated bytes.
    /// @param folder where the copy lies when the file system of this file is another one or takes
    ///        none
    /// @param goOn asked between pieces
    /// @return absent when there is no room, goOn said no (`error` is then ECANCELED), or there is
    ///         still more than the size says and that (EFBIG)
    template <class GoOn>
    [[nodiscard]] std::optional<SourceFile> copyAside(const std::filesystem::path& folder,
                                                      GoOn goOn, int& error) const
    {
        auto copy = emptyIn(folder, error);
        if (!copy || referTo(*copy))
            return copy;
        const auto now = state();
        if (!now) {
            error = kUnreadable;
            return std::nullopt;
        }
        std::string room(kCopyPiece, '\0');
        for (std::uint64_t at = 0; at < now->size || state() == now;) {
            if (!goOn()) {
                error = kCancelled;
                return std::nullopt;
            }
            const std::uint64_t left = at < now->size ? now->size - at : kCopyPiece;
            room.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kCopyPiece, left)));
            const auto count = readAt(at, room, error);
            if (!count || !copy->writeAt(at, {room.data(), *count}, error))
                return std::nullopt;
            if (*count == 0) // its end, or it was cut meanwhile
                break;
            at += *count;
            if (at > now->size + kMostUnstated) {
                error = kTooLarge;
                return std::nullopt;
            }
        }
        return copy;
    }
    static constexpr std::uint64_t kMostUnstated = 256U << 20;

    /// A new file without a name, to be filled with writeAt(). @return absent: see `error`
    [[nodiscard]] static std::optional<SourceFile> emptyIn(const std::filesystem::path& folder,
                                                           int& error);
    [[nodiscard]] bool writeAt(std::uint64_t offset, std::string_view bytes, int& error);

    [[nodiscard]] int descriptor() const { return file_.number(); }

private:
    static constexpr std::size_t kCopyPiece = 1U << 20;
    static const int kCancelled;
    static const int kUnreadable;
    static const int kTooLarge;
    explicit SourceFile(FileDescriptor file) : file_(std::move(file)) {}
    [[nodiscard]] bool referTo(SourceFile& copy) const;

    FileDescriptor file_;
};

} // namespace stowline::platform
