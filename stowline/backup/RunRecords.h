// The records of a run: which the index must be at, the one it begins, the one it ends with.
#pragma once

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
#include "stowline/backup/transfer/ContentSource.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace stowline::backup {

/// Rules as records have them: "exclude *.o".
[[nodiscard]] std::vector<std::string> recordedRules(const BackupRules& rules);

/// Where what comes from a stream is recorded (BackupRequest::streamName).
[[nodiscard]] std::string streamPathOf(const std::string& name);

/// One run's dealings with its chain. One thread at a time. Throws RecordFault, RunFault and
/// IndexFault.
class RunRecords {
public:
    RunRecords(const BackupRequest& request, const RunState& state, Tries& tries,
               BandwidthLimit& bandwidth, UploadContext& uploads, RunAccounts& accounts);

    /// What the run was told to back up, where that is not in the request.
    void setPaths(std::vector<std::string> paths) { paths_ = std::move(paths); }

    /// Asks the service for the chain, and makes the index anew from its newest finished record
    /// when it is not at it. Stops the run at another machine's chain and at a chain that has
    /// become older.
    /// @return whether the index knows everything that the service holds of this chain
    [[nodiscard]] bool bringUpToDate(ItemIndex& index);

    /// Whether the service, as bringUpToDate() found it, may hold less than the index tells: it is
    /// to be asked after all of that.
    [[nodiscard]] bool distrustsService() const { return distrustsService_; }

    /// Stores the note that a run begins, but in a dry run, and then looks whether runs are being
    /// forgotten: whoever forgets notes that first and looks for runs that have begun after that,
    /// so that one of the two knows of the other. Throws when what this run builds on is forgotten.
    /// @return the run's number
    [[nodiscard]] std::uint64_t begin(const ItemIndex& index);

    /// Whether runs under this machine's name were forgotten, as begin() found it: what only they
    /// held may be on its way out, and must not be taken for stored because a listing shows it.
    [[nodiscard]] bool areRunsForgotten() const { return !forgotten_.empty(); }

    void storeUnfinished(const ItemIndex& index, std::uint64_t newBytes);

    /// Stores the record and puts the index to it.
    StoredRecord storeFinished(ItemIndex& index, std::uint64_t newBytes);

private:
    [[nodiscard]] bool knowsLaterRun(const ItemIndex& index) const;
    void distrustService();
    [[nodiscard]] bool isFoundation(ItemIndex& index);
    void refuseOthers() const;
    void refuseTwin();
    void noteBegunHere(std::uint64_t begun, const std::string& digest);
    [[nodiscard]] std::set<std::string> forgottenRuns();
    void requireFoundation() const;
    void refuseIfForgottenMeanwhile();
    [[nodiscard]] bool loadAdopted(ItemIndex& index);
    [[nodiscard]] bool load(RecordChain& chain, ItemIndex& index);
    [[nodiscard]] RunDescription description() const;
    [[nodiscard]] std::uint64_t failures() const;

    const BackupRequest& request_;
    const RunState& state_;
    RunAccounts& accounts_;
    std::vector<std::string> paths_;
    ContentSource source_;
    ServicePlace place_;
    std::optional<RecordChain> chain_;
    bool distrustsService_ = false;
    IndexPosition foundation_; ///< what the record of this run rests on
    std::string adoptedChain_; ///< that the index was made from; empty: its own
    std::uint64_t adoptedRun_ = 0;
    std::set<std::string> forgotten_; ///< when the run began
    std::uint64_t run_ = 0;
    std::chrono::steady_clock::time_point beganSteady_;
    std::chrono::system_clock::time_point began_;
};

} // namespace stowline::backup
