#include "cli/shared/StoredItems.h"

#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/RunHistory.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

namespace stowline::cli {

namespace {

using backup::ItemKind;
using backup::StoredItem;

constexpr const char* kRow = "{:>8}  {:>8}  {:<23}  {}";

const char* kindOf(ItemKind kind)
{
    static constexpr std::array kKinds{"file",   "folder", "link",  "pipe",
                                       "socket", "device", "device"};
    return kKinds.at(static_cast<std::size_t>(kind));
}

void showHeading()
{
    output().heading(fmt::format(kRow, "VERSION", "SIZE", "MODIFIED", "NAME"));
}

/// An item of a run, and from when it is.
struct SeenItem {
    StoredItem stored;
    backup::ItemSight sight;
};

void show(const StoredItem& stored, const backup::ItemSight& sight, bool withFolder)
{
    const backup::ItemRecord& item = stored.item;
    const bool isFile = item.kind == ItemKind::file;
    std::string name = withFolder ? item.path : std::string(backup::nameOf(item.path));
    name += item.kind == ItemKind::folder && name != "/" ? "/" : "";
    if (item.kind == ItemKind::link)
        name += " -> " + item.linkTarget;
    if (sight.isEarlier)
        name += sight.run == 0 ? std::string(" (as an earlier run saw it)")
                               : fmt::format(" (as run {} saw it)", sight.run);
    if (stored.changedWhileRead)
        name += " (changed while it was read)";
    const std::string version = stored.content ? stored.content->version : "";
    output().item(fmt::format(kRow, onOneLine(version),
                              isFile ? bytesText(static_cast<double>(item.size)) : "",
                              momentText(item.modified), onOneLine(name)),
                  "item",
                  {{"path", item.path},
                   {"kind", std::string(kindOf(item.kind))},
                   {"size", item.size},
                   {"modified", momentField(item.modified)},
                   {"version", version},
                   {"sha256", stored.content ? stored.content->digest : std::string()},
                   {"stale", stored.isStale},
                   {"changed_while_read", stored.changedWhileRead},
                   {"seen_run", sight.run},
                   {"seen", sight.run == 0 ? std::string() : momentField(sight.begun)}});
}

void sort(std::vector<SeenItem>& items, const StoredListing& listing)
{
    if (listing.sortField == "Size")
        std::ranges::stable_sort(items, {},
                                 [](const SeenItem& item) { return item.stored.item.size; });
    if (listing.sortField == "Modified")
        std::ranges::stable_sort(items, {},
                                 [](const SeenItem& item) { return item.stored.item.modified; });
    if (listing.isDescending)
        std::ranges::reverse(items);
}

/// What a script is to know of the run; people were told in sentences.
Fields jsonFields(const backup::RunOrigin& origin)
{
    return output().isJson() ? originFields(origin) : Fields();
}

} // namespace

ExitStatus listStored(const backup::RunChoice& choice, const StoredListing& listing)
{
    const Interruptible interruptible;
    std::vector<SeenItem> items;
    const auto end = backup::forEachItemInFolder(
        choice, listing.path,
        [&items](const StoredItem& item, const backup::ItemSight& sight) {
            items.push_back({item, sight});
            return true;
        },
        Interruptible::stopRequest());
    if (end.end == backup::ReadEnd::done) {
        sort(items, listing);
        if (listing.limit && items.size() > static_cast<std::size_t>(*listing.limit))
            items.resize(static_cast<std::size_t>(*listing.limit));
        if (!items.empty())
            showHeading();
        for (const SeenItem& item : items)
            show(item.stored, item.sight, false);
        noteOrigin(end.origin);
        return output().finish(ExitStatus::done, jsonFields(end.origin));
    }
    return finishReading(end.end, end.sentence, end.origin);
}

ExitStatus searchStored(const backup::RunChoice& choice, const std::string& below,
                        const std::string& text, std::optional<std::int64_t> limit)
{
    const Interruptible interruptible;
    std::int64_t found = 0;
    const auto end = backup::forEachFileNamed(
        choice, below, text,
        [&](const StoredItem& stored, const backup::ItemSight& sight) {
            if (found++ == 0)
                showHeading();
            show(stored, sight, true);
            return !limit || found < *limit;
        },
        Interruptible::stopRequest());
    if (end.end == backup::ReadEnd::done)
        noteOrigin(end.origin);
    if (end.end == backup::ReadEnd::done && found > 0)
        return output().finish(ExitStatus::done, jsonFields(end.origin));
    if (end.end == backup::ReadEnd::done)
        return output().fail(ExitStatus::notFound,
                             "No file with such a name is in run " + std::to_string(end.run) + ".");
    return finishReading(end.end, end.sentence, end.origin);
}

} // namespace stowline::cli
