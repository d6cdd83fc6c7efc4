// Asking the service, before a run relies on what earlier ones stored, whether it still holds it.
#pragma once

#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunIndex.h"
#include "stowline/backup/restore/VersionFinder.h"
#include "stowline/backup/transfer/VersionCheck.h"

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace stowline::backup {

/// The versions that the index knows. One thread, and no other may use the index meanwhile. Throws
/// IndexFault.
///
/// What the service has no more, or not as it was stored, counts as never stored in this run, so
/// that it is sent again where it is met (RunIndex::lose). What it does not call whole, though all
/// else agrees, is noted and asked about again. Content whose version was never told is looked for
/// in the service's listings, where the service can give back at all.
class VersionAudit {
public:
    /// @param damaged versions that are lost whatever the service says
    VersionAudit(const Account& account, RunIndex& index, RunAccounts& accounts, Tries& tries,
                 std::set<std::string> damaged = {})
        : account_(account), index_(index), accounts_(accounts), tries_(tries),
          finder_(account, tries), damaged_(std::move(damaged))
    {
    }

    /// Asks about so many, the longest not asked about first; after all as soon as one of them is
    /// lost. Tells what came of it: a loss is a note, an answer that never came a problem.
    /// @return whether all answers came
    bool ask(std::uint64_t atMost);

    /// Of how many files the service has lost what was stored.
    [[nodiscard]] std::uint64_t lost() const { return lost_; }

private:
    [[nodiscard]] bool askAfterOldest(std::uint64_t atMost);
    [[nodiscard]] bool askAfterSome(std::span<const std::string> paths);
    [[nodiscard]] bool learnVersion(StoredItem& item);
    void lose(const StoredItem& item);
    bool hasNoAnswer(const StepFailure& failure);

    const Account account_;
    RunIndex& index_;
    RunAccounts& accounts_;
    Tries& tries_;
    VersionFinder finder_;
    const std::set<std::string> damaged_;
    std::uint64_t lost_ = 0;
    std::uint64_t untold_ = 0; ///< of which the service does not say that they are whole
};

} // namespace stowline::backup
