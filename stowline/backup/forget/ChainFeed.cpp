#include "stowline/backup/forget/ChainFeed.h"

#include "stowline/backup/record/KeptRuns.h"

#include <algorithm>

namespace stowline::backup {

namespace {

void requireNotStopped(const StopRequest& stop)
{
    if (stop.isRequested())
        throw RecordFault(RecordFault::Kind::interrupted, "It was interrupted.");
}

/// Takes the tree of a run whose record builds on another than the one that was taken last, as
/// where two ran at once.
void takeLoaded(VersionLedger& ledger, RecordChain& chain, std::uint64_t run,
                const StopRequest& stop)
{
    ItemIndex items = ItemIndex::temporary();
    (void)chain.loadEvenForgotten(run, items);
    ledger.beginRun(run, true);
    items.forEach("/", [&](const StoredItem& stored) {
        requireNotStopped(stop);
        ledger.hold(stored);
        return true;
    });
    ledger.endRun();
}

/// @param at the record that the ledger's tree is that of; the run's own after it
void takeRun(VersionLedger& ledger, RecordChain& chain, std::uint64_t run, RecordLink& at,
             ChainRests& rests, const StopRequest& stop)
{
    bool fits = true;
    RecordLink own{run, {}};
    chain.read(run, [&](const RecordHead& head, const std::string& digest) {
        own.digest = digest;
        if (head.baseline)
            rests.baselines.emplace(run, head.baseline->run);
        fits = !head.baseline || *head.baseline == at;
        if (!fits)
            return RecordListener{};
        ledger.beginRun(run, !head.baseline);
        return RecordListener{.head = {},
                              .item =
                                  [&](const StoredItem& stored) {
                                      requireNotStopped(stop);
                                      ledger.hold(stored);
                                  },
                              .gone = [&](const std::string& path) { ledger.drop(path); },
                              .place = {}};
    });
    if (fits)
        ledger.endRun();
    else
        takeLoaded(ledger, chain, run, stop);
    at = own;
}

/// What the record of a run that did not come to its end rests on.
void noteUnfinished(RecordChain& chain, std::uint64_t run, ChainRests& rests)
{
    const RecordHead head = chain.head(run);
    if (!head.baseline)
        return;
    if (!chain.isFinished(head.baseline->run))
        throw RecordFault(RecordFault::Kind::damaged,
                          "The record of run " + std::to_string(head.baseline->run) +
                              ", on which run " + std::to_string(run) + " builds, is not there.");
    rests.named.insert(head.baseline->run);
}

} // namespace

ChainRests takeChain(VersionLedger& ledger, RecordChain& chain,
                     const std::set<std::uint64_t>& toForget, bool isForgetting,
                     const StopRequest& stop)
{
    ChainRests rests;
    std::set<std::uint64_t> kept;
    const std::vector<ListedRun> runs = chain.runs();
    for (const ListedRun& run : runs) {
        requireNotStopped(stop);
        if (run.isForgotten)
            continue;
        if (run.state == RecordState::unfinished)
            noteUnfinished(chain, run.run, rests);
        else if (run.state == RecordState::finished && !toForget.contains(run.run))
            kept.insert(run.run);
    }
    kept.insert(rests.named.begin(), rests.named.end());
    ledger.beginChain({kept.begin(), kept.end()}, isForgetting);
    RecordLink at;
    for (const ListedRun& run : runs) {
        requireNotStopped(stop);
        if (run.state == RecordState::finished)
            takeRun(ledger, chain, run.run, at, rests, stop);
    }
    ledger.endChain();
    for (const ListedRun& run : runs) {
        requireNotStopped(stop);
        if (run.state == RecordState::unfinished && !run.isForgotten)
            chain.read(run.run, [&](const RecordHead& /*head*/, const std::string& /*digest*/) {
                return RecordListener{
                    .head = {},
                    .item = [&](const StoredItem& stored) { ledger.holdForGood(stored); },
                    .gone = {},
                    .place = {}};
            });
    }
    return rests;
}

std::vector<std::uint64_t> removableRuns(const RecordChain& chain, const ChainRests& rests,
                                         const std::set<std::uint64_t>& toForget)
{
    std::vector<std::uint64_t> kept = keptRuns(chain);
    std::erase_if(kept, [&](std::uint64_t run) { return toForget.contains(run); });
    std::set<std::uint64_t> needed = rests.named;
    needed.insert(kept.begin(), kept.end());
    // From the newest on: what a needed record builds on is needed.
    for (auto rest = rests.baselines.rbegin(); rest != rests.baselines.rend(); ++rest) {
        if (needed.contains(rest->first))
            needed.insert(rest->second);
    }
    std::set<std::uint64_t> forgotten = toForget;
    for (const std::uint64_t run : chain.forgottenRuns())
        forgotten.insert(run);
    std::vector<std::uint64_t> removable;
    for (auto run = forgotten.rbegin(); run != forgotten.rend(); ++run) {
        if (!needed.contains(*run) && (kept.empty() || *run < kept.front()))
            removable.push_back(*run);
    }
    return removable;
}

} // namespace stowline::backup
