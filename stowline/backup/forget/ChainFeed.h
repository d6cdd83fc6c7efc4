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
    std::set<std::uint64_t> open;                     ///< runs that did not come to their end
    std::set<std::uint64_t> named;                    ///< what those have begun with
};

/// Takes every record of a chain into the ledger: finished runs as trees, what others hold for
/// good. What a run that did not come to its end has begun with is kept for it. Throws RecordFault,
/// also where a single record cannot be read, and IndexFault.
/// @param toForget runs that are to be forgotten besides those that are
/// @param isForgetting as VersionLedger::beginChain()
ChainRests takeChain(VersionLedger& ledger, RecordChain& chain,
                     const std::set<std::uint64_t>& toForget, bool isForgetting,
                     const StopRequest& stop);

/// The forgotten runs whose records nothing needs any more, the newest first, in which order they
/// may be taken away: no other record rests on them, and no kept run lies before them, whose proof
/// would go through them.
[[nodiscard]] std::vector<std::uint64_t> removableRuns(const RecordChain& chain,
                                                       const ChainRests& rests);

} // namespace stowline::backup
