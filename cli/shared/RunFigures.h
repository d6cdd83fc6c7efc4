// What the last backup came to, kept for the reports about it.
#pragma once

#include "cli/shared/Successes.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

struct RunFigures {
    std::string username;
    std::string machine;
    std::string profile = backup::ChainIdentity().profile;
    Date begun;
    double seconds = 0;
    std::uint64_t notChanged = 0;
    std::uint64_t backedUp = 0;
    std::uint64_t failed = 0;
    std::uint64_t notChangedBytes = 0;
    std::uint64_t backedUpBytes = 0;
    std::uint64_t failedBytes = 0;
    std::uint64_t changedWhileRead = 0; ///< files that may not be stored as one state of them
    std::vector<std::string> failures;  ///< the first of them, a sentence each
    std::string sentence;               ///< why the run ended early; empty when it did not
    std::string afterFault; ///< what the command after it came to; empty when all was well
    std::string selfTest;   ///< what the self-test after it came to; empty when there was none
    std::uint64_t selfTestLost = 0;            ///< known to be missing, damaged or different
    std::vector<std::string> selfTestFindings; ///< what it found, the first sentences
    /// Why it proves nothing, or not enough, in a few words; empty when all is well.
    std::string selfTestTrouble;
    /// Of the self-test: whether it was begun, and found everything in order; all contents of kept
    /// runs, and those of them that were proven within thirty days.
    bool wasTested = false;
    bool isProof = false;
    std::uint64_t proofFiles = 0;
    std::uint64_t proofBytes = 0;
    std::uint64_t provenFiles = 0;
    std::uint64_t provenBytes = 0;
    /// What became of forgetting by rules; `later`: not now, and nothing is wrong.
    enum class Forgetting { notAsked, done, later, suspended, failed } forgetting{};
    std::string forgettingText; ///< sentences; empty when it was not asked for
    std::uint64_t forgottenRuns = 0;
    std::uint64_t keptRuns = 0;
    std::uint64_t deletedVersions = 0;
    std::uint64_t deletedBytes = 0;
    std::uint64_t leftVersions = 0;
    std::uint64_t givenBackBytes = 0; ///< by the service's word
    std::uint64_t goneItems = 0;      ///< that suspend it, and of how many
    std::uint64_t goneOfItems = 0;
    std::vector<std::string> overdue; ///< which good run or proof is too long ago, a sentence each

    /// "iMac", and of another profile than the default one "iMac (profile docs)".
    [[nodiscard]] std::string subject() const;

    [[nodiscard]] std::uint64_t processed() const { return notChanged + backedUp + failed; }
    [[nodiscard]] std::uint64_t processedBytes() const
    {
        return notChangedBytes + backedUpBytes + failedBytes;
    }

    [[nodiscard]] Dictionary dictionary() const;
    [[nodiscard]] static std::optional<RunFigures> fromDictionary(const Dictionary& fields);
};

/// @param failures a sentence each; the first twenty are kept
[[nodiscard]] RunFigures figuresOf(const backup::BackupSummary& result, const std::string& username,
                                   const std::string& machine, Date begun,
                                   const std::vector<std::string>& failures);

/// Keeps the figures in the state folder, and reads them again; absent when there are none.
/// @param profile whose last run is meant; absent: the last run of any
void keepLastRun(const RunFigures& figures);
[[nodiscard]] std::optional<RunFigures>
lastRun(const std::optional<std::string>& profile = std::nullopt);

/// Keeps that a run of a profile was finished without failures, and when it began; reads it
/// again, absent when this machine knows of none.
void keepLastGoodRun(const std::string& profile, const BackupSubject& subject, Date begun);
[[nodiscard]] std::optional<Date> lastGoodRun(const std::string& profile,
                                              const BackupSubject& subject = {});

} // namespace stowline::cli
