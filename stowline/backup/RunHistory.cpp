#include "stowline/backup/RunHistory.h"

#include "stowline/backup/ProofLookup.h"
#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/restore/Absence.h"
#include "stowline/backup/restore/LinkTrail.h"
#include "stowline/backup/restore/RunReader.h"
#include "stowline/backup/restore/Sights.h"
#include "stowline/backup/tree/ShortList.h"
#include "stowline/platform/text/GlobPattern.h"
#include "stowline/platform/text/UnicodeText.h"

#include <fmt/format.h>

#include <map>

namespace stowline::backup {

namespace {

constexpr std::uint64_t kPartBytes = 4U << 20;

RunState stateOf(RecordState state)
{
    switch (state) {
    case RecordState::begun:
        return RunState::begun;
    case RecordState::unfinished:
        return RunState::unfinished;
    case RecordState::finished:
    case RecordState::forgotten: // is the state of a note, not of a run
        break;
    }
    return RunState::finished;
}

/// Does the work with a reader, and says how it ended.
template <class Work>
HistoryEnd reading(const RunChoice& choice, const StopRequest& stop, const Work& work) noexcept
{
    return summaryOf<HistoryEnd>([&] {
        HistoryEnd result;
        const auto failure = failureOf([&] {
            RunReader reader(choice, 0, kPartBytes, stop);
            const OriginKeeper keeper(reader, result.origin);
            work(reader);
        });
        result.run = result.origin.run;
        result.end = stop.isRequested() ? ReadEnd::interrupted
                     : failure          ? failure->end
                                        : ReadEnd::done;
        if (result.end != ReadEnd::done)
            result.sentence =
                failure && !stop.isRequested() ? failure->sentence : "It was interrupted.";
        return result;
    });
}

void requireNotStopped(const StopRequest& stop)
{
    if (stop.isRequested())
        throw RecordFault(RecordFault::Kind::interrupted, "It was interrupted.");
}

std::optional<RunDifference::Kind> differenceOf(const StoredItem& before, const StoredItem& after)
{
    const auto digest = [](const StoredItem& item) {
        return item.content ? item.content->digest : std::string();
    };
    const ItemRecord& a = before.item;
    const ItemRecord& b = after.item;
    if (a.kind != b.kind || a.linkTarget != b.linkTarget || a.deviceNumber != b.deviceNumber ||
        digest(before) != digest(after) || before.sameFileAs != after.sameFileAs)
        return RunDifference::Kind::changed;
    const bool isSame = a.modified == b.modified && a.mode == b.mode && a.owner == b.owner &&
                        a.group == b.group && a.attributes == b.attributes;
    return isSame ? std::nullopt : std::optional(RunDifference::Kind::metadata);
}

/// One of two runs that are compared.
struct Side {
    ItemIndex items = ItemIndex::temporary();
    Sights sights;
    std::uint64_t run = 0;
};

/// Whether a run, or one before it, was told to look at a place, and could.
bool hasLookedAt(const std::string& path, const Side& side)
{
    for (std::string_view at = path; !at.empty(); at = parentOf(at)) {
        const auto note = side.items.noteAt(at);
        if (note)
            return note->kind == PlaceNote::Kind::walked;
        const auto stored = side.items.find(at);
        if (stored && stored->isStale)
            return false;
    }
    return side.sights.of(path).run != 0;
}

/// What it means that a run does not hold an item.
Absence absenceOf(const ItemRecord& item, const Side& side, Absences& absences)
{
    const auto folder = absences.at(std::string(parentOf(item.path)));
    const auto place = absences.in(
        folder, item.path,
        {.isFolder = item.kind == ItemKind::folder, .note = side.items.noteAt(item.path)});
    if (place.absence == Absence::notLookedAt && hasLookedAt(item.path, side))
        return Absence::wasNotThere;
    return place.absence;
}

void compare(const Side& earlier, const Side& later,
             const std::function<void(const RunDifference&)>& take, const StopRequest& stop)
{
    using Kind = RunDifference::Kind;
    const auto kindOf = [](Absence absence, Kind wasNotThere, Kind leftOut, Kind notLookedAt) {
        return absence == Absence::wasNotThere ? wasNotThere
               : absence == Absence::leftOut   ? leftOut
                                               : notLookedAt;
    };
    Absences absences(later.items);
    earlier.items.forEach("/", [&](const StoredItem& before) {
        requireNotStopped(stop);
        const auto after = later.items.find(before.item.path);
        if (!after)
            take({kindOf(absenceOf(before.item, later, absences), Kind::went, Kind::excluded,
                         Kind::unseen),
                  before, earlier.sights.of(before)});
        else if (const auto kind = differenceOf(before, *after))
            take({*kind, *after, later.sights.of(*after)});
        return true;
    });
    Absences before(earlier.items);
    later.items.forEach("/", [&](const StoredItem& after) {
        requireNotStopped(stop);
        if (!earlier.items.find(after.item.path))
            take({kindOf(absenceOf(after.item, earlier, before), Kind::came, Kind::included,
                         Kind::firstSeen),
                  after, later.sights.of(after)});
        return true;
    });
}

/// By run; empty when there was no self-test on this machine, or, with a fault, when what it noted
/// cannot be read.
std::map<std::uint64_t, RunProof> proofsOf(const RunChoice& choice, const std::string& chain,
                                           std::string& fault)
try {
    std::map<std::uint64_t, RunProof> proofs;
    const auto book = proofBookOf(choice, chain);
    if (!book)
        return proofs;
    for (const ProofBook::RunProof& run : book->proofs())
        proofs[run.run] = {.files = run.files,
                           .provenFiles = run.provenFiles,
                           .lostFiles = run.lostFiles,
                           .isDamaged = run.isDamaged,
                           .proven = run.proven > 0 ? std::optional(Timestamp{run.proven, 0})
                                                    : std::nullopt};
    return proofs;
} catch (const IndexFault& unreadable) {
    fault = unreadable.what();
    return {};
}

std::string forgottenSentence(const ShortList& runs)
{
    const bool isOne = runs.count() == 1;
    return fmt::format("{} {} forgotten: what no other run holds is deleted, or is to be. {} "
                       "records stay as long as those of other runs rest on {}.",
                       isOne ? "Run" : "The runs", runs.text() + (isOne ? " is" : " are"),
                       isOne ? "Its" : "Their", isOne ? "it" : "them");
}

RunEntry entryOf(const ListedRun& run, const RecordHead& head)
{
    return {.run = run.run,
            .state = stateOf(run.state),
            .begun = head.description.begun,
            .ended = head.ended,
            .items = head.items,
            .failed = head.failed,
            .newBytes = head.newBytes,
            .bytes = head.bytes,
            .host = head.description.host,
            .user = head.description.identity.user,
            .paths = head.description.namedPaths,
            .proof = std::nullopt};
}

RecordFault nothingOf(const std::string& path, const RunReader::Tree& tree)
{
    return {RecordFault::Kind::notFound, "Nothing of " + path + " is in run " +
                                             std::to_string(tree.head.run) + "." +
                                             whyNotHeld(tree.items, path)};
}

/// What is in a folder that the run does not describe, as those of standard input's names: items,
/// and folders of which only the names are known. @return whether there is anything
bool takeImplied(const ItemIndex& items, const std::string& folder,
                 const std::function<bool(const StoredItem&)>& take)
{
    const std::size_t start = folder == "/" ? 1 : folder.size() + 1;
    std::string last;
    items.forEach(folder, [&](const StoredItem& stored) {
        const std::string& path = stored.item.path;
        const auto end = std::min(path.find('/', start), path.size());
        const std::string child = path.substr(0, end);
        if (child == last)
            return true;
        last = child;
        if (child == path)
            return take(stored);
        StoredItem implied;
        implied.item.path = child;
        implied.item.kind = ItemKind::folder;
        return take(implied);
    });
    return !last.empty();
}

/// The pattern that names in lower case have to match.
std::string patternOf(const std::string& text)
{
    std::string pattern = platform::lowercased(text);
    if (pattern.find_first_of("*?") == std::string::npos)
        pattern = "*" + pattern + "*";
    return pattern;
}

} // namespace

const char* nameOf(RunState state)
{
    switch (state) {
    case RunState::begun:
        return "begun";
    case RunState::unfinished:
        return "unfinished";
    case RunState::finished:
        break;
    }
    return "finished";
}

const char* nameOf(RunDifference::Kind kind)
{
    switch (kind) {
    case RunDifference::Kind::came:
        return "came";
    case RunDifference::Kind::went:
        return "went";
    case RunDifference::Kind::included:
        return "included";
    case RunDifference::Kind::firstSeen:
        return "first-seen";
    case RunDifference::Kind::unseen:
        return "unseen";
    case RunDifference::Kind::excluded:
        return "excluded";
    case RunDifference::Kind::changed:
        return "changed";
    case RunDifference::Kind::metadata:
        break;
    }
    return "metadata";
}

HistoryEnd listRuns(const RunChoice& choice, const std::function<void(const RunEntry&)>& take,
                    const StopRequest& stop) noexcept
{
    return reading(choice, stop, [&](RunReader& reader) {
        RecordChain chain = reader.openChain();
        std::string fault;
        const auto proofs = proofsOf(choice, chain.name(), fault);
        ShortList forgotten;
        for (const ListedRun& run : chain.runs()) {
            if (run.isForgotten) {
                forgotten.add(std::to_string(run.run));
                continue;
            }
            RunEntry entry = entryOf(run, chain.head(run.run));
            if (const auto proof = proofs.find(run.run); proof != proofs.end())
                entry.proof = proof->second;
            take(entry);
        }
        if (forgotten.count() > 0)
            reader.note(forgottenSentence(forgotten));
        if (!fault.empty())
            reader.note(fault);
        reader.requireNothingOlder(chain, false); // what there is was shown
    });
}

HistoryEnd forEachItemOfRun(const RunChoice& choice, const std::string& path, const TakeItem& take,
                            const StopRequest& stop) noexcept
{
    return reading(choice, stop, [&](RunReader& reader) {
        const RunReader::Tree tree = reader.readChosen();
        reader.noteSights(tree.sights, {path});
        bool isAnything = false;
        tree.items.forEach(path, [&](const StoredItem& item) {
            requireNotStopped(stop);
            isAnything = true;
            return take(item, tree.sights.of(item));
        });
        if (!isAnything)
            throw nothingOf(path, tree);
    });
}

HistoryEnd forEachFileNamed(const RunChoice& choice, const std::string& path,
                            const std::string& text, const TakeItem& take,
                            const StopRequest& stop) noexcept
{
    std::optional<std::string> pattern;
    const auto takeNamed = [&](const StoredItem& stored, const ItemSight& sight) {
        if (!pattern)
            pattern = patternOf(text);
        const std::string name = platform::lowercased(nameOf(stored.item.path));
        const bool isFound =
            stored.item.kind == ItemKind::file && platform::matchesGlob(*pattern, name, false);
        return !isFound || take(stored, sight);
    };
    return summaryOf<HistoryEnd>([&] { return forEachItemOfRun(choice, path, takeNamed, stop); });
}

HistoryEnd forEachItemInFolder(const RunChoice& choice, const std::string& path,
                               const TakeItem& take, const StopRequest& stop) noexcept
{
    constexpr std::size_t inAPage = 1000;
    return reading(choice, stop, [&](RunReader& reader) {
        const RunReader::Tree tree = reader.readChosen();
        const auto takeSeen = [&](const StoredItem& item) {
            return take(item, tree.sights.of(item));
        };
        const std::string real = pathThroughLinks(tree.items, path).value_or(path);
        reader.noteSights(tree.sights, {real});
        const auto named = tree.items.find(real);
        if (named && named->item.kind != ItemKind::folder) {
            takeSeen(*named);
            return;
        }
        if (!named) {
            if (!takeImplied(tree.items, real, takeSeen))
                throw nothingOf(path, tree);
            return;
        }
        std::string after;
        for (bool isMore = true; isMore;) {
            const auto page = tree.items.itemsIn(real, after, inAPage);
            isMore = page.size() == inAPage;
            for (const StoredItem& item : page) {
                requireNotStopped(stop);
                after = std::string(nameOf(item.item.path));
                if (!takeSeen(item))
                    return;
            }
        }
    });
}

HistoryEnd forEachDifference(const RunChoice& choice, std::uint64_t from, std::uint64_t to,
                             const std::function<void(const RunDifference&)>& take,
                             const StopRequest& stop) noexcept
{
    RunLack earlierLack;
    RunLack lack;
    RecordTrust earlierTrust = RecordTrust::unproven;
    RecordTrust trust = RecordTrust::unproven;
    HistoryEnd result = reading(choice, stop, [&](RunReader& reader) {
        RecordChain chain = reader.openChain();
        reader.requireNothingOlder(chain, true);
        Side earlier;
        Side later;
        const auto read = [&](std::uint64_t run, Side& side) {
            const RecordHead head = chain.load(run, side.items);
            side.run = run;
            side.sights = RunReader::sightsIn(chain, head, side.items);
            reader.noteSights(side.sights, {"/"});
            return reader.lackOf(head, side.items);
        };
        earlierLack = read(from, earlier);
        lack = read(to, later);
        earlierTrust = reader.trustIn(chain, from);
        trust = reader.trustIn(chain, to);
        compare(earlier, later, take, stop);
    });
    result.run = to;
    result.origin.lack = lack;
    result.earlierLack = earlierLack;
    result.origin.trust = trust;
    result.earlierTrust = earlierTrust;
    return result;
}

} // namespace stowline::backup
