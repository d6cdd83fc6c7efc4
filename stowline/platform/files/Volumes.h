// Which mounted file system an item lives on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace stowline::platform {

/// Stands for a mounted volume; 0 for none.
using VolumeNumber = std::int16_t;

/// The volume of an existing item; of a link itself, not of what it leads to.
///
/// Numbers are given to file systems (by their device number) in the order in which they are first
/// asked for, and stay the same as long as the process runs. Any thread.
/// @return 0 when there is no such item, or when 65,535 volumes have been seen
[[nodiscard]] VolumeNumber volumeNumberOf(const std::filesystem::path& item);

/// The path at which the item's volume is mounted. Of a folder that is shown at several places
/// (a bind mount) the place through which the path goes.
/// @return absent when there is no such item, or its mount cannot be seen from here
[[nodiscard]] std::optional<std::filesystem::path> mountPathOf(const std::filesystem::path& item);

/// The label of the item's volume, as the device manager knows it (/dev/disk/by-label), else the
/// last component of its mount path ("/" for the root).
/// @return absent as mountPathOf()
[[nodiscard]] std::optional<std::string> volumeNameOf(const std::filesystem::path& item);

} // namespace stowline::platform
