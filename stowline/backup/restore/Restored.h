// What a restore is asked for, and what it tells of each item.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/tree/ItemRecord.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// What happens to a file that is there already and has another content.
enum class Overwrite {
    ifChanged, ///< it is replaced, unless the run could not look at the item and has what an
               ///< earlier run saw
    always,    ///< it is replaced, also when its content is right
    ifNewer,   ///< it is replaced when the stored one was modified later
    never,     ///< it stays as it is
};

/// What is to be put back. A plain value.
struct RestoreRequest {
    RunChoice choice;
    /// Stored items, absolute: "/" is the whole machine.
    std::vector<std::string> paths;
    /// "/a/b" becomes "b" in it; made when missing. Absent: each goes where it was.
    std::optional<std::filesystem::path> target;
    /// Patterns as those of a backup (BackupRules); with a slash they count from each of the paths.
    std::vector<std::string> include; ///< when there are any, files or folders above must match one
    std::vector<std::string> exclude; ///< folders too, with everything in them
    std::set<std::string> onlyPaths;  ///< when there are any, items of exactly these paths
    Overwrite overwrite = Overwrite::ifChanged;
    bool restoresDevices = false;
    /// What stands in the folders that are put back and was not in the run is deleted, once all
    /// that is named is in place and nothing has failed. Never what the run's rules left out or may
    /// have left out, what it did not look at, what the patterns here leave out, and what is
    /// mounted. A run that cannot tell is refused before anything is put back.
    bool deletesOthers = false;
    bool isDryRun = false;
    std::size_t jobs = 4;             ///< files on their way at the same time
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
    std::uint64_t partBytes = 4U << 20;
};

enum class RestoredState {
    restored,     ///< put there, or put right
    unchanged,    ///< it was right already
    skipped,      ///< left as it is, by the request's rules
    failed,       ///< not put back; what stood there stands
    wouldRestore, ///< in a dry run
    deleted,      ///< it was not in the run (RestoreRequest::deletesOthers)
    wouldDelete,  ///< the same in a dry run
};

/// The name of a state in output: "would-restore".
[[nodiscard]] const char* nameOf(RestoredState state);

/// What of an item does not come back, although the item does.
enum class LossKind {
    owner,
    group,
    setId,
    capabilities,
    attribute,
    mode,
    time,
    device,
    hardLink, ///< it is a file of its own
};

struct Loss {
    LossKind kind = LossKind::owner;
    /// This user may not put it back, or did not ask for it; else the target does not take it.
    bool isNotAllowed = false;
    std::string sentence; ///< about this item
};

/// What of all items does not come back, kind by kind.
struct LossCount {
    LossKind kind = LossKind::owner;
    bool isNotAllowed = false;
    std::uint64_t items = 0;
    std::string sentence; ///< for people; of more than one it names the first
};

/// What came of one item.
struct RestoredItem {
    std::string path; ///< as it is stored; of what is deleted, where it stood
    ItemKind kind = ItemKind::file;
    RestoredState state = RestoredState::failed;
    std::uint64_t bytes = 0;         ///< of a file's content
    bool isMetadataOnly = false;     ///< of a restored one: its content or kind was right
    bool isBadContent = false;       ///< failed because the service has not what was stored
    std::string badVersion;          ///< on the service, of which that was found; else empty
    bool isTemporary = false;        ///< failed because the service did not answer in time
    std::vector<std::string> faults; ///< sentences: why it failed; why it is left as it is, where
                                     ///< the request does not say so
    std::vector<Loss> losses;        ///< what of it could not be put back; of a skipped device: it
};

} // namespace stowline::backup
#pragma GCC visibility pop
