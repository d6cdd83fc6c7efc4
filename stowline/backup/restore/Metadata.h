// Putting back what an item has besides its content.
#pragma once

#include "stowline/backup/restore/Restored.h"
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

/// Whether a record gives an item set-id bits or capabilities.
[[nodiscard]] bool hasPrivileges(const ItemRecord& item);

struct PutOptions {
    bool keepsMark = false;           ///< kGatheringMark stays
    bool withholdsPrivileges = false; ///< set-id bits and capabilities are left to a later time
};

/// Makes owner, mode, extended attributes and times of an item those of a record. Set-id bits and
/// capabilities come only together with the owner.
[[nodiscard]] MetadataOutcome putMetadata(const platform::TargetItem& target,
                                          const ItemRecord& item, Owners& owners,
                                          PutOptions options = {});

/// Whether putMetadata() would find something that is not as it should be. Nothing is changed.
[[nodiscard]] bool isMetadataOther(const platform::TargetItem& target, const ItemRecord& item,
                                   Owners& owners);
/// The same of what stands under a name in a folder; with an empty one, of the folder itself.
[[nodiscard]] bool isMetadataOther(const platform::TargetFolder& folder, const std::string& name,
                                   const ItemRecord& item, Owners& owners);

} // namespace stowline::backup
