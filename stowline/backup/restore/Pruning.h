// Taking away what a run did not hold: never what its rules may have left out or what it could not
// look at, never through a mount or a link, never a thing of which the run says nothing.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/restore/Absence.h"
#include "stowline/backup/restore/Metadata.h"
#include "stowline/backup/restore/Restored.h"
#include "stowline/backup/restore/Selection.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stowline::backup {

/// First looks at all that was put back and plans, then deletes what was planned and nothing else.
/// One thread. Throws IndexFault.
class Pruning {
public:
    /// A tree that was put back.
    struct Tree {
        Selection selection;
        std::filesystem::path root; ///< the folder that the named path's last name went into
        platform::TargetStatus rootStatus;
    };

    /// @param items of the run
    /// @param patterns of the request; must outlive this, as everything else that is given
    Pruning(const RestoreRequest& request, const RecordHead& head, const ItemIndex& items,
            const TreeRules& patterns, Owners& owners);

    /// As refusalToDelete(). Nothing is changed.
    [[nodiscard]] std::optional<std::string> refusal(const Selection& selection,
                                                     const std::filesystem::path& root);

    /// Plans for the trees, once all of them are in place.
    /// @param failed of what can be neither deleted nor looked at
    /// @param stop ends it
    void plan(std::vector<Tree> trees, const std::function<void(RestoredItem)>& failed,
              const StopRequest& stop);

    /// How many items would go.
    [[nodiscard]] std::uint64_t planned() const { return doomed_.size(); }
    /// Where the first three of them stand.
    [[nodiscard]] std::vector<std::string> firstPlanned() const;

    /// Of what stays though the run does not hold it, and why: sentences for people.
    [[nodiscard]] std::vector<std::string> reasonsToStay() const;

    /// Tells what is planned, as it would be deleted.
    void tellPlan(const std::function<void(RestoredItem)>& tell) const;

    /// Deletes what is planned, unless it has changed or another item has taken its place; then
    /// what is in the folders that stay has its times again.
    /// @param tell of each item that was deleted, or could not be
    void carryOut(const std::function<void(RestoredItem)>& tell, const StopRequest& stop);

private:
    using Place = Absences::Place;
    enum class Stays { leftOut, notLookedAt, otherMount, ownState, patterns, inUse, sameName };

    /// A folder in the tree that is being planned for.
    struct Frame {
        Place place;
        bool isBarred = false; ///< nothing at or below it goes, whatever the run says
    };
    /// Where items go from.
    struct Folder {
        std::size_t tree = 0;
        std::string below; ///< the tree's topmost folder; empty: that one
    };
    struct Doomed {
        std::size_t folder = 0;
        std::string name;
        platform::TargetStatus status; ///< when it was planned
    };
    /// What goes from one folder that stays, and where in the list.
    struct Group {
        std::size_t folder = 0;
        std::size_t first = 0;
        std::size_t end = 0;
        std::string path;                             ///< of the folder in the run
        std::optional<platform::TargetStatus> status; ///< of the folder, when it was planned
    };
    /// An open folder, its number among all, and its place in the run.
    struct Where {
        const platform::TargetFolder& folder;
        std::size_t number = 0;
        const Place& place;
    };
    /// A folder whose owner was let into it, and the mode that it had.
    struct Opened {
        std::string below; ///< as in Folder
        std::uint32_t mode = 0;
    };
    struct Names; ///< in an open folder that are not held, and what is known of them

    [[nodiscard]] bool isOwnState(const platform::TargetFolder& folder,
                                  const std::vector<std::string>& names) const;
    void planTree(const Tree& tree);
    void planFolder(const Tree& tree, const StoredItem& stored, std::vector<Frame>& frames);
    [[nodiscard]] bool planBelow(const Tree& tree, const ItemRecord& item, Place& place);
    [[nodiscard]] bool isDoomed(const Where& where, const std::string& name, const Names& names);
    [[nodiscard]] bool isFolderDoomed(const Where& above, const Place& place,
                                      const std::string& name);
    [[nodiscard]] Names namesIn(const platform::TargetFolder& folder, const Place& place,
                                std::vector<std::string> listed) const;
    [[nodiscard]] bool stays(Stays reason);
    [[nodiscard]] static std::optional<platform::TargetFolder>
    enter(const platform::TargetFolder& top, const std::string& below, std::vector<Opened>& opened,
          int& error);
    void fail(const std::string& path, ItemKind kind, const std::string& why) const;

    [[nodiscard]] std::optional<platform::TargetFolder> top(const Tree& tree, int& error) const;
    [[nodiscard]] std::string onDisk(const Tree& tree, std::string_view path) const;
    [[nodiscard]] std::string onDisk(const Doomed& doomed) const;
    void carryOut(const Group& group, const platform::TargetFolder& top,
                  const platform::TargetFolder& stayed,
                  const std::function<void(RestoredItem)>& tell, const StopRequest& stop);

    const RestoreRequest& request_;
    const RecordHead& head_;
    const ItemIndex& items_;
    const TreeRules& patterns_;
    Owners& owners_;
    Absences absences_;
    std::optional<platform::TargetStatus> ownState_;

    std::vector<Tree> trees_;
    std::set<std::pair<std::uint64_t, std::uint64_t>> placed_; ///< the topmost items of all trees
    std::vector<Folder> folders_;
    std::vector<Doomed> doomed_; ///< what is in a folder before it
    std::vector<Group> groups_;
    std::map<Stays, std::uint64_t> staying_;

    // While a tree is planned for.
    std::size_t tree_ = 0;
    std::optional<platform::TargetFolder> top_;
    std::uint64_t device_ = 0;
    const std::function<void(RestoredItem)>* failed_ = nullptr;
    const StopRequest* stop_ = nullptr;
};

} // namespace stowline::backup
