#include "stowline/backup/restore/Sights.h"

#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/restore/LinkTrail.h"
#include "stowline/backup/restore/Selection.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/LocalClock.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::backup {

namespace {

/// A record names paths that go into 1 MiB; from here on some may be missing.
constexpr std::size_t kMayBeCut = (1U << 20) - (1U << 16);

bool isCut(const RecordHead& head)
{
    std::size_t bytes = 0;
    for (const std::string& path : head.description.namedPaths)
        bytes += path.size() + 4;
    return bytes >= kMayBeCut;
}

} // namespace

Sights::Sights(const RecordHead& head, const ItemIndex& items, const std::vector<ListedRun>& runs,
               const std::function<RecordHead(std::uint64_t)>& headOf)
    : run_(head.run)
{
    if (isCut(head)) { // all may have been named
        named_.emplace("/", ItemSight{head.run, head.description.begun, true, false});
        return;
    }
    name(head, items, {head.run, head.description.begun, true, false});
    findPlaces(items);
    std::uint64_t after = head.run;
    bool isSure = true;
    for (auto run = runs.rbegin(); run != runs.rend() && isAnyUnexplained(); ++run) {
        if (run->run >= head.run)
            continue;
        isSure = isSure && run->run + 1 == after; // a run that is forgotten may have looked, too
        after = run->run;
        try {
            const RecordHead earlier = headOf(run->run);
            isSure = isSure && !isCut(earlier) && run->state == RecordState::finished;
            if (run->state == RecordState::finished)
                name(earlier, items, {run->run, earlier.description.begun, isSure, true});
        } catch (const RecordFault& fault) {
            if (fault.kind() != RecordFault::Kind::damaged)
                throw;
            isSure = false;
        }
    }
}

/// Puts down what a run was told to back up, by the real paths too, where no later one was.
void Sights::name(const RecordHead& head, const ItemIndex& items, const ItemSight& sight)
{
    for (const std::string& path : head.description.namedPaths) {
        named_.emplace(path, sight);
        if (auto real = pathThroughLinks(items, path))
            named_.emplace(std::move(*real), sight);
    }
}

/// From the top down, as far as folders only lead to what was named.
void Sights::findPlaces(const ItemIndex& items)
{
    const auto isNamed = [this](const std::string& path) { return named_.contains(path); };
    const auto isPassage = [this](const std::string& path) {
        const std::string below = path + "/";
        const auto named = named_.lower_bound(below);
        return named != named_.end() && named->first.starts_with(below);
    };
    std::vector<std::string> passages{"/"};
    if (isNamed("/"))
        return;
    while (!passages.empty()) {
        const std::string folder = std::move(passages.back());
        passages.pop_back();
        for (const StoredItem& stored : items.itemsIn(folder)) {
            const std::string& path = stored.item.path;
            if (isNamed(path))
                continue;
            if (isPassage(path))
                passages.push_back(path);
            else if (stored.item.kind != ItemKind::link) // one that leads to what was named
                places_.push_back(path);
        }
    }
    items.forEachNote([this](const PlaceNote& note) {
        if (note.kind == PlaceNote::Kind::walked && of(note.path).isEarlier)
            places_.push_back(note.path);
        return true;
    });
    std::ranges::sort(places_);
    places_.erase(std::unique(places_.begin(), places_.end()), places_.end());
}

bool Sights::isAnyUnexplained() const
{
    return std::ranges::any_of(
        places_, [this](const std::string& place) { return withAllBelow(place).run == 0; });
}

/// The newest run that was told to back up a path, or a folder above it.
ItemSight Sights::withAllBelow(std::string_view path) const
{
    ItemSight newest;
    for (std::string_view at = path; !at.empty(); at = parentOf(at)) {
        const auto named = named_.find(at);
        if (named != named_.end() && named->second.run > newest.run)
            newest = named->second;
    }
    return newest;
}

ItemSight Sights::of(std::string_view path) const
{
    ItemSight newest = withAllBelow(path);
    // A folder on the way is looked at, too.
    const std::string below = path == "/" ? "/" : std::string(path) + "/";
    for (auto named = named_.lower_bound(below);
         newest.isEarlier && named != named_.end() && named->first.starts_with(below); ++named) {
        if (named->second.run > newest.run)
            newest = named->second;
    }
    return newest;
}

std::vector<std::string> Sights::sentences(const std::vector<std::string>& paths) const
{
    constexpr std::size_t shown = 5;
    std::vector<std::string> texts;
    std::size_t more = 0;
    for (const std::string& place : places_) {
        const bool isMeant = std::ranges::any_of(paths, [&place](const std::string& path) {
            return isAtOrBelow(place, path) || isAtOrBelow(path, place);
        });
        ItemSight sight = withAllBelow(place);
        if (sight.run == 0)
            sight = of(place);
        if (!isMeant || !sight.isEarlier)
            continue;
        if (texts.size() == shown) {
            ++more;
            continue;
        }
        const std::string when =
            sight.run == 0 ? "an earlier run"
                           : fmt::format("run {} of {}", sight.run,
                                         platform::localClockText(
                                             Date(std::chrono::seconds(sight.begun.seconds)))
                                             .substr(0, 19));
        texts.push_back(fmt::format(
            "Run {} was not told to back up {}, and holds it as {} saw it{}.", run_, place, when,
            sight.isSure || sight.run == 0
                ? ""
                : ", or one in between that was cut off or is forgotten"));
    }
    if (more > 0)
        texts.push_back(fmt::format("Run {} was not told to back up {} either, and holds {} as "
                                    "earlier runs saw {}.",
                                    run_, platform::countText(more, "other place", "other places"),
                                    more == 1 ? "it" : "them", more == 1 ? "it" : "them"));
    return texts;
}

} // namespace stowline::backup
