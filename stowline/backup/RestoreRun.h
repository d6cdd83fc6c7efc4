// Getting back: what a run found is put below a folder, or back where it was.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/restore/Restored.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

struct RestoreProgress {
    std::uint64_t doneItems = 0;
    std::uint64_t doneBytes = 0; ///< of content that is in place or on its way
    std::uint64_t foundItems = 0;
    std::uint64_t foundBytes = 0;
    bool isWalkOver = false; ///< only then are the found ones all there are
};

/// Told of a restore while it goes on. One call at a time, from any thread. It must not wait for
/// the restore.
class RestoreObserver {
public:
    virtual ~RestoreObserver() = default;
    /// What the run holds of an item, before it is put back.
    virtual void itemFound(const StoredItem& /*stored*/) {}
    virtual void itemDone(const RestoredItem& /*item*/) {}
    virtual void progress(const RestoreProgress& /*progress*/) {}
    /// Asked once, when all is in place and so many items are to be deleted, of which the second
    /// argument tells where the first three stand; may take its time, but ends when the restore is
    /// asked to stop. @return whether it may be
    virtual bool mayDelete(std::uint64_t /*items*/, const std::vector<std::string>& /*first*/)
    {
        return true;
    }
};

/// What a restore came to. found == restored + unchanged + skipped + failed (+ wouldRestore),
/// unless it was interrupted.
struct RestoreSummary {
    ReadEnd end = ReadEnd::failed;
    std::string sentence;  ///< why, unless it is done; for people
    std::uint64_t run = 0; ///< that was read; 0: none
    RunOrigin origin;
    std::uint64_t found = 0;
    std::uint64_t restored = 0;
    std::uint64_t unchanged = 0;
    std::uint64_t skipped = 0;
    std::uint64_t failed = 0;
    std::uint64_t wouldRestore = 0;
    std::uint64_t seenEarlier = 0; ///< of those found: the run has them as an earlier one saw them
    std::uint64_t deleted = 0;     ///< these are not among those found
    std::uint64_t wouldDelete = 0; ///< in a dry run
    std::uint64_t notDeleted = 0;  ///< that was not in the run, and could not be deleted
    std::uint64_t badContent = 0;  ///< of those failed
    std::uint64_t incomplete = 0;  ///< put back, but the target does not take all of their metadata
    std::uint64_t withheld = 0; ///< put back, but this user may not put back all of their metadata
    std::vector<LossCount> losses;
    std::vector<std::string> notes; ///< sentences that people should know, besides those of origin
    std::uint64_t bytes = 0;        ///< of content put in place
    std::uint64_t fetchedBytes = 0;
    double seconds = 0;
};

/// Puts back to the end. Blocks; nothing is thrown. Interrupted at any moment, even by a kill, it
/// leaves no half file under a final name, and the same request goes on where it stopped. What it
/// tells as restored is durable. Links are never followed below the target.
/// @param stop ends it within two seconds
[[nodiscard]] RestoreSummary runRestore(const RestoreRequest& request, RestoreObserver& observer,
                                        const StopRequest& stop) noexcept;

/// Hands a stored file's content to a function that returns whether it wants more; links are
/// followed as the run recorded them. Nothing is thrown. The digest is known to be right only when
/// the end is `done`.
struct ContentSummary {
    ReadEnd end = ReadEnd::failed;
    std::string sentence;
    std::uint64_t bytes = 0;
    RunOrigin origin;
};
[[nodiscard]] ContentSummary readStoredFile(const RunChoice& choice, const std::string& path,
                                            const std::function<bool(std::string_view)>& take,
                                            const StopRequest& stop) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
