// What the page tells of accounts, as values.
#pragma once

#include "devserver/AccountFigures.h"
#include "devserver/Deletions.h"
#include "devserver/Journal.h"
#include "devserver/Storage.h"
#include "devserver/page/RunHead.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace stowline::devserver {

/// A run of a machine: its newest record.
struct ShownRun {
    StoredRecord record;
    std::optional<RunHead> head; ///< of a finished one that can be read
};

/// A self-test of a machine's backup, as the event of its machine tells.
struct ShownSelfTest {
    std::string when;         ///< by the service's clock
    std::uint64_t lost = 0;   ///< contents that are missing, damaged or other than on the machine
    std::uint64_t files = 0;  ///< contents of all kept runs
    std::uint64_t proven = 0; ///< of these, within thirty days
};

/// A chain of runs of a machine, or a machine of which no run has left a record.
struct ShownChain {
    std::string systemName;
    std::string chain; ///< empty: there is none
    std::optional<ShownRun> last;
    std::optional<ShownRun>
        lastGood;           ///< the last finished one whose record tells of nothing failed
    std::size_t looked = 0; ///< at so many runs for it, the last ones
    std::optional<std::int64_t> lastRead; ///< content of the machine, seconds of the clock
    std::optional<ShownSelfTest> proof;   ///< the last one that found everything in order
    std::optional<ShownSelfTest> failed;  ///< one that did not, and came after that
    bool isOneOfSeveral = false;          ///< events do not tell it from another one of the account
};

/// Something that did not go well.
struct ShownFailure {
    std::string when; ///< universal time; empty: now
    std::string systemName;
    std::string what;
};

struct AccountOverview {
    std::string userName;
    std::vector<ShownChain> chains;
    std::vector<MachineSummary> machines;
    std::uint64_t usedBytes = 0;
    std::uint64_t graceBytes = 0; ///< of these
    std::vector<SpaceNote> notes; ///< the last is of now
    std::vector<ShownRun> runs;   ///< newest first
    std::vector<ReadSpan> reads;
    std::vector<GraceGroup> grace;
    std::vector<ShownFailure> failures;
    std::vector<DeletionState> deletions;
    std::vector<JournalLine> reports;
    std::vector<JournalLine> events;
};

struct Overview {
    std::int64_t madeAt = 0; ///< seconds of the clock
    bool isOfAll = false;    ///< of every account, not of the viewer's alone
    std::vector<AccountOverview> accounts;
    std::size_t moreAccounts = 0; ///< that are not told of
};

/// Heads of records that were read once; a record does not change. Any thread.
class RunHeads {
public:
    [[nodiscard]] std::optional<RunHead> of(Storage& storage, const StoredRecord& record);

private:
    std::mutex mutex_;
    std::map<std::int64_t, RunHead> known_; ///< by version
};

/// What overviews are made of. All of it must outlive whoever makes them.
struct OverviewSources {
    Storage& storage;
    Journal& journal;
    Deletions& deletions;
    RunHeads& heads;
};

/// Of the accounts of these names and of nobody else. What machines reported is told to the account
/// that they named. Throws as the sources do. Any thread.
[[nodiscard]] Overview makeOverview(const OverviewSources& sources,
                                    const std::vector<std::string>& userNames);

} // namespace stowline::devserver
