// The runs of a machine: which there are, what each found, and what changed from one to another.
#pragma once

#include "stowline/backup/ItemSight.h"
#include "stowline/backup/RunChoice.h"
#include "stowline/backup/index/StoredItem.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// How far a run came.
enum class RunState {
    begun,      ///< it is under way, or was cut off before it stored a record
    unfinished, ///< as begun, but there is a record of a part of it
    finished,
};

/// The name of a state in output: "finished".
[[nodiscard]] const char* nameOf(RunState state);

/// What self-tests on this machine have proven of a run.
struct RunProof {
    std::uint64_t files = 0;       ///< contents of the run, as far as self-tests know them
    std::uint64_t provenFiles = 0; ///< of these, restored and found to be what was stored, ever
    std::uint64_t lostFiles = 0;   ///< missing or damaged when they were last tested
    bool isDamaged = false;        ///< its record could not be read
    /// The whole run has been proven since then; absent: not all of it ever was.
    std::optional<Timestamp> proven;
};

/// One run as its record tells of it.
struct RunEntry {
    std::uint64_t run = 0;
    RunState state = RunState::begun;
    Timestamp begun;
    std::optional<Timestamp> ended;
    std::uint64_t items = 0;    ///< of the tree, with the folders above named paths; 0 while begun
    std::uint64_t failed = 0;   ///< that the run could not look at, read or store
    std::uint64_t newBytes = 0; ///< of content that the run stored
    std::uint64_t bytes = 0;    ///< of all content of the tree
    std::string host;
    std::string user;
    std::vector<std::string> paths; ///< what was named (of very many those that go into 1 MiB)
    std::optional<RunProof> proof;  ///< absent: no self-test on this machine has read the run
};

/// How an operation ended. Nothing is thrown by any; what the functions throw ends them as failed.
struct HistoryEnd {
    ReadEnd end = ReadEnd::failed;
    std::string sentence;  ///< why, unless it is done; for people
    std::uint64_t run = 0; ///< that was read; 0: none
    RunOrigin origin;
    RunLack earlierLack; ///< of the earlier one of two runs that were compared
    RecordTrust earlierTrust = RecordTrust::unproven;
};

/// Hands over the runs of the choice's machine, the oldest first. Costs two calls a run.
[[nodiscard]] HistoryEnd listRuns(const RunChoice& choice,
                                  const std::function<void(const RunEntry&)>& take,
                                  const StopRequest& stop) noexcept;

/// Given an item, and from when it is; returns whether to go on.
using TakeItem = std::function<bool(const StoredItem& item, const ItemSight& sight)>;

/// Hands over the items of a run at and below a path in walking order (a folder, then what is in
/// it, names by their bytes), each with the run that saw it last. The function returns whether to
/// go on.
/// @param path "/" for everything
[[nodiscard]] HistoryEnd forEachItemOfRun(const RunChoice& choice, const std::string& path,
                                          const TakeItem& take, const StopRequest& stop) noexcept;

/// Hands over the items in a folder of a run by the bytes of their names, not those below its
/// folders; of a path that is not a folder the item itself. Links on the way and at the end are
/// followed as the run recorded them. The function returns whether to go on.
[[nodiscard]] HistoryEnd forEachItemInFolder(const RunChoice& choice, const std::string& path,
                                             const TakeItem& take,
                                             const StopRequest& stop) noexcept;

/// Hands over the files at and below a path of a run whose name a person looks for: a text with "*"
/// or "?" is a pattern of the shell for the whole name, any other a part of it; the case of letters
/// does not count. The function returns whether to go on.
[[nodiscard]] HistoryEnd forEachFileNamed(const RunChoice& choice, const std::string& path,
                                          const std::string& text, const TakeItem& take,
                                          const StopRequest& stop) noexcept;

/// One difference between two runs.
struct RunDifference {
    enum class Kind {
        came,
        went,
        included,  ///< the earlier run's rules left it out; whether it was there nobody knows
        firstSeen, ///< the earlier run was not told to look there, or could not; the same
        unseen,    ///< the later one does not hold it, for nobody looked there in between
        excluded,  ///< the later run's rules leave it out; whether it is still there nobody knows
        changed,   ///< its content, its kind, or where a link leads
        metadata,  ///< owner, mode, time or extended attributes alone
    } kind = Kind::came;
    StoredItem item; ///< as in the later run; of what that does not hold, as in the earlier one
    ItemSight sight; ///< from when that is
};
[[nodiscard]] const char* nameOf(RunDifference::Kind kind);

/// Hands over what came, went and changed from one run to another: first what is in the earlier, in
/// walking order, then what came.
/// @param choice its run and time are not read
[[nodiscard]] HistoryEnd forEachDifference(const RunChoice& choice, std::uint64_t from,
                                           std::uint64_t to,
                                           const std::function<void(const RunDifference&)>& take,
                                           const StopRequest& stop) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
