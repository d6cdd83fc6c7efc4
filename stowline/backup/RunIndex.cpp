#include "stowline/backup/RunIndex.h"

#include "stowline/backup/restore/Selection.h"
#include "stowline/backup/tree/PathBelow.h"

#include <map>

namespace stowline::backup {

namespace {

/// How much work of uploads a kill may make to be asked about again.
constexpr std::size_t kStoredBetweenCommits = 200;
constexpr std::chrono::seconds kBetweenCommits{2};

} // namespace

void RunIndex::beginRun(std::uint64_t run)
{
    using Kind = PlaceNote::Kind;
    run_ = run;
    for (const Kind kind : {Kind::walked, Kind::missed, Kind::leftOut, Kind::cutOff})
        hasNotes_ = hasNotes_ || index_.noteCount(kind) > 0;
}

std::vector<StoredItem> RunIndex::itemsIn(const std::string& folder)
{
    const std::lock_guard lock(mutex_);
    auto items = index_.itemsIn(folder);
    if (!corrected_.empty()) {
        for (StoredItem& item : items)
            if (const auto other = corrected_.find(item.item.path); other != corrected_.end())
                item = other->second;
    }
    for (StoredItem& item : items)
        item = withoutLost(std::move(item));
    return items;
}

std::optional<StoredItem> RunIndex::find(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    if (const auto other = corrected_.find(path); other != corrected_.end())
        return withoutLost(other->second);
    auto item = index_.find(path);
    return item ? std::optional(withoutLost(std::move(*item))) : std::nullopt;
}

void RunIndex::confirm(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    if (changes_)
        index_.setConfirmed(path, run_);
}

void RunIndex::correct(const StoredItem& item)
{
    const std::lock_guard lock(mutex_);
    if (changes_)
        index_.put(item, run_);
    else
        corrected_.insert_or_assign(item.item.path, item);
}

void RunIndex::lose(const StoredItem& item)
{
    const std::lock_guard lock(mutex_);
    lost_.insert(item.item.path);
}

bool RunIndex::isLost(const StoredItem& item) const
{
    return item.content && lost_.contains(item.item.path);
}

StoredItem RunIndex::withoutLost(StoredItem item) const
{
    if (!lost_.empty() && isLost(item))
        item.content.reset();
    return item;
}

std::vector<std::string> RunIndex::lostAndNotMet()
{
    const std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    if (lost_.empty())
        return paths;
    index_.forEach("/", [&](const StoredItem& item) {
        if (isLost(item) && !isKept(item.item.path))
            paths.push_back(item.item.path);
        return true;
    });
    return paths;
}

void RunIndex::put(const StoredItem& item)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    putLocked(item);
}

void RunIndex::putPassage(const StoredItem& folder)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    partFrom(folder.item.path, &folder);
    index_.put(folder, run_);
}

void RunIndex::putStored(const StoredItem& item)
{
    const std::lock_guard lock(mutex_);
    putLocked(item);
    stored_.push_back(item.item.path);
    if (stored_.size() >= kStoredBetweenCommits ||
        std::chrono::steady_clock::now() - committed_ >= kBetweenCommits)
        commitLocked();
}

void RunIndex::remove(const std::string& path)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    removeLocked(path);
}

void RunIndex::removeLocked(const std::string& path)
{
    partFrom(path, nullptr);
    index_.remove(path, run_);
    if (!hasNotes_)
        return;
    index_.removeNote(path, run_);
    index_.removeNotesBelow(path, run_);
}

void RunIndex::vanish(const std::string& path)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    // What further names share with it has to be theirs when they are met.
    if (index_.furtherNamesOf(path, true).empty())
        vanished_.push_back(path);
    else
        removeLocked(path);
}

bool RunIndex::meetFurtherName(const std::string& path, const std::string& first)
{
    const std::lock_guard lock(mutex_);
    metNames_.insert(path);
    const auto known = index_.find(path);
    return !known || known->sameFileAs != first;
}

void RunIndex::putLocked(const StoredItem& item)
{
    partFrom(item.item.path, &item);
    index_.put(item, run_);
    lost_.erase(item.item.path);
    if (!hasNotes_)
        return;
    const std::string& path = item.item.path;
    if (const auto note = index_.noteAt(path);
        note && ((note->kind != PlaceNote::Kind::walked && note->kind != PlaceNote::Kind::cutOff) ||
                 item.item.kind != ItemKind::folder))
        index_.removeNote(path, run_);
    if (item.item.kind != ItemKind::folder)
        index_.removeNotesBelow(path, run_);
}

/// Before an item is replaced or removed: what its further names share with it becomes theirs where
/// nobody has looked at them in this run.
void RunIndex::partFrom(const std::string& path, const StoredItem* successor)
{
    const bool removesBelow = !successor || successor->item.kind != ItemKind::folder;
    std::map<std::string, std::vector<StoredItem>> furtherNames;
    for (StoredItem& item : index_.furtherNamesOf(path, removesBelow)) {
        const bool goesToo = removesBelow && isAtOrBelow(item.item.path, path);
        if (!goesToo && !metNames_.contains(item.item.path))
            furtherNames[item.sameFileAs].push_back(std::move(item));
    }
    for (auto& [first, items] : furtherNames) {
        const auto known = index_.find(first);
        const bool isReplaced =
            !known || first != path || !successor || known->item.kind != successor->item.kind ||
            known->item.inode != successor->item.inode ||
            (known->content && !isLost(*known) && known->content != successor->content) ||
            !successor->sameFileAs.empty();
        if (known && isReplaced)
            handDown(*known, items);
    }
}

void RunIndex::handDown(const StoredItem& first, std::vector<StoredItem>& further)
{
    StoredItem& heir = further.front();
    heir.sameFileAs.clear();
    heir.content = first.content;
    if (isLost(first))
        lost_.insert(heir.item.path);
    heir.readBegan = first.readBegan;
    heir.changedWhileRead = first.changedWhileRead;
    index_.put(heir, run_);
    for (std::size_t i = 1; i < further.size(); ++i) {
        further[i].sameFileAs = heir.item.path;
        index_.put(further[i], run_);
    }
}

bool RunIndex::isKept(const std::string& path) const
{
    for (std::string_view above = path; !above.empty(); above = parentOf(above)) {
        if (keptPaths_.contains(std::string(above)))
            return true;
    }
    return false;
}

std::uint64_t RunIndex::keepAsStale(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    if (isKept(path))
        return 0;
    keptPaths_.insert(path);
    std::uint64_t count = 0;
    index_.forEach(path, [&](const StoredItem& item) {
        ++count;
        if (changes_ && !item.isStale) {
            StoredItem stale = item;
            stale.isStale = true;
            index_.put(stale, run_);
        }
        return true;
    });
    return count;
}

bool RunIndex::keepAloneAsStale(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    auto item = index_.find(path);
    if (!item || !changes_ || item->isStale)
        return item.has_value();
    item->isStale = true;
    index_.put(*item, run_);
    return true;
}

std::vector<PlaceNote> RunIndex::notesIn(const std::string& folder)
{
    const std::lock_guard lock(mutex_);
    return hasNotes_ ? index_.notesIn(folder) : std::vector<PlaceNote>();
}

void RunIndex::putNoteLocked(const PlaceNote& note)
{
    hasNotes_ = true;
    index_.putNote(note, run_);
}

bool RunIndex::isMissed(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    const auto note = hasNotes_ ? index_.noteAt(path) : std::nullopt;
    return note && note->kind == PlaceNote::Kind::missed;
}

void RunIndex::noteMissed(const std::string& path, const std::string& why)
{
    const std::lock_guard lock(mutex_);
    if (changes_ && !index_.find(path))
        putNoteLocked({path, PlaceNote::Kind::missed, why});
}

void RunIndex::leaveOut(const std::string& path, const std::string& why, bool isWorthANote)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    partFrom(path, nullptr);
    index_.remove(path, run_);
    if (hasNotes_)
        index_.removeNotesBelow(path, run_);
    if (isWorthANote)
        putNoteLocked({path, PlaceNote::Kind::leftOut, why});
    else if (hasNotes_)
        index_.removeNote(path, run_);
}

void RunIndex::noteLeftOut(const std::string& path, const std::string& why)
{
    const std::lock_guard lock(mutex_);
    if (changes_)
        putNoteLocked({path, PlaceNote::Kind::leftOut, why});
}

void RunIndex::noteCutOff(const std::string& folder, const std::string& why)
{
    const std::lock_guard lock(mutex_);
    if (changes_)
        putNoteLocked({folder, PlaceNote::Kind::cutOff, why});
}

void RunIndex::beginWalk(const std::string& folder, const std::string& rules)
{
    const std::lock_guard lock(mutex_);
    const auto note = hasNotes_ && changes_ ? index_.noteAt(folder) : std::nullopt;
    if (note && (note->kind == PlaceNote::Kind::leftOut ||
                 (note->kind == PlaceNote::Kind::walked && note->text != rules)))
        index_.removeNote(folder, run_);
}

void RunIndex::noteWalked(const std::string& folder, const std::string& rules)
{
    const std::lock_guard lock(mutex_);
    walks_.insert_or_assign(folder, rules);
}

void RunIndex::dropWalk(const std::string& folder)
{
    const std::lock_guard lock(mutex_);
    walks_.insert_or_assign(folder, std::nullopt);
}

void RunIndex::endWalkLocked(const std::string& folder, const std::optional<std::string>& rules)
{
    if (rules)
        return putNoteLocked({folder, PlaceNote::Kind::walked, *rules});
    const auto note = hasNotes_ ? index_.noteAt(folder) : std::nullopt;
    if (note && (note->kind == PlaceNote::Kind::walked || note->kind == PlaceNote::Kind::cutOff))
        index_.removeNote(folder, run_);
}

void RunIndex::dropNote(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    if (!changes_)
        return;
    const auto note = index_.noteAt(path);
    if (note && note->kind == PlaceNote::Kind::cutOff)
        doneWithNotes_.insert(path);
    else
        index_.removeNote(path, run_);
}

void RunIndex::dropNotes(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    vanishedNotes_.push_back(path);
}

void RunIndex::conclude()
{
    const std::lock_guard lock(mutex_);
    if (!changes_)
        return;
    for (const std::string& path : vanished_)
        removeLocked(path);
    for (const std::string& path : vanishedNotes_) {
        index_.removeNote(path, run_);
        index_.removeNotesBelow(path, run_);
    }
    for (const std::string& path : doneWithNotes_) {
        if (const auto note = index_.noteAt(path);
            note && note->kind == PlaceNote::Kind::cutOff && !walks_.contains(path))
            index_.removeNote(path, run_);
    }
    for (const auto& [folder, rules] : walks_)
        endWalkLocked(folder, rules);
    vanished_.clear();
    vanishedNotes_.clear();
    doneWithNotes_.clear();
    walks_.clear();
}

void RunIndex::commit()
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    commitLocked();
}

void RunIndex::commitLocked()
{
    index_.commit();
    for (const std::string& path : stored_)
        journal_.remove(owner_, path);
    stored_.clear();
    committed_ = std::chrono::steady_clock::now();
}

} // namespace stowline::backup
