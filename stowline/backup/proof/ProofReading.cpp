#include "stowline/backup/proof/ProofReading.h"

#include "stowline/backup/record/KeptRuns.h"

#include <algorithm>
#include <vector>

namespace stowline::backup {

namespace {

void requireNotStopped(const StopRequest& stop)
{
    if (stop.isRequested())
        throw RecordFault(RecordFault::Kind::interrupted, "It was interrupted.");
}

bool isDamage(const RecordFault& fault)
{
    return fault.kind() == RecordFault::Kind::damaged ||
           fault.kind() == RecordFault::Kind::notFound ||
           fault.kind() == RecordFault::Kind::rolledBack; // another than this machine has seen
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

/// What could not be read once may only have been spoiled on its way.
void tryDamagedAnew(ProofBook& book, const ProofSource& source)
{
    const auto kept = keptRuns(source.chain);
    bool isAnythingNew = false;
    for (const ProofBook::DamagedRun& damaged : book.damagedRuns()) {
        requireNotStopped(source.stop);
        if (!std::ranges::binary_search(kept, damaged.run))
            continue;
        try {
            ItemIndex items = ItemIndex::temporary();
            (void)source.chain.load(damaged.run, items);
        } catch (const RecordFault& fault) {
            if (!isDamage(fault))
                throw;
            continue;
        }
        book.noteRead(damaged.run, source.now);
        isAnythingNew = isAnythingNew || damaged.isEmpty;
    }
    if (isAnythingNew)
        book.restart();
}

} // namespace

bool isStillKept(const ProofSource& source, std::uint64_t run)
{
    return std::ranges::binary_search(keptRuns(source.listedAnew()), run);
}

void readNewRuns(ProofBook& book, const ProofSource& source,
                 const std::function<void(std::uint64_t run, const std::string& sentence)>& damaged)
{
    tryDamagedAnew(book, source);
    auto kept = keptRuns(source.chain);
    const auto isInBook = [known = book.runs()](std::uint64_t run) {
        return std::ranges::binary_search(known, run);
    };
    // Two machines' state may have finished runs in another order than they began.
    const std::uint64_t newest = book.newest().run;
    if (std::ranges::any_of(kept,
                            [&](std::uint64_t run) { return run < newest && !isInBook(run); }))
        book.restart();
    const auto known = book.runs();
    std::vector<std::uint64_t> forgotten;
    for (const std::uint64_t run : kept) {
        requireNotStopped(source.stop);
        if (std::ranges::binary_search(known, run))
            continue;
        try {
            addRun(book, source.chain, run, source.now, source.stop);
        } catch (const RecordFault& fault) {
            book.abandonRun();
            if (!isDamage(fault))
                throw;
            if (!isStillKept(source, run)) {
                forgotten.push_back(run);
                continue;
            }
            book.noteDamaged(run);
            damaged(run, fault.what());
        }
    }
    std::erase_if(kept, [&](std::uint64_t run) { return std::ranges::count(forgotten, run) > 0; });
    book.keepOnly(kept);
}

} // namespace stowline::backup
