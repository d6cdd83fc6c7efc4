// Whether a record is what was stored under its number: what this machine knows, and what later
// records name.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/record/RecordHead.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace stowline::backup {

/// A finished record as the service gives it: its own digest, and what it says came before it.
struct ChainLink {
    std::string digest;
    RecordLink predecessor;
};

/// A chain to walk along.
struct ChainView {
    const std::map<std::uint64_t, std::string>& known; ///< digests by run, from this machine
    std::uint64_t newest = 0;                          ///< finished run that the service shows
    /// Whether the service shows a finished record of a run.
    std::function<bool(std::uint64_t)> isThere;
    /// Reads one. Throws RecordFault.
    std::function<ChainLink(std::uint64_t)> read;
};

struct ChainFinding {
    RecordTrust trust = RecordTrust::unproven;
    std::string why; ///< it cannot be proven: part of a sentence, behind a colon
};

/// What is known of the record of a run: from the nearest later one that this machine knows, else
/// from the newest, back from each to the one that it names. Each is read once. Throws rolledBack
/// when the run's record is another than the one that this machine has seen or that the next one
/// names, and what reading throws unless it is damage.
[[nodiscard]] ChainFinding walkBackTo(std::uint64_t run, const ChainView& chain);

} // namespace stowline::backup
