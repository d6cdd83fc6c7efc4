// Reading a chain of records for forgetting.
#pragma once

#include "stowline/backup/forget/VersionLedger.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <map>
#include <set>

namespace stowline::backup {

/// What the records of a chain rest on.
struct ChainRests {
    std::map<std::uint64_t, std::uint64_t> baselines; ///< of differences, by run
    std::set<std::uint64_t> named; ///< what runs that did not come to their end are differences of
};

/// Takes every record of a chain into the ledger: finished runs as trees, what a run has recorded
/// that did not come to its end as held for good, with what its record is a difference of. Of one
/// that has only begun there is nothing to be read, whoever it was; see runThatHolds(). Throws
/// RecordFault, also where a single record cannot be read, and IndexFault.
/// @param toForget runs that are to be forgotten besides those that are
/// @param isForgetting as VersionLedger::beginChain()
ChainRests takeChain(VersionLedger& ledger, RecordChain& chain,
                     const std::set<std::uint64_t>& toForget, bool isForgetting,
                     const StopRequest& stop);

/// The forgotten runs whose records nothing needs any more, the newest first, in which order they
/// may be taken away: no other record rests on them, and no kept run lies before them, whose proof
/// would go through them.
/// @param toForget runs that count as forgotten besides those that are
[[nodiscard]] std::vector<std::uint64_t>
removableRuns(const RecordChain& chain, const ChainRests& rests,
              const std::set<std::uint64_t>& toForget = {});

} // namespace stowline::backup
