#include "stowline/backup/restore/Pruning.h"

#include "stowline/backup/record/StateFolder.h"
#include "stowline/backup/restore/DeletionRefusal.h"
#include "stowline/backup/restore/FilePlacer.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace stowline::backup {

namespace {

using platform::TargetFolder;
using platform::TargetKind;
using platform::TargetStatus;

constexpr std::uint32_t kOwnersOwn = 0700;
constexpr std::uint32_t kOwnersLook = 0500;

ItemKind itemKind(TargetKind kind)
{
    switch (kind) {
    case TargetKind::file:
        return ItemKind::file;
    case TargetKind::folder:
        return ItemKind::folder;
    case TargetKind::link:
        return ItemKind::link;
    case TargetKind::pipe:
        return ItemKind::pipe;
    case TargetKind::socket:
        return ItemKind::socket;
    case TargetKind::characterDevice:
        return ItemKind::characterDevice;
    case TargetKind::blockDevice:
        break;
    }
    return ItemKind::blockDevice;
}

std::pair<std::uint64_t, std::uint64_t> identityOf(const TargetStatus& status)
{
    return {status.device, status.inode};
}

/// Whether an item is still what it was. A folder changes as soon as something in it goes.
bool isSameItem(const TargetStatus& now, const TargetStatus& before)
{
    if (identityOf(now) != identityOf(before) || now.kind != before.kind)
        return false;
    return now.kind == TargetKind::folder ||
           (now.size == before.size && now.modifiedSeconds == before.modifiedSeconds &&
            now.modifiedNanoseconds == before.modifiedNanoseconds);
}

bool holds(const std::vector<std::string>& names, std::string_view name)
{
    return std::ranges::find(names, name) != names.end();
}

/// The beginning of a file; empty when it cannot be read.
std::string beginningOf(const TargetFolder& folder, const std::string& name, std::size_t most)
{
    int error = 0;
    const auto file = folder.openFile(name, error);
    std::string text(most, '\0');
    const auto count = file ? file->readAt(0, text) : std::nullopt;
    text.resize(count.value_or(0));
    return text;
}

bool isCache(const TargetFolder& folder, const std::vector<std::string>& names)
{
    return holds(names, kCacheTagName) &&
           isCacheTag(beginningOf(folder, std::string(kCacheTagName), kCacheTagBytes));
}

/// The names that the file ".hidden" in a folder lists.
std::set<std::string> hiddenNamesIn(const TargetFolder& folder,
                                    const std::vector<std::string>& names)
{
    constexpr std::size_t most = 1U << 20;
    std::set<std::string> hidden;
    if (holds(names, ".hidden")) {
        for (std::string& name : pathsOfList(beginningOf(folder, ".hidden", most)))
            hidden.insert(std::move(name));
    }
    return hidden;
}

/// Whether another restore is filling a file at this moment.
bool isBeingGathered(const TargetFolder& folder, const std::string& name)
{
    int error = 0;
    const auto file = isGatheringName(name) ? folder.openFile(name, error) : std::nullopt;
    return file && !file->lock();
}

std::string cannotBeDeleted(const std::string& path, const std::string& why)
{
    return path + " was not in the run and cannot be deleted: " + why + ".";
}

/// The names of what a run holds in a folder, by their bytes.
std::vector<std::string> heldNames(const ItemIndex& items, const std::string& folder)
{
    constexpr std::size_t page = 1000;
    std::vector<std::string> names;
    for (bool isMore = true; isMore;) {
        const auto held = items.itemsIn(folder, names.empty() ? "" : names.back(), page);
        for (const StoredItem& stored : held)
            names.emplace_back(nameOf(stored.item.path));
        isMore = held.size() == page;
    }
    return names;
}

} // namespace

struct Pruning::Names {
    std::vector<std::string> others; ///< that are not held
    std::map<std::string, PlaceNote> notes;
    std::set<std::string> hidden;
    bool areMistaken = false; ///< the file system shows something held under another name
};

Pruning::Pruning(const RestoreRequest& request, const RecordHead& head, const ItemIndex& items,
                 const TreeRules& patterns, Owners& owners)
    : request_(request), head_(head), items_(items), patterns_(patterns), owners_(owners),
      absences_(items, foldersWalkedBy(head, items))
{
    int error = 0;
    const auto& folder = request.choice.stateFolder;
    const auto state = folder ? TargetFolder::open(*folder, false, error) : std::nullopt;
    if (state)
        ownState_ = state->status();
}

std::optional<std::string> Pruning::refusal(const Selection& selection,
                                            const std::filesystem::path& root)
{
    return refusalToDelete(head_, items_, absences_, selection, patterns_, root);
}

/// The folder in which backups of any user and profile keep their state.
bool Pruning::isOwnState(const TargetFolder& folder, const std::vector<std::string>& names) const
{
    const auto status = folder.status();
    if (ownState_ && status && identityOf(*status) == identityOf(*ownState_))
        return true;
    return isProfileFolder(names);
}

bool Pruning::stays(Stays reason)
{
    ++staying_[reason];
    return false;
}

void Pruning::fail(const std::string& path, ItemKind kind, const std::string& why) const
{
    (*failed_)({.path = path,
                .kind = kind,
                .state = RestoredState::failed,
                .faults = {cannotBeDeleted(path, why)}});
}

std::optional<TargetFolder> Pruning::top(const Tree& tree, int& error) const
{
    const auto root = TargetFolder::open(tree.root, false, error);
    const auto status = root ? root->status() : std::nullopt;
    if (!status)
        return std::nullopt;
    error = ESTALE; // another folder has taken the place of the one that was restored into
    if (identityOf(*status) != identityOf(tree.rootStatus))
        return std::nullopt;
    return root->below(tree.selection.placeOf(tree.selection.named()), error);
}

std::string Pruning::onDisk(const Tree& tree, std::string_view path) const
{
    const std::string place = tree.selection.placeOf(path);
    return place.empty() ? tree.root.string() : pathIn(tree.root.string(), place);
}

void Pruning::plan(std::vector<Tree> trees, const std::function<void(RestoredItem)>& failed,
                   const StopRequest& stop)
{
    trees_.swap(trees);
    failed_ = &failed;
    stop_ = &stop;
    for (const Tree& tree : trees_) {
        int error = 0;
        const auto root = TargetFolder::open(tree.root, false, error);
        const std::string name = tree.selection.placeOf(tree.selection.named());
        const auto placed = !root          ? std::nullopt
                            : name.empty() ? root->status()
                                           : root->find(name, error);
        if (placed)
            placed_.insert(identityOf(*placed));
    }
    for (tree_ = 0; tree_ < trees_.size() && !stop.isRequested(); ++tree_)
        planTree(trees_[tree_]);
    top_.reset();
}

void Pruning::planTree(const Tree& tree)
{
    const std::string& named = tree.selection.named();
    const auto stored = items_.find(named);
    if (!stored || stored->item.kind != ItemKind::folder)
        return;
    int error = 0;
    top_ = top(tree, error);
    const auto status = top_ ? top_->status() : std::nullopt;
    if (!status) {
        if (!request_.isDryRun) // else it would be made
            fail(onDisk(tree, named), ItemKind::folder, platform::systemErrorText(error));
        return;
    }
    device_ = status->device;
    std::vector<Frame> frames;
    IdlePatterns unused(patterns_);
    tree.selection.forEach(items_, unused, [&](const StoredItem& item) {
        if (item.item.kind == ItemKind::folder)
            planFolder(tree, item, frames);
        return !stop_->isRequested();
    });
}

void Pruning::planFolder(const Tree& tree, const StoredItem& stored, std::vector<Frame>& frames)
{
    const std::string& path = stored.item.path;
    while (!frames.empty() && !isAtOrBelow(path, frames.back().place.path))
        frames.pop_back();
    Frame frame;
    frame.isBarred = !frames.empty() && frames.back().isBarred;
    if (frames.empty() || frames.back().place.path != parentOf(path))
        frame.place = absences_.at(path);
    else
        frame.place = absences_.in(frames.back().place, path,
                                   {.isFolder = true,
                                    .held = &stored.item,
                                    .isStale = stored.isStale,
                                    .note = items_.noteAt(path)});
    frames.push_back(std::move(frame));
    if (!frames.back().isBarred)
        frames.back().isBarred = !planBelow(tree, stored.item, frames.back().place);
}

/// @return false when nothing at or below the folder may go
bool Pruning::planBelow(const Tree& tree, const ItemRecord& item, Place& place)
{
    const std::string& named = tree.selection.named();
    const std::string below =
        item.path == named ? std::string() : item.path.substr(named == "/" ? 1 : named.size() + 1);
    if (item.isMountPoint && !below.empty() && isOwnPlace(tree.selection, tree.root))
        return stays(Stays::otherMount); // or the disk is not there
    int error = 0;
    const auto folder = top_->belowOnSameMount(below, error);
    auto listed = folder ? folder->names(error) : std::nullopt;
    if (!listed) {
        if (error == EXDEV)
            return stays(Stays::otherMount);
        const bool isNotYetThere = error == ENOENT || error == ENOTDIR || error == ELOOP;
        if (!(request_.isDryRun && isNotYetThere))
            fail(onDisk(tree, item.path), item.kind, platform::systemErrorText(error));
        return false;
    }
    if (isOwnState(*folder, *listed))
        return stays(Stays::ownState);
    const bool isBase = place.noted != nullptr && place.baseLength == place.path.size();
    if (place.absence == Absence::wasNotThere && place.noted->rules.skipsCaches && !isBase &&
        isCache(*folder, *listed))
        place.absence = Absence::leftOut;
    folders_.push_back({tree_, below});
    const std::size_t first = doomed_.size();
    const std::size_t number = folders_.size() - 1;
    const Names names = namesIn(*folder, place, std::move(*listed));
    for (const std::string& name : names.others)
        (void)isDoomed({*folder, number, place}, name, names);
    if (doomed_.size() == first)
        folders_.resize(number);
    else
        groups_.push_back({number, first, doomed_.size(), item.path, folder->status()});
    return true;
}

Pruning::Names Pruning::namesIn(const TargetFolder& folder, const Place& place,
                                std::vector<std::string> listed) const
{
    Names names;
    if (place.noted != nullptr && place.noted->rules.skipsHidden)
        names.hidden = hiddenNamesIn(folder, listed);
    std::ranges::sort(listed);
    const auto held = heldNames(items_, place.path);
    std::ranges::set_difference(listed, held, std::back_inserter(names.others));
    for (PlaceNote& note : items_.notesIn(place.path))
        names.notes.emplace(nameOf(note.path), std::move(note));
    if (names.others.empty())
        return names;
    const auto isShownAsAnother = [&](const std::string& name) {
        int error = 0;
        return !std::ranges::binary_search(listed, name) && folder.find(name, error);
    };
    names.areMistaken = std::ranges::any_of(held, isShownAsAnother) ||
                        std::ranges::any_of(names.notes, [&](const auto& note) {
                            return isShownAsAnother(note.first);
                        });
    return names;
}

bool Pruning::isDoomed(const Where& where, const std::string& name, const Names& names)
{
    int error = 0;
    const std::string path = pathIn(where.place.path, name);
    const auto there = where.folder.find(name, error);
    if (stop_->isRequested() || (!there && error == ENOENT)) // it has gone by itself
        return !stop_->isRequested();
    if (!there) {
        fail(onDisk(trees_[tree_], path), ItemKind::file, platform::systemErrorText(error));
        return false;
    }
    const bool isFolder = there->kind == TargetKind::folder;
    if (placed_.contains(identityOf(*there)))
        return stays(Stays::inUse);
    if (where.folder.isMountPoint(name))
        return stays(Stays::otherMount);
    const auto note = names.notes.find(name);
    const Place place = absences_.in(
        where.place, path,
        {.isFolder = isFolder,
         .isListedAsHidden = names.hidden.contains(name),
         .note = note == names.notes.end() ? std::nullopt : std::optional(note->second)});
    const bool isElsewhere =
        there->device != device_ && place.noted != nullptr && place.noted->rules.staysOnFileSystem;
    if (place.absence == Absence::wasNotThere && isElsewhere) // without being mounted
        return stays(Stays::leftOut);
    if (place.absence != Absence::wasNotThere)
        return stays(place.absence == Absence::leftOut ? Stays::leftOut : Stays::notLookedAt);
    const Selection& selection = trees_[tree_].selection;
    if (selection.leavesOut(path, isFolder))
        return stays(Stays::patterns);
    if (names.areMistaken)
        return stays(Stays::sameName);
    if (isBeingGathered(where.folder, name))
        return stays(Stays::inUse);
    if (isFolder && !isFolderDoomed(where, place, name))
        return false;
    if (!selection.takes(path, isFolder))
        return stays(Stays::patterns);
    doomed_.push_back({where.number, name, *there});
    return true;
}

namespace {

/// Lets the owner into a folder, who is to look at what is in it; out again with this.
class OpenedForLooking {
public:
    OpenedForLooking(const TargetFolder& above, const std::string& name, bool isWanted)
        : above_(above), name_(name)
    {
        int error = 0;
        const auto there = isWanted ? above.find(name, error) : std::nullopt;
        if (there && there->owner == platform::ownUserNumber() &&
            (there->mode & kOwnersLook) != kOwnersLook &&
            above.setMode(name, there->mode | kOwnersLook) == 0)
            mode_ = there->mode;
    }
    ~OpenedForLooking()
    {
        if (mode_)
            (void)above_.setMode(name_, *mode_);
    }
    OpenedForLooking(const OpenedForLooking&) = delete;
    OpenedForLooking& operator=(const OpenedForLooking&) = delete;

private:
    const TargetFolder& above_;
    const std::string& name_;
    std::optional<std::uint32_t> mode_;
};

} // namespace

/// Plans for what is in a folder that the run does not hold. @return whether nothing stays in it
bool Pruning::isFolderDoomed(const Where& above, const Place& place, const std::string& name)
{
    int error = 0;
    const OpenedForLooking opened(above.folder, name, !request_.isDryRun);
    const auto folder = above.folder.belowOnSameMount(name, error);
    auto listed = folder ? folder->names(error) : std::nullopt;
    if (!listed) {
        if (error == EXDEV)
            return stays(Stays::otherMount);
        fail(onDisk(trees_[tree_], place.path), ItemKind::folder, platform::systemErrorText(error));
        return false;
    }
    if (isOwnState(*folder, *listed))
        return stays(Stays::ownState);
    if (place.noted->rules.skipsCaches && isCache(*folder, *listed))
        return stays(Stays::leftOut);
    const Folder& outer = folders_[above.number];
    folders_.push_back({tree_, outer.below.empty() ? name : outer.below + "/" + name});
    const Where where{*folder, folders_.size() - 1, place};
    const Names names = namesIn(*folder, place, std::move(*listed));
    bool isWhole = true;
    for (const std::string& inside : names.others)
        isWhole = isDoomed(where, inside, names) && isWhole;
    return isWhole;
}

std::vector<std::string> Pruning::reasonsToStay() const
{
    static const std::map<Stays, const char*> reasons{
        {Stays::leftOut, "the run's rules leave out such items"},
        {Stays::notLookedAt, "the run did not look there"},
        {Stays::otherMount, "another file system is mounted there, or was in the run"},
        {Stays::ownState, "backups keep their state there"},
        {Stays::patterns, "the patterns given leave them out"},
        {Stays::inUse, "they belong to what was restored, now or by another restore"},
        {Stays::sameName, "the target does not tell their names from those of the run"}};
    std::vector<std::string> sentences;
    for (const auto& [reason, count] : staying_)
        sentences.push_back(fmt::format(
            "{} that {} not in the run {}: {}.", platform::countText(count, "item", "items"),
            count == 1 ? "is" : "are", count == 1 ? "stays" : "stay", reasons.at(reason)));
    return sentences;
}

std::string Pruning::onDisk(const Doomed& doomed) const
{
    const Folder& folder = folders_[doomed.folder];
    const Tree& tree = trees_[folder.tree];
    const std::string above = onDisk(tree, tree.selection.named());
    return pathIn(folder.below.empty() ? above : pathIn(above, folder.below), doomed.name);
}

std::vector<std::string> Pruning::firstPlanned() const
{
    constexpr std::size_t most = 3;
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < std::min(most, doomed_.size()); ++i)
        paths.push_back(onDisk(doomed_[i]));
    return paths;
}

void Pruning::tellPlan(const std::function<void(RestoredItem)>& tell) const
{
    for (const Doomed& doomed : doomed_)
        tell({.path = onDisk(doomed),
              .kind = itemKind(doomed.status.kind),
              .state = RestoredState::wouldDelete});
}

void Pruning::carryOut(const std::function<void(RestoredItem)>& tell, const StopRequest& stop)
{
    for (const Group& group : groups_) {
        const Tree& tree = trees_[folders_[group.folder].tree];
        int error = 0;
        const auto above = top(tree, error);
        const auto folder =
            above ? above->belowOnSameMount(folders_[group.folder].below, error) : std::nullopt;
        if (stop.isRequested())
            break;
        const auto status = folder ? folder->status() : std::nullopt;
        const bool isKnown = status && group.status && isOneItem(*status, *group.status);
        if (isKnown)
            carryOut(group, *above, *folder, tell, stop);
        else
            tell({.path = onDisk(tree, group.path),
                  .kind = ItemKind::folder,
                  .faults = {cannotBeDeleted("What is in " + onDisk(tree, group.path),
                                             folder ? "another folder has taken its place"
                                                    : platform::systemErrorText(error))}});
    }
}

/// Opens a folder that is to be emptied, and lets its owner into it and those above it that are
/// closed to them.
std::optional<TargetFolder> Pruning::enter(const TargetFolder& top, const std::string& below,
                                           std::vector<Opened>& opened, int& error)
{
    auto folder = top.belowOnSameMount(below, error);
    if (!folder && error == EACCES && !below.empty()) {
        const auto slash = below.rfind('/');
        const std::string above = slash == std::string::npos ? "" : below.substr(0, slash);
        const std::string name = slash == std::string::npos ? below : below.substr(slash + 1);
        const auto outer = enter(top, above, opened, error);
        const auto there = outer ? outer->find(name, error) : std::nullopt;
        if (!there || there->kind != TargetKind::folder ||
            there->owner != platform::ownUserNumber() || outer->isMountPoint(name))
            return std::nullopt;
        if (const int refused = outer->setMode(name, there->mode | kOwnersOwn)) {
            error = refused;
            return std::nullopt;
        }
        opened.push_back({below, there->mode});
        folder = top.belowOnSameMount(below, error);
    }
    const auto status = folder ? folder->status() : std::nullopt;
    if (status && (status->mode & kOwnersOwn) != kOwnersOwn &&
        status->owner == platform::ownUserNumber() &&
        folder->setMode("", status->mode | kOwnersOwn) == 0)
        opened.push_back({below, status->mode});
    return folder;
}

void Pruning::carryOut(const Group& group, const TargetFolder& top, const TargetFolder& stayed,
                       const std::function<void(RestoredItem)>& tell, const StopRequest& stop)
{
    const auto before = stayed.status();
    const bool isLoosened = before && (before->mode & kOwnersOwn) != kOwnersOwn &&
                            before->owner == platform::ownUserNumber() &&
                            stayed.setMode("", before->mode | kOwnersOwn) == 0;
    std::optional<TargetFolder> folder;
    std::vector<Opened> opened;
    std::size_t number = folders_.size(); // of the open folder
    for (std::size_t at = group.first; at < group.end && !stop.isRequested(); ++at) {
        const Doomed& doomed = doomed_[at];
        int error = 0;
        if (number != doomed.folder)
            folder = enter(top, folders_[doomed.folder].below, opened, error);
        number = doomed.folder;
        const auto there = folder ? folder->find(doomed.name, error) : std::nullopt;
        if (!there && error == ENOENT)
            continue; // somebody else was faster
        RestoredItem report{.path = onDisk(doomed),
                            .kind = itemKind(doomed.status.kind),
                            .state = RestoredState::deleted};
        std::string why;
        if (!there)
            why = platform::systemErrorText(error);
        else if (!isSameItem(*there, doomed.status))
            why = "it has changed since, or another item has taken its place";
        else if (const int refused = there->kind == TargetKind::folder
                                         ? folder->removeFolder(doomed.name)
                                         : folder->remove(doomed.name))
            why = platform::systemErrorText(refused);
        if (!why.empty()) {
            report.state = RestoredState::failed;
            report.faults.push_back(cannotBeDeleted(report.path, why));
        }
        tell(std::move(report));
    }
    folder.reset();
    for (auto closed = opened.rbegin(); closed != opened.rend(); ++closed) { // those that stayed
        int error = 0;
        if (const auto stays = top.belowOnSameMount(closed->below, error))
            (void)stays->setMode("", closed->mode);
    }
    if (isLoosened)
        (void)stayed.setMode("", before->mode);
    int error = 0;
    const auto stored = items_.find(group.path);
    const auto held = stored ? stayed.item("", error) : std::nullopt;
    if (held)
        (void)putMetadata(*held, stored->item, owners_);
    (void)stayed.synchronizeFileSystem();
}

} // namespace stowline::backup
