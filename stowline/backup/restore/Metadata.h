// Putting back what an item has besides its content.
#pragma once

#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/platform/files/TargetFolder.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace stowline::backup {

/// Owners by name where this machine knows the name, else by number. Any thread.
class Owners {
public:
    [[nodiscard]] std::uint32_t owner(const ItemRecord& item);
    [[nodiscard]] std::uint32_t group(const ItemRecord& item);

private:
    std::mutex mutex_;
    std::map<std::string, std::optional<std::uint32_t>> users_;
    std::map<std::string, std::optional<std::uint32_t>> groups_;
};

struct MetadataOutcome {
    bool hasChanged = false; ///< something was not as it should be
    std::vector<Loss> losses;
    std::string fault; ///< the item cannot be looked at; else empty
};

/// The extended attribute that a file which is being gathered bears, where the file system keeps
/// any.
inline constexpr const char* kGatheringMark = "user.stowline.gathering";

/// Makes owner, mode, extended attributes and times of an item those of a record. Set-id bits and
/// capabilities come only together with the owner.
/// @param name in the folder; empty: the folder itself
/// @param keepsMark whether kGatheringMark stays
[[nodiscard]] MetadataOutcome putMetadata(const platform::TargetFolder& folder,
                                          const std::string& name, const ItemRecord& item,
                                          Owners& owners, bool keepsMark = false);

/// Whether putMetadata() would find something that is not as it should be. Nothing is changed.
[[nodiscard]] bool isMetadataOther(const platform::TargetFolder& folder, const std::string& name,
                                   const ItemRecord& item, Owners& owners);

} // namespace stowline::backup
