// Which run of which machine, and how reading it went.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/tree/ItemRecord.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// A run to read from. A plain value.
struct RunChoice {
    Account account; ///< its systemName is that of the machine whose runs are read
    /// Whose chain is preferred when several share the machine's name; absent: there must be one.
    std::optional<ChainIdentity> identity;
    std::optional<std::uint64_t> run; ///< by number
    std::optional<Timestamp> at;      ///< the newest finished one that had begun by then
    // Neither: the newest finished one.
    /// How long to try one question or one part again.
    std::chrono::steady_clock::duration budgetPerStep = std::chrono::minutes(5);
};

/// How reading runs ended.
enum class ReadEnd {
    done,
    someFailed,    ///< what did not is there
    badContent,    ///< content or a record is not what was stored, or is gone
    notFound,      ///< no such run, or nothing that was named is in it
    severalChains, ///< several machines share the name, and none is this one
    rolledBack,    ///< the service shows older records than this machine has seen
    interrupted,
    temporary,     ///< the service did not answer until the time was used up
    refused,       ///< the service said no
    notConfigured, ///< the settings do not say how content is read
    failed,        ///< anything else
};

} // namespace stowline::backup
#pragma GCC visibility pop
