// The self-test: a random sample of what all kept runs hold is really restored, and compared.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// What a self-test is to do. A plain value.
struct SelfTestRequest {
    /// Its stateFolder must be there: what was proven when is remembered in it. Its run and time
    /// are not read: every kept finished run is meant.
    RunChoice choice;
    /// How much of all contents is tested, 0 to 1. A content counts half by its share of the bytes,
    /// half by its share of the files; at 1/30 every content is tested within thirty self-tests,
    /// unless `mostBytes` holds them up.
    double share = 0;
    /// Bytes that are fetched for the sample at most. A content that is larger is never chosen, and
    /// counted as such.
    std::uint64_t mostBytes = 0;
    std::size_t jobs = 4;             ///< files on their way at the same time
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
    std::uint64_t partBytes = 4U << 20;
    bool ignoresCtime = false; ///< as the backup was told: when a live file counts as unchanged
    bool ignoresInode = false;
    /// Seconds since 1970; absent: by the system's clock.
    std::function<std::int64_t()> now;
    /// Where the sample may be put, the first one with room; empty: into the state folder, or where
    /// temporary files go. For tests.
    std::vector<std::filesystem::path> folders;
};

/// What a self-test found not to be as it should.
struct SelfTestFinding {
    enum class Kind {
        missing,  ///< the service has it no more
        damaged,  ///< what came back is not what was stored; of a record, too
        differs,  ///< stored as the run read it, but the file on disk, which nothing shows to have
                  ///< changed since, has other bytes now
        untested, ///< it could not be restored or compared, and is not proven
    } kind = Kind::untested;
    std::string path; ///< empty: the run's record
    std::uint64_t run = 0;
    std::string sentence;
};
/// "missing", "damaged", "differs", "untested".
[[nodiscard]] const char* nameOf(SelfTestFinding::Kind kind);

class SelfTestObserver {
public:
    virtual ~SelfTestObserver() = default;
    /// One call at a time, from any thread.
    virtual void found(const SelfTestFinding& /*finding*/) {}
    virtual void progress(std::uint64_t /*tested*/, std::uint64_t /*chosen*/) {}
    virtual void note(const std::string& /*sentence*/) {}
};

/// What is proven of all contents that the kept finished runs hold.
struct ProofState {
    std::uint64_t files = 0; ///< contents: versions of files
    std::uint64_t bytes = 0;
    std::uint64_t provenFiles = 0; ///< within the last thirty days
    std::uint64_t provenBytes = 0;
    std::uint64_t lostFiles = 0;       ///< found missing or damaged, now or earlier
    std::uint64_t tooLargeFiles = 0;   ///< that `mostBytes` keeps from ever being chosen
    std::uint64_t noRoomFiles = 0;     ///< others that are larger than the room to restore into
    std::uint64_t damagedRuns = 0;     ///< whose records cannot be read
    std::uint64_t newestLostFiles = 0; ///< of those lost, what the newest run holds
    bool isNewestDamaged = false;      ///< the newest run's record is one of those damaged
};

/// chosen == tested + missing + damaged + untested, records aside, unless it was interrupted or
/// could not be done.
struct SelfTestSummary {
    /// done: what was chosen is proven, if anything was, and nothing that the newest run holds is
    /// known to be lost;
    /// badContent: this self-test found something missing or damaged, whatever else happened;
    /// someFailed: something differs from the disk, is untested, or is in the newest run and was
    /// found to be lost by an earlier one; notFound: there is no finished run; anything else: it
    /// could not be done.
    ReadEnd end = ReadEnd::failed;
    std::string sentence; ///< why, unless it is done, and what else is lost; for people
    std::uint64_t chosen = 0;
    std::uint64_t tested = 0;   ///< restored and found to be what was stored
    std::uint64_t bytes = 0;    ///< of these
    std::uint64_t compared = 0; ///< of these, with the live file too
    std::uint64_t missing = 0;
    std::uint64_t damaged = 0; ///< records too
    std::uint64_t differing = 0;
    std::uint64_t untested = 0;
    std::vector<std::uint64_t> runs; ///< that contents were restored from, the oldest first
    ProofState proof;                ///< after it, however it ended

    /// Whether this self-test found something missing or damaged, or an earlier one something that
    /// the newest run holds: then no run that it follows is a good one. What only earlier runs hold
    /// cannot be stored again, and is told without making every later run a bad one.
    [[nodiscard]] bool isLossKnown() const
    {
        return missing + damaged + proof.newestLostFiles > 0 || proof.isNewestDamaged;
    }
};

/// Tests to the end. Blocks; nothing is thrown. Needs no lock of a run, but one of its own: only
/// one at a time for a state folder and profile. The temporary folder (mode 0700) is removed
/// however it ends; what a kill leaves, the next run or self-test removes. What is found to be lost
/// makes the next backup ask after everything (noteDeletedVersions()).
/// @param stop ends it within two seconds
[[nodiscard]] SelfTestSummary runSelfTest(const SelfTestRequest& request,
                                          SelfTestObserver& observer,
                                          const StopRequest& stop) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
