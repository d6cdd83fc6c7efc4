// What the walk finds, on its way to the index, the jobs and the accounts.
#pragma once

#include "stowline/backup/FileJobs.h"
#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunIndex.h"
#include "stowline/backup/index/Comparison.h"
#include "stowline/backup/tree/ShortList.h"
#include "stowline/backup/tree/TreeWalk.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// Each item ends in the accounts here, or is handed to the jobs. What the index knows and the walk
/// did not meet has vanished, or is kept as stale where the walk could not look. One thread. Throws
/// IndexFault.
class TreeIntake : public WalkObserver {
public:
    /// @param rules those of the walk, for the record (packedRules)
    /// @param onPackage told of a folder that people are shown as one file, when files in it are
    ///        to be sent, with the bytes of all its files
    TreeIntake(RunIndex& index, RunAccounts& accounts, FileJobs& jobs, ComparisonOptions options,
               std::string rules, StopRequest walk,
               std::function<void(const std::string& path, std::uint64_t bytes)> onPackage)
        : index_(index), accounts_(accounts), jobs_(jobs), options_(options),
          rules_(std::move(rules)), walk_(std::move(walk)), onPackage_(std::move(onPackage))
    {
    }

    void found(FoundItem found) override;
    void excluded(const std::string& path, ItemKind kind, const Exclusion& why) override;
    void failed(const WalkFailure& failure) override;
    void vanished(const std::string& /*path*/) override {} // not met
    void left(const FolderEnd& folder) override;

    /// Whether everything that failed is a named path at which there is nothing.
    [[nodiscard]] bool foundNothing() const { return missing_ > 0 && !metAnything_; }

    /// Tells which file systems were left out. After the walk.
    void tellFileSystems();

private:
    /// A folder that is being walked.
    struct Frame {
        std::string path;
        std::vector<StoredItem> known; ///< by name
        std::vector<bool> isMet;
        std::vector<PlaceNote> notes; ///< by name
        std::vector<bool> isNoteMet;
        /// A named folder, and one on which a disk was mounted, waits for what is in it.
        std::optional<FoundItem> waiting;
        bool lostItsDisk = false; ///< it was a mount point and is none any more
        bool wasMissing = false;  ///< and an earlier run has noticed: what it held is stale
        bool isDiskMissing =
            false; ///< next to nothing of what it, or a folder above, held is there
        std::uint64_t heldItems = 0; ///< by the disk
        std::uint64_t bytes = 0;     ///< of the files below it
        bool hasFilesToSend = false;
    };

    Frame& frameOf(const std::string& folder);
    [[nodiscard]] std::optional<StoredItem> meet(const std::string& path);
    void takeNote(const FoundItem& found);
    [[nodiscard]] const PlaceNote* noteOf(const std::string& path) const;
    void takeFile(FoundItem found, const std::optional<StoredItem>& known, Decision decision);
    void record(FoundItem found);
    void notePassage(FoundItem found);
    /// @return false when it failed: that is told
    [[nodiscard]] bool describe(FoundItem& found);
    void fail(const std::string& path, ItemKind kind, const std::string& cause);
    void carryForward(const std::string& path);
    void leaveUnmet(const Frame& frame, bool isComplete);
    void failMissingDisk(const Frame& frame, const FolderEnd& folder);
    [[nodiscard]] static bool wasOnDisk(const Frame& frame, const StoredItem& item);
    [[nodiscard]] bool isOnMissingDisk(const StoredItem& item) const;
    [[nodiscard]] std::uint64_t countHeld(const std::string& folder, bool wasMissing);
    [[nodiscard]] bool holdsNextToNothing(const std::string& folder, bool wasMissing);
    [[nodiscard]] static bool isMissingDisk(const Frame& frame, const FolderEnd& folder);
    [[nodiscard]] bool recordWaiting(Frame& frame);

    RunIndex& index_;
    RunAccounts& accounts_;
    FileJobs& jobs_;
    const ComparisonOptions options_;
    const std::string rules_;
    const StopRequest walk_;
    const std::function<void(const std::string& path, std::uint64_t bytes)> onPackage_;
    std::vector<Frame> frames_;
    std::uint64_t missing_ = 0;
    ShortList pseudo_; ///< left out as pseudo file systems
    ShortList mounts_; ///< left out as other file systems
    bool metAnything_ = false;
};

} // namespace stowline::backup
