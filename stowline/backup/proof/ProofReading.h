// Bringing a book of proofs up to what the records on the service say.
#pragma once

#include "stowline/backup/proof/ProofBook.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/platform/threads/StopRequest.h"

#include <cstdint>
#include <functional>
#include <string>

namespace stowline::backup {

/// Reads every finished run that the book does not have, the oldest first, and takes out those that
/// are not kept any more. A run that differs from the newest one of the book costs its own record,
/// any other those that it builds on as well. What was read stays when a later one cannot be. One
/// that is not what was stored, or gone, is noted as damaged and handed over with a sentence, once.
/// @throws RecordFault, IndexFault
void readNewRuns(
    ProofBook& book, RecordChain& chain, std::int64_t now, const StopRequest& stop,
    const std::function<void(std::uint64_t run, const std::string& sentence)>& damaged);

} // namespace stowline::backup
