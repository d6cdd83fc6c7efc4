// Taking away what a run did not hold: never what its rules may have left out, never beyond the
// file system of the folder, never a thing of which the run says nothing.
#pragma once

#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/tree/TreeRules.h"
#include "stowline/platform/files/TargetFolder.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stowline::backup {

/// Decides what of a folder that was put back goes, and deletes it. One thread.
class Pruning {
public:
    /// @param head of the run's record
    /// @param items of the run; must outlive this
    /// @param ownState the folder in which backups keep their state, which stays; absent: none
    Pruning(const RecordHead& head, const ItemIndex& items,
            const std::optional<std::filesystem::path>& ownState);

    /// Why this run cannot say what it did not hold, in a sentence; absent when it can. It must be
    /// finished, nothing may have failed in it, and of its rules only exclude patterns and
    /// --one-file-system can be followed here.
    [[nodiscard]] const std::optional<std::string>& refusal() const { return refusal_; }

    /// Deletes what stands in a folder and is not in the run. Only at or below what the run was
    /// told to back up; on a file system that does not tell "a" from "A", nothing.
    /// @param path of the folder in the run
    /// @param isDryRun says what would be deleted
    /// @param tell of each item that was, would be, or could not be deleted; of a folder, of what
    /// is
    ///        in it too, first
    /// @param stop ends it
    /// @return whether anything was or would be deleted
    bool prune(const platform::TargetFolder& folder, const std::string& path, bool isDryRun,
               const std::function<void(RestoredItem)>& tell, const StopRequest& stop) const;

private:
    /// How a subtree ends.
    enum class Outcome { gone, stays };
    struct Walk {
        bool isDryRun = false;
        const std::function<void(RestoredItem)>& tell;
        const StopRequest& stop;
        std::uint64_t device = 0; ///< of the folder that is pruned
    };

    [[nodiscard]] bool isAtOrBelowNamed(const std::string& path) const;
    [[nodiscard]] bool isLeftOut(const std::string& path, bool isFolder) const;
    [[nodiscard]] bool isOwnState(const platform::TargetStatus& status) const;
    [[nodiscard]] Outcome remove(const platform::TargetFolder& folder, const std::string& name,
                                 const std::string& path, const Walk& walk) const;
    [[nodiscard]] Outcome removeTree(const platform::TargetFolder& folder, const std::string& name,
                                     const std::string& path, const Walk& walk) const;

    const ItemIndex& items_;
    std::vector<std::string> named_; ///< what the run was told to back up, links followed
    TreeRules rules_;
    std::optional<std::string> refusal_;
    std::optional<platform::TargetStatus> ownState_;
};

} // namespace stowline::backup
