// What a desktop makes of an item on disk.
#pragma once

#include <optional>
#include <string>

namespace stowline::platform {

struct ItemFlags {
    bool isPlainFile = false; ///< a regular file; no folder, link, device, pipe or socket
    bool isPackage = false;   ///< a folder that is shown to people as one file
    bool isInvisible = false; ///< not shown by file managers
};

/// itemFlags().isPlainFile alone, for the price of one look.
[[nodiscard]] bool isPlainFile(const std::string& path);

/// Flags of the item itself; a link is not followed. Any thread.
///
/// A package is a folder whose name ends in one of the well-known bundle extensions, in any case.
/// Invisible is what begins with a full stop and what the file ".hidden" beside it lists (one name
/// a line), as desktop file managers have it.
/// @return absent when there is no such item
[[nodiscard]] std::optional<ItemFlags> itemFlags(const std::string& path);

} // namespace stowline::platform
