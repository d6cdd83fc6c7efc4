// The folder that keeps the service's data.
#pragma once

#include <filesystem>

namespace stowline::devserver {

/// Makes the folder, if need be, and the databases in it, and has nobody but their owner read them,
/// whatever they were made with. A folder that holds other things than this service's keeps its
/// mode: only what is put into it is private then.
/// @return false when it cannot be made
[[nodiscard]] bool prepareDataFolder(const std::filesystem::path& folder);

} // namespace stowline::devserver
