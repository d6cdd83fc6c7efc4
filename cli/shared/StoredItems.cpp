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

constexpr const char* kRow = "{:>8}  {:>8}  {:<19}  {}";

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

void show(const StoredItem& stored, bool withFolder)
{
    const backup::ItemRecord& item = stored.item;
    const bool isFile = item.kind == ItemKind::file;
    std::string name = withFolder ? item.path : std::string(backup::nameOf(item.path));
    name += item.kind == ItemKind::folder && name != "/" ? "/" : "";
    if (item.kind == ItemKind::link)
        name += " -> " + item.linkTarget;
    if (stored.isStale)
        name += " (as an earlier run saw it)";
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
                   {"stale", stored.isStale}});
}

void sort(std::vector<StoredItem>& items, const StoredListing& listing)
{
    if (listing.sortField == "Size")
        std::ranges::stable_sort(items, {}, [](const StoredItem& item) { return item.item.size; });
    if (listing.sortField == "Modified")
        std::ranges::stable_sort(items, {},
                                 [](const StoredItem& item) { return item.item.modified; });
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
    std::vector<StoredItem> items;
    const auto end = backup::forEachItemInFolder(
        choice, listing.path,
        [&items](const StoredItem& item) {
            items.push_back(item);
            return true;
        },
        Interruptible::stopRequest());
    if (end.end == backup::ReadEnd::done) {
        sort(items, listing);
        if (listing.limit && items.size() > static_cast<std::size_t>(*listing.limit))
            items.resize(static_cast<std::size_t>(*listing.limit));
        if (!items.empty())
            showHeading();
        for (const StoredItem& item : items)
            show(item, false);
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
        [&](const StoredItem& stored) {
            if (found++ == 0)
                showHeading();
            show(stored, true);
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
