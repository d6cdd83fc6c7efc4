#include "stowline/backup/TreeIntake.h"

#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/text/Text.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;

bool isNothingAt(const std::string& path)
{
    std::error_code fault;
    return fs::symlink_status(path, fault).type() == fs::file_type::not_found;
}

} // namespace

TreeIntake::Frame& TreeIntake::frameOf(const std::string& folder)
{
    if (frames_.empty() || frames_.back().path != folder) {
        Frame frame;
        frame.path = folder;
        frame.known = index_.itemsIn(folder);
        frame.isMet.resize(frame.known.size());
        frame.notes = index_.notesIn(folder);
        frame.isNoteMet.resize(frame.notes.size());
        if (!frames_.empty()) {
            frame.isDiskMissing = frames_.back().isDiskMissing;
            frame.wasMissing = frames_.back().wasMissing;
        }
        frames_.push_back(std::move(frame));
    }
    return frames_.back();
}

/// What is known of an item, which counts as met from now on.
std::optional<StoredItem> TreeIntake::meet(const std::string& path)
{
    const std::string folder(parentOf(path));
    if (frames_.empty() || frames_.back().path != folder)
        return index_.find(path);
    Frame& frame = frames_.back();
    const auto note = std::ranges::lower_bound(frame.notes, path, {}, &PlaceNote::path);
    if (note != frame.notes.end() && note->path == path)
        frame.isNoteMet[static_cast<std::size_t>(note - frame.notes.begin())] = true;
    const auto place = std::ranges::lower_bound(
        frame.known, path, {},
        [](const StoredItem& item) -> const std::string& { return item.item.path; });
    if (place == frame.known.end() || place->item.path != path)
        return std::nullopt;
    frame.isMet[static_cast<std::size_t>(place - frame.known.begin())] = true;
    return *place;
}

/// What an earlier run noted of an item that is wanted now: that it was left out holds no more, nor
/// does that it was a named folder, when it is looked at as a part of another.
void TreeIntake::takeNote(const FoundItem& found)
{
    const std::string& path = found.item.path;
    const bool isNamedFolder = found.isNamed && found.item.kind == ItemKind::folder;
    if (isNamedFolder)
        index_.beginWalk(path, rules_);
    const PlaceNote* note = noteOf(path);
    if (note == nullptr || isNamedFolder)
        return;
    // Of what is not a folder, that it was missed goes only when it is stored.
    if (note->kind != PlaceNote::Kind::missed || found.item.kind == ItemKind::folder)
        index_.dropNote(path);
}

/// What earlier runs noted of an item in the folder that is being walked; null: nothing.
const PlaceNote* TreeIntake::noteOf(const std::string& path) const
{
    if (frames_.empty() || frames_.back().path != parentOf(path))
        return nullptr;
    const auto& notes = frames_.back().notes;
    const auto note = std::ranges::lower_bound(notes, path, {}, &PlaceNote::path);
    return note != notes.end() && note->path == path ? &*note : nullptr;
}

void TreeIntake::carryForward(const std::string& path)
{
    for (std::uint64_t kept = index_.keepAsStale(path); kept > 0; --kept)
        accounts_.carriedForward();
}

void TreeIntake::fail(const std::string& path, ItemKind kind, const std::string& cause)
{
    carryForward(path);
    index_.noteMissed(path, cause);
    accounts_.done({.path = path, .kind = kind, .cause = cause});
}

bool TreeIntake::describe(FoundItem& found)
{
    const auto fault = readAttributes(found);
    if (!fault)
        return true;
    fail(found.item.path, found.item.kind,
         found.item.path + ": its extended attributes cannot be read: " + *fault + ".");
    return false;
}

void TreeIntake::found(FoundItem found)
{
    if (found.isPassage) {
        notePassage(std::move(found));
        return;
    }
    metAnything_ = true;
    const bool isFolder = found.item.kind == ItemKind::folder;
    const std::string path = found.item.path;
    const auto known = meet(path);
    takeNote(found);
    accounts_.found(found.item.kind == ItemKind::file && found.sameFileAs.empty() ? found.item.size
                                                                                  : 0);
    const bool lostItsDisk = known && known->item.isMountPoint && !found.item.isMountPoint;
    if (isFolder && (found.isNamed || lostItsDisk)) {
        Frame& frame = frameOf(path);
        frame.waiting = std::move(found);
        if (lostItsDisk) {
            frame.lostItsDisk = true;
            frame.wasMissing = known->isStale;
            frame.isDiskMissing = holdsNextToNothing(path, frame.wasMissing);
            frame.heldItems = countHeld(path, frame.wasMissing);
        }
        return;
    }
    const bool tookTheDisksPlace =
        !isFolder && known && known->item.isMountPoint && known->item.kind == ItemKind::folder;
    if (const std::uint64_t held = tookTheDisksPlace ? countHeld(path, known->isStale) : 0) {
        fail(path, found.item.kind,
             fmt::format("No disk is mounted at {}, but one was when it was last backed up, and "
                         "held {}; another item stands there now. What the disk held stays in the "
                         "record. If it is gone for good, leave {} out once.",
                         path, platform::countText(held, "item", "items"), path));
        return;
    }
    if (!isFolder && known && isOnMissingDisk(*known)) {
        fail(path, found.item.kind,
             path + ": the disk on which it was last backed up is not mounted, and another item "
                    "stands in its place. What the disk held stays in the record.");
        return;
    }
    if (isFolder && known && isOnMissingDisk(*known)) {
        (void)frameOf(path); // for what is in it
        if (index_.keepAloneAsStale(path))
            accounts_.carriedForward();
        accounts_.done(
            {.path = path, .state = ItemState::recorded, .kind = found.item.kind, .cause = {}});
        return;
    }
    if (isFolder)
        (void)frameOf(path);
    if (options_.ignoresChangeTime && !describe(found))
        return;
    Decision decision = compare(known ? &*known : nullptr, found.item, found.sameFileAs, options_);
    if (!found.sameFileAs.empty() && index_.meetFurtherName(path, found.sameFileAs))
        decision = {Verdict::recorded, ChangeReason::hardLink};
    if (decision.verdict != Verdict::unchanged && !options_.ignoresChangeTime && !describe(found))
        return;
    if (found.item.kind == ItemKind::file && found.sameFileAs.empty()) {
        takeFile(std::move(found), known, decision);
        return;
    }
    if (decision.verdict == Verdict::unchanged)
        accounts_.done(
            {.path = path, .state = ItemState::recorded, .kind = found.item.kind, .cause = {}});
    else
        record(std::move(found));
}

void TreeIntake::record(FoundItem found)
{
    const ItemKind kind = found.item.kind;
    const std::string path = found.item.path;
    StoredItem item;
    item.item = std::move(found.item);
    item.sameFileAs = std::move(found.sameFileAs);
    index_.put(item);
    accounts_.done({.path = path, .state = ItemState::recorded, .kind = kind, .cause = {}});
}

/// A folder above a named path: described, but no part of what is counted.
void TreeIntake::notePassage(FoundItem found)
{
    const auto known = meet(found.item.path);
    const std::string path = found.item.path;
    if (known && known->item.isMountPoint && !found.item.isMountPoint &&
        holdsNextToNothing(path, known->isStale)) {
        Frame& frame = frameOf(path);
        frame.isDiskMissing = true;
        frame.wasMissing = known->isStale;
        const std::string held =
            platform::countText(countHeld(path, known->isStale), "item", "items");
        if (index_.keepAloneAsStale(path))
            accounts_.carriedForward();
        accounts_.found();
        accounts_.done({.path = path,
                        .kind = ItemKind::folder,
                        .cause = fmt::format(
                            "No disk is mounted at {}, but one was when what is below it was last "
                            "backed up: {}. They stay in the record as they were.",
                            path, held)});
        return;
    }
    if (compare(known ? &*known : nullptr, found.item, {}, options_).verdict !=
        Verdict::unchanged) {
        (void)readAttributes(found); // what cannot be read of it is not part of the backup
        StoredItem item;
        item.item = std::move(found.item);
        item.isStale = known && known->isStale; // nobody has looked at what is in it
        index_.putPassage(item);
    }
    if (found.leftOut) {
        metAnything_ = true;
        index_.noteLeftOut(path, sentenceOf(*found.leftOut));
        accounts_.foundAndDone({.path = path,
                                .state = ItemState::excluded,
                                .kind = ItemKind::folder,
                                .cause = sentenceOf(*found.leftOut)});
    }
    (void)frameOf(path);
}

void TreeIntake::takeFile(FoundItem found, const std::optional<StoredItem>& known,
                          Decision decision)
{
    const std::string path = found.item.path;
    const std::uint64_t size = found.item.size;
    if (!frames_.empty())
        frames_.back().bytes += size;
    if (decision.verdict == Verdict::read) {
        if (!frames_.empty())
            frames_.back().hasFilesToSend = true;
        if (!jobs_.add({.found = std::move(found), .known = known}))
            walk_.request();
        return;
    }
    if (decision.verdict == Verdict::recorded) {
        StoredItem item = *known;
        item.item = std::move(found.item);
        item.isStale = false;
        index_.put(item);
    }
    accounts_.done({.path = path, .state = ItemState::unchanged, .bytes = size, .cause = {}});
}

void TreeIntake::excluded(const std::string& path, ItemKind kind, const Exclusion& why)
{
    metAnything_ = true;
    if (why.rule == Rule::pseudoFileSystem)
        pseudo_.add(path);
    else if (why.rule == Rule::otherFileSystem)
        mounts_.add(path);
    // The patterns of a run say of files and the like for themselves which they leave out.
    const bool isWorthANote =
        kind == ItemKind::folder || (why.rule != Rule::pattern && why.rule != Rule::notIncluded);
    if (meet(path) || isWorthANote || noteOf(path) != nullptr)
        index_.leaveOut(path, sentenceOf(why), isWorthANote);
    accounts_.foundAndDone(
        {.path = path, .state = ItemState::excluded, .kind = kind, .cause = sentenceOf(why)});
}

void TreeIntake::tellFileSystems()
{
    if (pseudo_.count() > 0)
        accounts_.note("Left out, because what is there only shows the state of the system: " +
                       pseudo_.text() + ". What is named is backed up all the same.");
    if (mounts_.count() > 0)
        accounts_.note("Left out, because other file systems are mounted there: " + mounts_.text() +
                       ".");
}

void TreeIntake::failed(const WalkFailure& failure)
{
    const bool isMissing = failure.isNamed && isNothingAt(failure.path);
    if (isMissing)
        ++missing_;
    else
        metAnything_ = true;
    (void)meet(failure.path);
    accounts_.found();
    std::string cause = "Nothing was found at " + failure.path + ".";
    if (!isMissing)
        cause =
            fmt::format("{} {} cannot be looked at: {}.",
                        failure.isFolder ? "The folder" : "The item", failure.path, failure.reason);
    const ItemKind kind = failure.isFolder ? ItemKind::folder : ItemKind::file;
    if (!isMissing)
        return fail(failure.path, kind, cause);
    carryForward(failure.path); // but where there was never anything nothing was missed
    accounts_.done({.path = failure.path, .kind = kind, .cause = cause});
}

/// Whether an item that is known was on the disk, and not put into its place since.
bool TreeIntake::wasOnDisk(const Frame& frame, const StoredItem& item)
{
    return !frame.wasMissing || item.isStale;
}

/// Whether an item that is known was on a disk that is not there.
bool TreeIntake::isOnMissingDisk(const StoredItem& item) const
{
    return !frames_.empty() && frames_.back().isDiskMissing && wasOnDisk(frames_.back(), item);
}

/// Whether of the files that a disk held hardly any stand in its place: of the first thousand that
/// are not empty, fewer than half. Folders, and files that programs make again, say nothing. False
/// where the disk held no such file.
bool TreeIntake::holdsNextToNothing(const std::string& folder, bool wasMissing)
{
    constexpr std::uint64_t enough = 1000;
    std::uint64_t held = 0;
    std::uint64_t standing = 0;
    index_.withLock([&](ItemIndex& index) {
        index.forEach(folder, [&](const StoredItem& known) {
            const ItemRecord& item = known.item;
            if (item.kind != ItemKind::file || item.size == 0 || (wasMissing && !known.isStale))
                return true;
            const auto there = platform::fileStatus(item.path);
            standing += there && there->isRegular && there->size == item.size ? 1 : 0;
            return ++held < enough;
        });
    });
    return 2 * standing < held;
}

/// How many items below a folder were on its disk.
std::uint64_t TreeIntake::countHeld(const std::string& folder, bool wasMissing)
{
    std::uint64_t count = 0;
    index_.withLock([&](ItemIndex& index) {
        index.forEach(folder, [&](const StoredItem& known) {
            count += known.item.path != folder && (!wasMissing || known.isStale) ? 1 : 0;
            return true;
        });
    });
    return count;
}

/// Nothing of what was known is there: the folder is empty, or no mount point any more, whatever
/// somebody has put into it since.
bool TreeIntake::isMissingDisk(const Frame& frame, const FolderEnd& folder)
{
    if (frame.lostItsDisk && frame.isDiskMissing)
        return true;
    if (!(folder.isNamed && folder.names == 0) && !frame.lostItsDisk)
        return false;
    bool isHeld = false;
    for (std::size_t i = 0; i < frame.known.size(); ++i) {
        if (!wasOnDisk(frame, frame.known[i]))
            continue;
        if (frame.isMet[i])
            return false;
        isHeld = true;
    }
    return isHeld;
}

void TreeIntake::failMissingDisk(const Frame& frame, const FolderEnd& folder)
{
    index_.dropWalk(folder.path);
    for (std::size_t i = 0; i < frame.known.size(); ++i) {
        const std::string& path = frame.known[i].item.path;
        if (wasOnDisk(frame, frame.known[i]) && !(frame.isDiskMissing && frame.isMet[i])) {
            carryForward(path);
        } else if (!frame.isMet[i]) {
            index_.vanish(path);
        }
    }
    if (index_.keepAloneAsStale(folder.path))
        accounts_.carriedForward();
    const std::string held = platform::countText(
        frame.lostItsDisk ? frame.heldItems : countHeld(folder.path, frame.wasMissing), "item",
        "items");
    accounts_.done(
        {.path = folder.path,
         .kind = ItemKind::folder,
         .cause = frame.lostItsDisk
                      ? fmt::format("No disk is mounted at {}, but one was when it was last backed "
                                    "up, and held {}. They stay in the record as they were. If the "
                                    "disk is gone for good, remove the folder or leave it out.",
                                    folder.path, held)
                      : fmt::format("{} is empty, but held {} when it was last backed up. Is its "
                                    "disk not mounted? If it is meant to be empty, back up the "
                                    "folder above it.",
                                    folder.path, held)});
}

void TreeIntake::left(const FolderEnd& folder)
{
    Frame frame = std::move(frameOf(folder.path));
    frames_.pop_back();
    if (!frames_.empty()) {
        frames_.back().bytes += frame.bytes;
        frames_.back().hasFilesToSend = frames_.back().hasFilesToSend || frame.hasFilesToSend;
    }
    if (folder.isPassage) {
        if (folder.isLeftOut)
            leaveUnmet(frame, true);
        return;
    }
    if (isMissingDisk(frame, folder))
        return failMissingDisk(frame, folder);
    const bool isDescribed = !frame.waiting || recordWaiting(frame);
    leaveUnmet(frame, folder.isComplete);
    if (folder.isNamed && folder.isComplete && isDescribed)
        index_.noteWalked(folder.path, rules_);
    else if (folder.isNamed)
        index_.dropWalk(folder.path);
    if (frame.hasFilesToSend && General::isPathPackage(folder.path))
        onPackage_(folder.path, frame.bytes);
}

/// @return false when it failed: that is told
bool TreeIntake::recordWaiting(Frame& frame)
{
    const auto known = index_.find(frame.path);
    const bool isSame =
        compare(known ? &*known : nullptr, frame.waiting->item, {}, options_).verdict ==
        Verdict::unchanged;
    if (isSame)
        accounts_.done({.path = frame.path,
                        .state = ItemState::recorded,
                        .kind = ItemKind::folder,
                        .cause = {}});
    else if (!describe(*frame.waiting))
        return false;
    else
        record(std::move(*frame.waiting));
    return true;
}

/// What is known of a folder and was not met in it.
void TreeIntake::leaveUnmet(const Frame& frame, bool isComplete)
{
    for (std::size_t i = 0; i < frame.known.size(); ++i) {
        if (frame.isMet[i])
            continue;
        // A folder that could not be listed to its end says nothing of what was not met.
        const ItemRecord& item = frame.known[i].item;
        if (frame.isDiskMissing && wasOnDisk(frame, frame.known[i])) {
            carryForward(item.path);
            continue;
        }
        const bool isGone = isComplete || isNothingAt(item.path);
        if (isGone && item.isMountPoint)
            accounts_.note(item.path + " is not there, but a disk was mounted at it when it was "
                                       "last backed up. What it held is not part of this run.");
        if (isGone)
            index_.vanish(item.path);
        else
            carryForward(item.path);
    }
    for (std::size_t i = 0; i < frame.notes.size(); ++i) {
        const std::string& path = frame.notes[i].path;
        if (!frame.isNoteMet[i] && !frame.isDiskMissing && (isComplete || isNothingAt(path)))
            index_.dropNotes(path);
    }
}

} // namespace stowline::backup
