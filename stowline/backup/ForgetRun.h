// Forgetting runs: which are kept follows from rules, and what only the others held is deleted.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/KeepRules.h"
#include "stowline/backup/RunLoss.h"
#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/platform/threads/StopRequest.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// Which runs are to be forgotten. A plain value.
struct ForgetRequest {
    Account account;
    ChainIdentity identity; ///< whose runs: those of this machine, user and profile alone
    /// Where the backups of this user on this machine keep their state; made when missing.
    std::filesystem::path stateFolder;
    KeepRules keep; ///< finished runs alone count; with no rule at all nothing is forgotten
    /// Nobody is there who could confirm what runs found gone: then nothing is forgotten.
    bool isUnattended = false;
    /// A person says that what runs found gone so far was meant to go. Also without any rule. Only
    /// from the state folder that the newest run was made from: the next one has to see it there.
    bool confirmsLosses = false;
    /// Runs that have begun and not ended and never will, by a person's word, as "CHAIN/RUN": they
    /// hold nothing back any more, for all profiles of the state folder. Also without any rule.
    /// Refused for a run whose last sign is no week old by the service's clock.
    std::vector<std::string> givenUp = {};
    bool isDryRun = false;
    /// How long to try one question or one deletion again.
    std::chrono::steady_clock::duration budgetPerStep = std::chrono::minutes(5);
    bool registersWithProtectFile = false; ///< as the backups are told
};

/// A run that is forgotten.
struct RunToForget {
    std::uint64_t run = 0;
    Timestamp begun;                 ///< as its record says
    std::optional<Timestamp> stored; ///< by the service's clock; asked for where rules need days
};

/// What is about to be done.
struct ForgetPlan {
    std::vector<RunToForget> runs; ///< the oldest first
    std::uint64_t keptRuns = 0;
    std::uint64_t forgottenBefore = 0; ///< runs that were forgotten earlier and may not be done yet
    std::uint64_t versions = 0;        ///< that the service holds and only forgotten runs name
    std::uint64_t bytes = 0;           ///< of their content, as the service holds it
    /// What runs found gone, so much that it may be a mishap, and nobody has confirmed: what went
    /// is in older runs alone.
    std::vector<RunLoss> losses;
};

class ForgetObserver {
public:
    virtual ~ForgetObserver() = default;
    /// Asked before anything is changed; never in a dry run, nor where there is nothing to do. With
    /// a yes the plan's losses are confirmed.
    [[nodiscard]] virtual bool mayForget(const ForgetPlan& plan) = 0;
    virtual void progress(std::uint64_t /*deleted*/, std::uint64_t /*versions*/) {}
    /// A sentence that people should know.
    virtual void note(const std::string& /*sentence*/) {}
};

enum class ForgetEnd {
    done,          ///< what was to be forgotten is, or there was nothing
    someLeft,      ///< some of what was to be deleted is there still; forgetting again goes on
    declined,      ///< the observer said no; nothing is changed
    held,          ///< a run has begun, or the records changed meanwhile; later it can go on
    suspended,     ///< runs found so much gone that a person has to confirm it; nothing is changed
    unreadable,    ///< a record cannot be read, so nobody knows what it needs; nothing is changed
    notFound,      ///< there is no finished run, or none that could be given up by that name
    rolledBack,    ///< the service shows older records, or others, than this machine has seen
    badRequest,    ///< no rule was given
    locked,        ///< a backup of this user and profile is under way
    stateFolder,   ///< it cannot be made, read or written
    interrupted,   ///< by the StopRequest; forgetting again goes on
    temporary,     ///< the service did not answer until the time was used up
    refused,       ///< the service said no
    elsewhere,     ///< losses cannot be confirmed from this state folder: runs are not made from it
    notConfigured, ///< the settings do not say how content is read, or how versions are deleted
    failed,        ///< anything else
};

struct ForgetSummary {
    ForgetEnd end = ForgetEnd::failed;
    std::string sentence;              ///< why, unless it is done; for people
    ForgetPlan plan;                   ///< as far as it was made
    std::vector<RunLoss> confirmed;    ///< losses that are confirmed by this
    std::uint64_t givenUp = 0;         ///< runs that are given up by this
    std::uint64_t forgotten = 0;       ///< runs that are marked as forgotten by this
    std::uint64_t deletedVersions = 0; ///< that the service said it deleted
    std::uint64_t deletedBytes = 0;    ///< of their content
    std::uint64_t leftVersions = 0; ///< that the service did not delete, or tells other things of
    std::uint64_t unnamedVersions = 0; ///< of which no record has the service's name
    std::uint64_t removedRecords = 0;  ///< runs of which nothing is left
    std::uint64_t linkRecords = 0;     ///< forgotten runs whose records others rest on
    // Bytes that the account uses, as the service counts them; absent: it does not say.
    std::optional<std::uint64_t> usedBefore;
    std::optional<std::uint64_t> usedAfter;
};

/// Forgets to the end. Blocks; nothing is thrown. Keeps backups of this user and profile away.
///
/// First the service is told, by a note beside the records, which runs are forgotten; then what
/// only they held is deleted, version by version; then the records of those on which no other
/// rests. Whatever ends it, what a kept run needs is there, and the next one goes on. What any
/// other record of the account names is never deleted, nor anything while a run has begun anywhere
/// in the account, nor when one record cannot be read. The days of rules are those on which the
/// service stored the records, by its own clock, in the local zone.
///
/// Where a run found more than 30 % of the items gone that the one before it held, only who can say
/// that it was meant forgets: a request that confirms, or an observer that says yes. What was found
/// stands in the records from run to run until then.
/// @param stop ends it within two seconds
[[nodiscard]] ForgetSummary runForget(const ForgetRequest& request, ForgetObserver& observer,
                                      const StopRequest& stop) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
