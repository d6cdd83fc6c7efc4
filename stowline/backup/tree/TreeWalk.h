// Walking file trees: every item once, by open folders, in walking order.
#pragma once

#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/backup/tree/TreeRules.h"
#include "stowline/platform/files/FolderHandle.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stowline::backup {

/// An item that is to be backed up.
struct FoundItem {
    ItemRecord item; ///< without extended attributes: see readAttributes()
    /// The folder it is in, open; with nameOf(item.path) it leads to the item without following a
    /// link. Holding it holds a descriptor. Null for "/".
    std::shared_ptr<const platform::FolderHandle> folder;
    /// Of a file with several names: the first one that this walk found, which carries the content.
    /// Empty for that one and for all else.
    std::string sameFileAs;
    bool isNamed = false; ///< the user named it (or it is what a named link leads to)
    bool isPassage =
        false; ///< a folder on the way to what is named: described, not backed up whole
    bool isOnNetwork = false; ///< on a network or FUSE file system
    /// Of a passage: the rule that leaves it out, but for what is named below it. WalkResult
    /// counts it among the passages.
    std::optional<Exclusion> leftOut;
};

/// Completes an item with its extended attributes.
/// @return absent when that is done, else why it cannot be
[[nodiscard]] std::optional<std::string> readAttributes(FoundItem& found);

struct WalkFailure {
    std::string path;
    std::string reason;    ///< the system's, or a sentence's end: "Permission denied"
    bool isFolder = false; ///< nothing, or not everything, below it could be looked at
    bool isNamed = false;
};

/// What a folder turned out to hold, told after everything below it; of every folder that was
/// opened, be it found, a passage, or failed because it could not be listed to its end.
struct FolderEnd {
    std::string path;
    std::uint64_t names = 0; ///< listed in it, whatever became of them
    bool isNamed = false;
    bool isPassage = false; ///< only what leads to a named path was looked at
    bool isLeftOut = false; ///< a passage that a rule leaves out: nothing else in it is wanted
    bool isComplete = true; ///< listed to its end: what was not told is not in it
};

/// Takes what a walk meets. Called in the walking thread; taking its time makes the walk wait. Each
/// name is told exactly once, by found(), excluded(), failed() or vanished(); the order is that of
/// comparePaths(), but named paths that lead nowhere come first.
class WalkObserver {
public:
    virtual ~WalkObserver() = default;
    virtual void found(FoundItem found) = 0;
    /// What lies below an excluded folder is not looked at.
    virtual void excluded(const std::string& path, ItemKind kind, const Exclusion& why) = 0;
    virtual void failed(const WalkFailure& failure) = 0;
    /// Listed in its folder, but not there any more when it was looked at: never part of the
    /// backup, and no failure. (A named path that is not there is one.)
    virtual void vanished(const std::string& path) = 0;
    virtual void left(const FolderEnd& folder) = 0;
};

struct WalkOptions {
    /// Files, folders, links, anything; absolute or from the working directory; one inside another
    /// or named twice is taken once. A link, named or on the way, is recorded as such and followed:
    /// what it leads to is taken as if it were named by its real path, so that no recorded path
    /// goes through a link. The folders above are told as passages, so that a restore can put back
    /// their modes.
    std::vector<std::string> paths;
    TreeRules rules;
    std::vector<std::string> ownFolders; ///< left out wherever they are met
};

struct WalkResult {
    std::uint64_t found = 0; ///< passages aside
    std::uint64_t passages = 0;
    std::uint64_t excluded = 0;
    std::uint64_t failed = 0;
    std::uint64_t vanished = 0;
    bool isStopped = false; ///< a StopRequest ended it: what was not told is unknown
    /// The patterns of the rules (TreeRules::ownPattern) that nothing matched.
    std::vector<std::string> idlePatterns;
};

/// Walks. Holds the names of the folders between the top and the present item in memory, and no
/// more than some twenty descriptors however deep it goes; of files with several names, their first
/// one until all have been met.
/// @throws std::bad_alloc, and what the observer throws
[[nodiscard]] WalkResult walkTree(const WalkOptions& options, WalkObserver& observer,
                                  const platform::StopRequest& stop);

} // namespace stowline::backup
