// Backing up: what is below the named paths is looked at, what is new or changed is stored.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/RunLoss.h"
#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/platform/threads/StopRequest.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// Which items below the named paths are taken. Patterns are those of .gitignore files; see Pattern
/// in tree/TreeRules.h.
struct BackupRules {
    std::vector<std::string> include; ///< when there are any, files must match one
    std::vector<std::string> exclude; ///< folders too, with everything in them
    std::string excludeLines;         ///< of a file of patterns, one a line
    bool skipsHidden = false;
    bool staysOnFileSystem = false; ///< of each named path
    bool skipsCaches = false;       ///< folders tagged CACHEDIR.TAG
};

/// What is wrong with the patterns, in a sentence; absent when nothing is.
[[nodiscard]] std::optional<std::string> faultIn(const BackupRules& rules) noexcept;

/// What a run is to do. A plain value.
struct BackupRequest {
    Account account;
    ChainIdentity identity;
    /// Where index, journal and copies of changing files lie (mode 0700); made when missing.
    std::filesystem::path stateFolder;
    /// Absolute or relative to the current folder; a link that is named is followed.
    std::vector<std::string> paths;
    BackupRules rules;
    std::size_t jobs = 4;             ///< files on their way at the same time
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
    std::uint64_t partBytes = 4U << 20;
    /// How long to try one part, one registration, one question again.
    std::chrono::steady_clock::duration budgetPerStep = std::chrono::minutes(5);
    bool ignoresCtime = false;  ///< for file systems whose times of status lie
    bool ignoresInode = false;  ///< for file systems whose inodes change
    bool trustsNothing = false; ///< reads and compares every content
    /// Patterns as in the rules, or of whole paths: files that may change while they are read
    /// without the run ending as one in which something failed.
    std::vector<std::string> allowChanging;
    bool rebuildsIndex = false;
    bool isDryRun = false;                 ///< looks and decides, stores nothing
    bool adoptsChain = false;              ///< goes on where another machine of this name stopped
    bool registersWithProtectFile = false; ///< instead of "protect2"
    /// Stores what comes from this descriptor under this name, in place of any path; -1: no.
    int streamDescriptor = -1;
    std::string streamName; ///< an absolute path, or a name, which is then below "/stdin"
    /// A run that takes longer stores what it has come to, again and again, marked as unfinished.
    std::chrono::steady_clock::duration betweenRecords = std::chrono::minutes(30);
    /// Only what earlier runs of this account, machine, user and profile began. No path is needed.
    bool resumesOnly = false;
};

enum class ItemState {
    stored,     ///< sent and registered in this run
    unchanged,  ///< its content is on the service already
    recorded,   ///< described, without content: folders, links, pipes, devices, further hard links
    excluded,   ///< by a rule
    failed,     ///< not looked at, not read or not stored
    wouldStore, ///< in a dry run
};

/// The name of a state in output: "stored", "would-store".
[[nodiscard]] const char* nameOf(ItemState state);

/// What came of one item.
struct ItemReport {
    std::string path;
    ItemState state = ItemState::failed;
    ItemKind kind = ItemKind::file;
    std::uint64_t bytes = 0; ///< of a file's content, as far as it is known
    /// Of a failed item a sentence with its path; of an excluded one the rule.
    std::string cause;
    bool changedWhileRead = false; ///< stored, but mixing several states of the file
    bool wasResumed = false;       ///< gone on with from an earlier run
};

/// How far a run is.
struct BackupProgress {
    std::uint64_t foundItems = 0;
    std::uint64_t doneItems = 0;
    std::uint64_t foundBytes = 0;
    std::uint64_t doneBytes = 0; ///< of items that are done and of parts that are confirmed
    std::uint64_t sentBytes = 0;
    bool isWalkOver = false; ///< only then are the found ones all there are
    std::string activity;    ///< what is done just now, for people: "asks for the records", a path
};

/// Told of a run while it goes on. One call at a time, from any thread; what it throws is lost. It
/// must not wait for the run.
class BackupObserver {
public:
    virtual ~BackupObserver() = default;
    virtual void itemDone(const ItemReport& /*report*/) {}
    /// About ten times a second, in the thread of runBackup().
    virtual void progress(const BackupProgress& /*progress*/) {}
    /// A sentence that people should know: the index was made anew, a file system was left out.
    virtual void note(const std::string& /*sentence*/) {}
};

enum class BackupEnd {
    done,         ///< nothing failed
    someFailed,   ///< what did not is stored
    nothingThere, ///< nothing that was named is there
    interrupted,  ///< by the StopRequest; the next run goes on
    locked,       ///< another run of this user and profile is under way
    badRequest,   ///< one of its patterns is not a pattern
    stateFolder,  ///< it cannot be made, read or written
    temporary,    ///< the service did not answer, or could not, until the time was used up
    refused,      ///< the service said no
    otherMachine, ///< the name has records of another machine: see adoptsChain
    rolledBack,   ///< the service shows older records than this machine has seen
    failed,       ///< anything else
};

/// What a run came to. found == stored + unchanged + recorded + excluded + failed (+ wouldStore),
/// unless it was interrupted.
struct BackupSummary {
    BackupEnd end = BackupEnd::failed;
    std::string sentence; ///< why, unless it is done; for people
    std::uint64_t found = 0;
    std::uint64_t stored = 0;
    std::uint64_t resumed = 0; ///< of those stored, gone on with from an earlier run
    std::uint64_t unchanged = 0;
    std::uint64_t recorded = 0;
    std::uint64_t excluded = 0; ///< a folder that a rule leaves out counts as one
    std::uint64_t failed = 0;
    std::uint64_t wouldStore = 0;
    std::uint64_t carriedForward = 0; ///< kept in the record as an earlier run saw them
    std::uint64_t changedWhileRead = 0;
    std::uint64_t vanishedVersions = 0; ///< that the service was found not to hold any more
    std::uint64_t stillLost = 0;        ///< of these, those of files that this run did not look at
    std::uint64_t storedBytes = 0;
    std::uint64_t unchangedBytes = 0;
    std::uint64_t failedBytes = 0; ///< as far as they are known
    std::uint64_t wouldStoreBytes = 0;
    std::uint64_t sentParts = 0;
    double seconds = 0;
    double registrationSeconds = 0; ///< of all jobs together
    std::uint64_t run = 0;          ///< number of its record; 0: none was stored
    /// What the record holds, as listRuns() tells it: what was found or carried forward, and the
    /// folders above what was named, but nothing that was excluded.
    std::uint64_t recordItems = 0;
    std::uint64_t recordBytes = 0;
    std::string recordDigest; ///< SHA-256 of the record, hexadecimal
    /// What this run and earlier ones found gone, and nobody has confirmed (runForget()); the
    /// oldest first. Known once there is a record.
    std::vector<RunLoss> losses;
    std::vector<ItemReport> failures; ///< the first thousand
};

/// Runs one backup to its end. Blocks; nothing is thrown. One at a time for a state folder and
/// profile, over all processes; several profiles may run side by side.
/// @param stop ends the run within two seconds; what is stored by then stays stored
[[nodiscard]] BackupSummary runBackup(const BackupRequest& request, BackupObserver& observer,
                                      const StopRequest& stop) noexcept;

/// Notes that a person had the service delete a folder of a machine: what it does not hold below it
/// any more, and no run looks at, is no loss for the next runs, but not part of the backup any
/// more. Takes also for what noteDeletedVersions() is for. Nothing is thrown.
/// @param folder as an item's path
void noteDeletedFolder(const std::filesystem::path& stateFolder, const Account& account,
                       const std::string& folder) noexcept;

/// Notes that stored versions were deleted, or found to be lost: the next run of each profile asks
/// the service after all that it relies on, and not after some. Where the note cannot be kept the
/// runs find out by and by. Nothing is thrown.
/// @param stateFolder where there is none there is nothing to note
/// @param damaged versions whose bytes were read and are not what was stored, whatever the service
///        says of them: they are sent again
void noteDeletedVersions(const std::filesystem::path& stateFolder,
                         std::span<const std::string> damaged = {}) noexcept;

/// Where lists and the like of a profile's runs may be kept, besides what the engine keeps there:
/// the state folder itself of the profile "default", else a folder in it.
[[nodiscard]] std::filesystem::path profileFolder(const std::filesystem::path& stateFolder,
                                                  const std::string& profile);

} // namespace stowline::backup
#pragma GCC visibility pop
