// The records of a run: which the index must be at, the one it begins, the one it ends with.
#pragma once

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
#include "stowline/backup/transfer/ContentSource.h"

#include <optional>

namespace stowline::backup {

/// Rules as records have them: "exclude *.o".
[[nodiscard]] std::vector<std::string> recordedRules(const BackupRules& rules);

/// One run's dealings with its chain. One thread at a time. Throws RecordFault, RunFault and
/// IndexFault.
class RunRecords {
public:
    RunRecords(const BackupRequest& request, const RunState& state, Tries& tries,
               BandwidthLimit& bandwidth, UploadContext& uploads, RunAccounts& accounts);

    /// Asks the service for the chain, and makes the index anew from its newest finished record
    /// when it is not at it. Stops the run at another machine's chain and at a chain that has
    /// become older.
    /// @return whether the index knows everything that the service holds of this chain
    [[nodiscard]] bool bringUpToDate(ItemIndex& index);

    /// Stores the note that a run begins, but in a dry run. @return the run's number
    [[nodiscard]] std::uint64_t begin(const ItemIndex& index);

    void storeUnfinished(const ItemIndex& index, std::uint64_t newBytes);

    /// Stores the record and puts the index to it.
    StoredRecord storeFinished(ItemIndex& index, std::uint64_t newBytes);

private:
    [[nodiscard]] bool isFoundation(ItemIndex& index);
    void refuseOthers() const;
    void refuseTwin();
    [[nodiscard]] bool loadAdopted(ItemIndex& index);
    [[nodiscard]] bool load(RecordChain& chain, ItemIndex& index);
    [[nodiscard]] RunDescription description() const;

    const BackupRequest& request_;
    const RunState& state_;
    RunAccounts& accounts_;
    ContentSource source_;
    ServicePlace place_;
    std::optional<RecordChain> chain_;
};

} // namespace stowline::backup
