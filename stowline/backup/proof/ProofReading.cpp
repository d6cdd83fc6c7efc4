#include "stowline/backup/proof/ProofReading.h"

#include <algorithm>
#include <vector>

namespace stowline::backup {

namespace {

void requireNotStopped(const StopRequest& stop)
{
    if (stop.isRequested())
        throw RecordFault(RecordFault::Kind::interrupted, "It was interrupted.");
}

std::vector<std::uint64_t> finishedRuns(const RecordChain& chain)
{
    std::vector<std::uint64_t> finished;
    for (const ListedRun& run : chain.runs()) {
        if (run.state == RecordState::finished)
            finished.push_back(run.run);
    }
    return finished;
}

/// The run's own record says what changed since the newest run of the book.
void addDifference(ProofBook& book, RecordChain& chain, std::uint64_t run, std::int64_t now,
                   const StopRequest& stop)
{
    chain.read(run, [&](const RecordHead& head, const std::string& digest) {
        book.beginRun({run, digest}, *head.baseline, now);
        return RecordListener{.head = {},
                              .item =
                                  [&](const StoredItem& stored) {
                                      requireNotStopped(stop);
                                      book.hold(stored);
                                  },
                              .gone = [&](const std::string& path) { book.drop(path); },
                              .place = {}};
    });
    book.endRun();
}

void addWhole(ProofBook& book, RecordChain& chain, std::uint64_t run, std::int64_t now,
              const StopRequest& stop)
{
    ItemIndex items = ItemIndex::temporary();
    (void)chain.load(run, items);
    book.beginRun({run, items.position().digest}, {}, now);
    items.forEach("/", [&](const StoredItem& stored) {
        requireNotStopped(stop);
        if (stored.content)
            book.hold(stored);
        return true;
    });
    book.endRun();
}

void addRun(ProofBook& book, RecordChain& chain, std::uint64_t run, std::int64_t now,
            const StopRequest& stop)
{
    const RecordHead head = chain.head(run);
    const RecordLink before = book.newest();
    if (head.baseline && before.run != 0 && *head.baseline == before)
        addDifference(book, chain, run, now, stop);
    else
        addWhole(book, chain, run, now, stop);
}

} // namespace

void readNewRuns(ProofBook& book, RecordChain& chain, std::int64_t now, const StopRequest& stop,
                 const std::function<void(std::uint64_t run, const std::string& sentence)>& damaged)
{
    const auto finished = finishedRuns(chain);
    const auto isInBook = [known = book.runs()](std::uint64_t run) {
        return std::ranges::binary_search(known, run);
    };
    // Two machines' state may have finished runs in another order than they began.
    const std::uint64_t newest = book.newest().run;
    if (std::ranges::any_of(finished,
                            [&](std::uint64_t run) { return run < newest && !isInBook(run); }))
        book.restart();
    const auto known = book.runs();
    for (const std::uint64_t run : finished) {
        requireNotStopped(stop);
        if (std::ranges::binary_search(known, run))
            continue;
        try {
            addRun(book, chain, run, now, stop);
        } catch (const RecordFault& fault) {
            book.abandonRun();
            if (fault.kind() != RecordFault::Kind::damaged &&
                fault.kind() != RecordFault::Kind::notFound)
                throw;
            book.noteDamaged(run);
            damaged(run, fault.what());
        }
    }
    book.keepOnly(finished);
}

} // namespace stowline::backup
