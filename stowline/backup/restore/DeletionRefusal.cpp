#include "stowline/backup/restore/DeletionRefusal.h"

#include "stowline/backup/tree/ShortList.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <cstdint>
#include <string_view>
#include <system_error>

namespace stowline::backup {

namespace {

constexpr const char* kUnsure =
    ", so it cannot tell what is to be deleted. Please restore without --delete.";

std::string runText(const RecordHead& head)
{
    return "Run " + std::to_string(head.run);
}

std::string unreadableSentence(const RecordHead& head, const std::string& folder,
                               const NotedRules& noted)
{
    return noted.areTooLong
               ? fmt::format("The rules of run {} in {} are too long to be in its record{}",
                             head.run, folder, kUnsure)
               : fmt::format("{} followed the rule \"{}\" in {}, which this program does not "
                             "know{}",
                             runText(head), noted.unreadable, folder, kUnsure);
}

/// What the notes at and below a named path come to.
struct WalksBelow {
    bool isAny = false;
    std::string unreadable; ///< a sentence
};

WalksBelow walksBelow(const RecordHead& head, const ItemIndex& items, const Absences& absences,
                      const std::string& named)
{
    WalksBelow walks;
    items.forEachNote([&](const PlaceNote& note) {
        if (note.kind != PlaceNote::Kind::walked || !isAtOrBelow(note.path, named))
            return true;
        const NotedRules noted = notedRules(note);
        walks.isAny = walks.isAny || absences.counts(note);
        if (!noted.unreadable.empty())
            walks.unreadable = unreadableSentence(head, note.path, noted);
        return walks.unreadable.empty();
    });
    return walks;
}

/// Folders of which only what an earlier run saw is known.
std::optional<std::string> refusalOfStale(const RecordHead& head, const ItemIndex& items,
                                          const Selection& selection, const TreeRules& patterns)
{
    if (items.staleCount() == 0)
        return std::nullopt;
    IdlePatterns unused(patterns);
    ShortList folders;
    std::string last;
    selection.forEach(items, unused, [&](const StoredItem& stored) {
        const ItemRecord& item = stored.item;
        if (item.kind != ItemKind::folder || !stored.isStale ||
            (!last.empty() && isAtOrBelow(item.path, last)))
            return true;
        last = item.path;
        folders.add(item.path);
        return true;
    });
    const std::uint64_t count = folders.count();
    if (count == 0)
        return std::nullopt;
    return fmt::format("{} holds {} only as an earlier run saw {}, so it cannot tell what is to be "
                       "deleted there. Please leave {} out with --exclude, or restore without "
                       "--delete.",
                       runText(head), folders.text(), count == 1 ? "it" : "them",
                       count == 1 ? "it" : "them");
}

/// What stands where a disk was mounted is none of the run's business.
std::optional<std::string> refusalOfDisks(const RecordHead& head, const ItemIndex& items,
                                          const std::string& named)
{
    for (std::string_view at = named; !at.empty(); at = parentOf(at)) {
        const auto stored = items.find(at);
        int error = 0;
        if (!stored || !stored->item.isMountPoint)
            continue;
        const auto folder = platform::TargetFolder::open(stored->item.path, false, error);
        if (folder && !folder->isMountPoint(""))
            return fmt::format("No disk is mounted at {}, but one was in run {}, so it cannot tell "
                               "what is to be deleted there. Please restore without --delete.",
                               stored->item.path, head.run);
    }
    return std::nullopt;
}

} // namespace

bool isOwnPlace(const Selection& selection, const std::filesystem::path& root)
{
    std::error_code unknown;
    std::string place = std::filesystem::weakly_canonical(root, unknown).string();
    if (const std::string name = selection.placeOf(selection.named()); !name.empty())
        place = pathIn(place, name);
    return place == selection.named();
}

std::optional<std::string> refusalToDelete(const RecordHead& head, const ItemIndex& items,
                                           Absences& absences, const Selection& selection,
                                           const TreeRules& patterns,
                                           const std::filesystem::path& root)
{
    const std::string& named = selection.named();
    const auto stored = items.find(named);
    if (!stored || stored->item.kind != ItemKind::folder)
        return std::nullopt;
    if (head.state != RecordState::finished)
        return runText(head) + " did not come to its end" + kUnsure;
    if (items.noteCount(PlaceNote::Kind::walked) == 0)
        return runText(head) +
               " does not say which folders it looked at and what its rules left out, as records "
               "of earlier versions do not" +
               kUnsure;
    if (auto stale = refusalOfStale(head, items, selection, patterns))
        return stale;
    const Absences::Place place = absences.at(named);
    if (place.noted != nullptr && !place.noted->unreadable.empty())
        return unreadableSentence(head, named, *place.noted);
    const WalksBelow walks = walksBelow(head, items, absences, named);
    if (!walks.unreadable.empty())
        return walks.unreadable;
    if (place.absence != Absence::wasNotThere && !walks.isAny)
        return place.absence == Absence::leftOut
                   ? fmt::format("A rule leaves {} out of run {} but for what was named in it{}",
                                 named, head.run, kUnsure)
                   : fmt::format("{} was not told to back up {}, or could not look at all of it{}",
                                 runText(head), named, kUnsure);
    return isOwnPlace(selection, root) ? refusalOfDisks(head, items, named) : std::nullopt;
}

} // namespace stowline::backup
