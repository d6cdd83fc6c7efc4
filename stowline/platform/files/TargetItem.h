// One item in a folder that is restored into, held by a descriptor: whatever is renamed meanwhile,
// its owner, mode, times and attributes are put on this very item, and on nothing else that has
// taken its name.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

struct stat;

namespace stowline::platform {

enum class TargetKind { file, folder, link, pipe, socket, characterDevice, blockDevice };

/// What stands under a name; times in seconds and nanoseconds since 1970.
struct TargetStatus {
    TargetKind kind = TargetKind::file;
    std::uint64_t size = 0;
    std::uint32_t mode = 0; ///< 07777
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::int64_t modifiedSeconds = 0;
    std::uint32_t modifiedNanoseconds = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t links = 1;
    std::uint64_t deviceNumber = 0;
};

/// Whether both are of the very same item, as far as device and inode tell.
[[nodiscard]] bool isOneItem(const TargetStatus& one, const TargetStatus& other);

/// Absent for a kind of item that no folder holds.
[[nodiscard]] std::optional<TargetStatus> targetStatusFrom(const struct ::stat& found);
/// Of an open item.
[[nodiscard]] std::optional<TargetStatus> targetStatusOf(int descriptor);

/// Operations that return int return 0 or the system's error number. Several threads may use one.
class TargetItem {
public:
    enum class Descriptor {
        open,     ///< for reading or writing
        pathOnly, ///< stands for an item of any kind, a link too, which may not be opened (O_PATH)
    };
    TargetItem(FileDescriptor item, Descriptor kind) : item_(std::move(item)), kind_(kind) {}

    [[nodiscard]] std::optional<TargetStatus> status() const;
    /// Of a link that is held by its path.
    [[nodiscard]] std::optional<std::string> linkTarget() const;

    [[nodiscard]] int setOwner(std::uint32_t owner, std::uint32_t group) const;
    /// @return EOPNOTSUPP for a link
    [[nodiscard]] int setMode(std::uint32_t mode) const;
    /// The time of access stays what it is.
    [[nodiscard]] int setModified(std::int64_t seconds, std::uint32_t nanoseconds) const;

    using Attributes = std::map<std::string, std::string>;
    /// Extended attributes; none where the file system keeps none.
    [[nodiscard]] std::optional<Attributes> attributes(int& error) const;
    [[nodiscard]] int setAttribute(const std::string& attribute, std::string_view value) const;
    [[nodiscard]] int removeAttribute(const std::string& attribute) const;

private:
    friend class TargetFolder; // gives it another name
    [[nodiscard]] bool isPathOnly() const { return kind_ == Descriptor::pathOnly; }
    /// For calls that do not take a descriptor that is only a path.
    [[nodiscard]] std::string path() const;

    FileDescriptor item_;
    Descriptor kind_;
};

} // namespace stowline::platform
