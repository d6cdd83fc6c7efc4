// Bringing a book of proofs up to what the records on the service say.
#pragma once

#include "stowline/backup/proof/ProofBook.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <functional>
#include <string>

namespace stowline::backup {

/// What reading is done with.
struct ProofSource {
    RecordChain& chain;
    /// The chain as the place lists it now: another machine may have forgotten a run meanwhile.
    std::function<RecordChain()> listedAnew;
    std::int64_t now = 0;
    const StopRequest& stop;
};

/// Reads every kept run that the book does not have, the oldest first, and takes out those that
/// are not kept any more. A run that differs from the newest one of the book costs its own record,
/// any other those that it builds on as well. What was read stays when a later one cannot be. One
/// that is not what was stored, or gone though it is kept, is noted as damaged and handed over with
/// a sentence, once; it is tried again each time, and counts like any other as soon as it can be
/// read.
/// @throws RecordFault, IndexFault
void readNewRuns(
    ProofBook& book, const ProofSource& source,
    const std::function<void(std::uint64_t run, const std::string& sentence)>& damaged);

/// Whether a run is kept by the place's own word just now.
[[nodiscard]] bool isStillKept(const ProofSource& source, std::uint64_t run);

} // namespace stowline::backup
