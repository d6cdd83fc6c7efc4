#include "stowline/backup/restore/TreePlacer.h"

#include "stowline/backup/index/IndexFault.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/files/DescriptorLimit.h"
#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/values/HandledException.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

namespace stowline::backup {

namespace {

using platform::TargetFolder;
using platform::TargetKind;

constexpr std::uint32_t kOwnersOwn = 0700;
constexpr std::uint32_t kNewFolder = 0755;

constexpr const char* kNoContent = "special"; ///< in the place of a digest

bool isDevice(ItemKind kind)
{
    return kind == ItemKind::characterDevice || kind == ItemKind::blockDevice;
}

TargetKind targetKind(ItemKind kind)
{
    switch (kind) {
    case ItemKind::file:
        return TargetKind::file;
    case ItemKind::folder:
        return TargetKind::folder;
    case ItemKind::link:
        return TargetKind::link;
    case ItemKind::pipe:
        return TargetKind::pipe;
    case ItemKind::socket:
        return TargetKind::socket;
    case ItemKind::characterDevice:
        return TargetKind::characterDevice;
    case ItemKind::blockDevice:
        break;
    }
    return TargetKind::blockDevice;
}

} // namespace

const PlacedTree* PlacedTrees::treeWith(const std::string& path) const
{
    const auto tree = std::ranges::find_if(
        trees, [&path](const PlacedTree& one) { return one.selection.takes(path); });
    return tree == trees.end() ? nullptr : &*tree;
}

const PlacedTree* PlacedTrees::treeNamed(const std::string& name) const
{
    const auto tree = std::ranges::find_if(
        trees, [&name](const PlacedTree& one) { return nameOf(one.selection.named()) == name; });
    return tree == trees.end() ? nullptr : &*tree;
}

std::optional<RestoredItem> refusedDevice(const ItemRecord& item, const RestoreRequest& request)
{
    if (!isDevice(item.kind))
        return std::nullopt;
    RestoredItem report{.path = item.path, .kind = item.kind};
    if (!request.restoresDevices) {
        report.state = RestoredState::skipped;
        report.losses.push_back(
            {LossKind::device, true,
             item.path + ": devices are only put back when that is asked for (--devices)."});
        return report;
    }
    if (platform::mayMakeDevices())
        return std::nullopt;
    report.faults.push_back(item.path + ": this user may not make devices.");
    return report;
}

RestoredItem lackOfContent(const ItemRecord& item)
{
    return {.path = item.path,
            .kind = item.kind,
            .faults = {item.path + ": no content of it is stored."}};
}

TreePlacer::TreePlacer(const PlacingContext& context, const ItemIndex& items,
                       const Selection& selection, PlacedTrees& others)
    : context_(context), items_(items), selection_(selection), files_(context_),
      standing_(context.root), others_(others)
{
    context_.mistakenFor = [this](const TargetFolder& folder, const std::string& path) {
        return mistakenFor(folder, path);
    };
    context_.openFolder = [this](const std::string& relative, int& error) {
        return openFolder(relative, error);
    };
    context_.done = [this, done = context.done](RestoredItem report) {
        if (report.state == RestoredState::wouldRestore) {
            const std::lock_guard lock(mutex_);
            if (!report.isMetadataOnly) {
                others_.wouldBeNew.insert(report.path);
                wouldBeChanged_.insert(std::string(parentOf(report.path)));
            }
        } else if (report.kind != ItemKind::folder && report.state != RestoredState::restored &&
                   report.state != RestoredState::unchanged) {
            const std::lock_guard lock(mutex_);
            others_.notInPlace.insert(report.path);
            mayGoOnLater_ = mayGoOnLater_ || report.kind == ItemKind::file;
        }
        done(std::move(report));
    };
}

TreePlacer::Place TreePlacer::placeOf(const std::string& path) const
{
    return placeIn(selection_, path);
}

TreePlacer::Place TreePlacer::placeIn(const Selection& selection, const std::string& path)
{
    const std::string place = selection.placeOf(path);
    const auto slash = place.rfind('/');
    if (slash == std::string::npos)
        return {"", place};
    return {place.substr(0, slash), place.substr(slash + 1)};
}

bool TreePlacer::hasStood(const Place& place)
{
    return place.name.empty() || standing_.stood(place.folder, place.name);
}

/// On file systems that take "File" and "file" for one name.
std::string TreePlacer::mistakenFor(const TargetFolder& folder, const std::string& path) const
{
    const bool hasTarget = context_.request.target.has_value();
    const Place place = placeOf(path);
    for (const std::string& other : otherNamesFor(folder, place.name)) {
        std::string item = pathIn(parentOf(path), other);
        const bool isTaken = selection_.takes(item) || (!hasTarget && others_.treeWith(item));
        if (isTaken && items_.find(item))
            return item;
        // What is named goes side by side into the target, wherever it was.
        if (const auto* tree =
                hasTarget && place.folder.empty() ? others_.treeNamed(other) : nullptr)
            return tree->selection.named();
    }
    return {};
}

void TreePlacer::tell(RestoredItem report)
{
    context_.done(std::move(report));
}

void TreePlacer::fail(const ItemRecord& item, const std::string& what, int error)
{
    tell({.path = item.path,
          .kind = item.kind,
          .faults = {item.path + ": " + what +
                     (error == 0 ? "." : ": " + platform::systemErrorText(error) + ".")}});
}

void TreePlacer::failFolder(const ItemRecord& item, int error)
{
    if (error != ESTALE)
        return fail(item, "its folder cannot be opened", error);
    tell({.path = item.path, .kind = item.kind, .faults = {anothersFolderSentence(item.path)}});
}

void TreePlacer::place(IdlePatterns& idle, const std::function<void(const StoredItem&)>& found)
{
    for (std::size_t i = 0; i < std::max<std::size_t>(context_.request.jobs, 1); ++i) {
        try {
            workers_.emplace_back([this] { work(); });
        } catch (const std::system_error&) { // no more threads to be had
            if (workers_.empty())
                throw;
            break;
        }
    }
    try {
        walk(idle, found);
    } catch (...) {
        endWork();
        throw;
    }
    endWork();
    files_.finish();
    if (!isStopped())
        takeFurtherNames();
    files_.finish();
    finishFolders();
    if (workFault_)
        std::rethrow_exception(workFault_);
}

void TreePlacer::walk(IdlePatterns& idle, const std::function<void(const StoredItem&)>& found)
{
    selection_.forEach(items_, idle, [&](const StoredItem& stored) {
        found(stored);
        take(stored);
        return !isStopped();
    });
}

void TreePlacer::take(const StoredItem& stored)
{
    files_.awaitDescriptors();
    const ItemRecord& item = stored.item;
    if (!notMade_.empty() && isAtOrBelow(item.path, notMade_))
        fail(item, "its folder is not put back");
    else if (item.kind == ItemKind::folder)
        takeFolder(stored);
    else if (auto refused = refusedDevice(item, context_.request))
        tell(std::move(*refused));
    else if (!stored.sameFileAs.empty() || others_.substitutes.contains(item.path))
        furtherNames_.push_back({item.path, hasStood(placeOf(item.path))});
    else if (item.kind != ItemKind::file)
        takeSpecial(stored, hasStood(placeOf(item.path)));
    else
        takeFile(stored);
}

/// Opens a folder below the root, which is the one that was made there or first met.
std::optional<TargetFolder> TreePlacer::openFolder(const std::string& relative, int& error)
{
    auto folder = platform::openedPatiently([&] { return context_.root.below(relative, error); },
                                            error, context_.stop);
    const auto status = folder && !relative.empty() ? folder->status() : std::nullopt;
    if (!status || context_.request.isDryRun)
        return folder;
    const std::pair identity{status->device, status->inode};
    const std::lock_guard lock(knownFoldersMutex_);
    if (knownFolders_.try_emplace(relative, identity).first->second != identity) {
        error = ESTALE;
        return std::nullopt;
    }
    if (!fileSystems_.contains(status->device)) {
        auto held = folder->below("", error);
        if (!held)
            return std::nullopt;
        fileSystems_.emplace(status->device, std::move(*held));
    }
    return folder;
}

int TreePlacer::synchronizeFileSystems() const
{
    int error = context_.root.synchronizeFileSystem();
    const auto root = context_.root.status();
    for (const auto& [device, folder] : fileSystems_) {
        if (root && device == root->device)
            continue;
        const int other = folder.synchronizeFileSystem();
        error = error == 0 ? other : error;
    }
    return error;
}

/// Whether a folder that was just made is the one that is found there: nobody else's, and empty.
bool TreePlacer::isAsMade(const std::string& relative)
{
    int error = 0;
    const auto folder = openFolder(relative, error);
    const auto status = folder ? folder->status() : std::nullopt;
    const auto names = folder ? folder->names(error) : std::nullopt;
    return status && status->owner == platform::ownUserNumber() && names && names->empty();
}

/// Opens a folder below the root, and makes what is missing: folders that the run did not record,
/// since only something below them was named.
std::optional<TargetFolder> TreePlacer::folderFor(const std::string& relative, int& error)
{
    auto folder = openFolder(relative, error);
    if (folder || error != ENOENT || context_.request.isDryRun)
        return folder;
    std::optional<TargetFolder> above = context_.root.below("", error);
    for (std::size_t at = 0; above && at <= relative.size();) {
        const auto slash = std::min(relative.find('/', at), relative.size());
        const std::string name = relative.substr(at, slash - at);
        error = above->makeFolder(name, kNewFolder);
        if (error != 0 && error != EEXIST)
            return std::nullopt;
        above = above->below(name, error);
        at = slash + 1;
    }
    return openFolder(relative, error);
}

/// In a dry run: whether what cannot be opened could be by the time that a real one comes to it.
bool TreePlacer::isUnopenedOnlyNow(int error) const
{
    if (!context_.request.isDryRun)
        return false;
    if (error == ENOTDIR || error == ELOOP) // something else stands there
        return context_.request.overwrite != Overwrite::never;
    return error == ENOENT || (error == EACCES && wouldOpenMore_);
}

void TreePlacer::takeFolder(const StoredItem& stored)
{
    const ItemRecord& item = stored.item;
    const Place place = placeOf(item.path);
    int error = 0;
    const auto above = place.name.empty() ? std::nullopt : folderFor(place.folder, error);
    if (place.name.empty()) { // the target itself
        folders_.push_back(item.path);
        return;
    }
    if (!above && !isUnopenedOnlyNow(error))
        return failFolder(item, error);
    const bool stood = hasStood(place);
    auto there = above ? above->find(place.name, error) : std::nullopt;
    if (const std::string other = there && !stood ? mistakenFor(*above, item.path) : "";
        !other.empty()) {
        notMade_ = item.path;
        return tell(
            {.path = item.path, .kind = item.kind, .faults = {mistakenSentence(item.path, other)}});
    }
    if (there && there->kind != TargetKind::folder) {
        if (isLeftAlone(context_.request.overwrite, item, *there)) {
            notMade_ = item.path;
            return fail(item, context_.request.overwrite == Overwrite::never
                                  ? "something else stands in its place"
                                  : "something else stands in its place, and is not older");
        }
        if (context_.request.isDryRun)
            there.reset();
        else if (const int refused = above->remove(place.name))
            return fail(item, "what stands in its place cannot be removed", refused);
        there.reset();
    }
    if (context_.request.isDryRun) {
        const bool isLoosened = there && (there->mode & kOwnersOwn) != kOwnersOwn &&
                                there->owner == platform::ownUserNumber();
        wouldOpenMore_ = wouldOpenMore_ || isLoosened;
        if (!there)
            madeFolders_.insert(item.path);
    } else if (!there) {
        if (const int refused = above->makeFolder(place.name, kOwnersOwn))
            return fail(item, "it cannot be made", refused);
        if (!isAsMade(selection_.placeOf(item.path))) {
            notMade_ = item.path;
            return tell(
                {.path = item.path, .kind = item.kind, .faults = {anothersSentence(item.path)}});
        }
        madeFolders_.insert(item.path);
        standing_.note(selection_.placeOf(item.path));
    } else {
        loosen(*above, place.name, item.path);
        (void)openFolder(selection_.placeOf(item.path), error); // remembers it
    }
    folders_.push_back(item.path);
}

/// To put something into a folder of our own; its mode comes back at the end.
void TreePlacer::loosen(const TargetFolder& above, const std::string& name, const std::string& path)
{
    int error = 0;
    const auto folder = above.item(name, error);
    const auto there = folder ? folder->status() : std::nullopt;
    if (there && there->kind == TargetKind::folder && (there->mode & kOwnersOwn) != kOwnersOwn &&
        there->owner == platform::ownUserNumber() && folder->setMode(there->mode | kOwnersOwn) == 0)
        loosenedFolders_[path] = there->mode;
}

void TreePlacer::takeFile(const StoredItem& stored)
{
    if (!stored.content)
        return tell(lackOfContent(stored.item));
    Place place = placeOf(stored.item.path);
    int error = 0;
    const auto folder = folderFor(place.folder, error); // who puts it there says what is wrong
    if (!folder && context_.request.isDryRun && !isUnopenedOnlyNow(error))
        return failFolder(stored.item, error);
    const bool stood = hasStood(place);
    std::string temporary = temporaryFor(stored.item.path, stored.content->digest);
    queue({stored, std::move(place.folder), std::move(place.name), std::move(temporary), stood});
}

/// A name beside an item's place that no item of the run has.
std::string TreePlacer::temporaryFor(const std::string& path, const std::string& content) const
{
    std::string name = gatheringName(std::string(nameOf(path)), content);
    for (unsigned attempt = 1; items_.find(pathIn(parentOf(path), name)); ++attempt)
        name = gatheringName(std::string(nameOf(path)), content, attempt);
    return name;
}

bool TreePlacer::isSame(const ItemRecord& item, const platform::TargetItem& held,
                        const platform::TargetStatus& there)
{
    if (there.kind != targetKind(item.kind))
        return false;
    if (item.kind == ItemKind::link)
        return held.linkTarget() == item.linkTarget;
    return !isDevice(item.kind) || there.deviceNumber == item.deviceNumber;
}

/// Makes a link, pipe, socket or device beside its place, and gives it its name.
TreePlacer::Made TreePlacer::make(const ItemRecord& item, const TargetFolder& folder,
                                  const std::string& name, bool isNew) const
{
    const std::string temporary = temporaryFor(item.path, kNoContent);
    (void)folder.remove(temporary); // what a kill left
    Made made;
    made.given.error = item.kind == ItemKind::link
                           ? folder.makeLink(temporary, item.linkTarget)
                           : folder.makeNode(temporary, targetKind(item.kind), item.deviceNumber);
    if (made.given.error == 0)
        made.item = folder.item(temporary, made.given.error);
    const auto status = made.item ? made.item->status() : std::nullopt;
    if (!status)
        return made;
    made.given.error = 0;
    const bool isOurs = status->owner == platform::ownUserNumber() && status->links == 1 &&
                        isSame(item, *made.item, *status);
    made.given = isOurs ? giveName(folder, *made.item, temporary, name, isNew)
                        : GivenName{.isAnothers = true};
    if (!made.given.isGiven())
        removeIfStill(folder, *made.item, temporary);
    return made;
}

void TreePlacer::takeSpecial(const StoredItem& stored, bool hasStood)
{
    const ItemRecord& item = stored.item;
    RestoredItem report{.path = item.path, .kind = item.kind};
    const Place place = placeOf(item.path);
    int error = 0;
    const auto folder = folderFor(place.folder, error);
    if (!folder && !isUnopenedOnlyNow(error))
        return failFolder(item, error);
    auto held = folder ? folder->item(place.name, error) : std::nullopt;
    const auto there = held ? held->status() : std::nullopt;
    const std::string other = there && !hasStood ? mistakenFor(*folder, item.path) : "";
    if (!other.empty()) {
        report.faults.push_back(mistakenSentence(item.path, other));
        return tell(std::move(report));
    }
    const bool isRight = there && isSame(item, *held, *there);
    if (there && !isRight && there->kind == TargetKind::folder)
        return fail(item, "a folder stands in its place; please move the folder away");
    report.isMetadataOnly = isRight;
    if (there && isLeftAlone(context_.request.overwrite, item, *there)) {
        const bool isUnchanged = isRight && !isMetadataOther(*held, item, context_.owners);
        report.state = isUnchanged ? RestoredState::unchanged : RestoredState::skipped;
        return tell(std::move(report));
    }
    if (context_.request.isDryRun) {
        const bool isUnchanged = isRight && !isMetadataOther(*held, item, context_.owners);
        report.state = isUnchanged ? RestoredState::unchanged : RestoredState::wouldRestore;
        return tell(std::move(report));
    }
    if (!isRight) {
        Made made = make(item, *folder, place.name, !there);
        if (made.given.isAnothers) {
            report.faults.push_back(anothersSentence(item.path));
            return tell(std::move(report));
        }
        if (!made.given.isGiven() || !made.item)
            return fail(item, "it cannot be made", made.given.error);
        held = std::move(made.item);
    }
    MetadataOutcome outcome = putMetadata(*held, item, context_.owners);
    report.state =
        isRight && !outcome.hasChanged ? RestoredState::unchanged : RestoredState::restored;
    takeOutcome(outcome, report);
    tell(std::move(report));
}

void TreePlacer::takeFurtherNames()
{
    for (const auto& [path, stood] : furtherNames_) {
        if (isStopped())
            return;
        if (const auto stored = items_.find(path))
            takeFurtherName(*stored, stood);
    }
}

/// Whether an item of this tree or of one before it stands where it is to be.
bool TreePlacer::isInPlace(const std::string& path)
{
    if (!items_.find(path) || (!selection_.takes(path) && !others_.treeWith(path)))
        return false;
    const std::lock_guard lock(mutex_);
    return !others_.notInPlace.contains(path);
}

TreePlacer::OpenPlace TreePlacer::openPlaceOf(const std::string& path)
{
    int error = 0;
    if (selection_.takes(path)) {
        const Place place = placeOf(path);
        return {folderFor(place.folder, error), place.name};
    }
    const PlacedTree* tree = others_.treeWith(path);
    const auto root = tree ? TargetFolder::open(tree->root, false, error) : std::nullopt;
    if (!root)
        return {};
    const Place place = placeIn(tree->selection, path);
    return {root->below(place.folder, error), place.name};
}

void TreePlacer::takeFurtherName(const StoredItem& stored, bool hasStood)
{
    files_.awaitDescriptors();
    // A first name is one here when a tree before this one has another that stands in for it.
    const std::string& path = stored.item.path;
    const std::string original = stored.sameFileAs.empty() ? path : stored.sameFileAs;
    const auto substitute = others_.substitutes.find(original);
    const std::string first =
        substitute == others_.substitutes.end() ? original : substitute->second;
    const bool isLinkable = first != path && isInPlace(first);
    if (isLinkable && linkTo(first, stored, hasStood))
        return;
    if (stored.item.kind != ItemKind::file) {
        takeSpecial(stored, hasStood);
        others_.substitutes[original] = path;
        return;
    }
    const auto source = items_.find(original);
    if (!source || !source->content)
        return fail(stored.item, "the content of " + original + " is not in the run");
    StoredItem own = stored;
    own.content = source->content;
    const Place place = placeOf(path);
    FileTask task{own, place.folder, place.name, temporaryFor(path, own.content->digest), hasStood};
    if (isLinkable && !context_.request.isDryRun)
        task.losses.push_back({.kind = LossKind::hardLink,
                               .sentence = path + ": it cannot be made another name of " + first +
                                           "; it is a file of its own now."});
    files_.place(task);
    files_.finish(); // the next name is linked to it
    others_.substitutes[original] = path;
}

/// Makes an item another name of one that is in place. @return false when it cannot be one
bool TreePlacer::linkTo(const std::string& first, const StoredItem& stored, bool hasStood)
{
    if (context_.request.isDryRun)
        return wouldLinkTo(first, stored);
    const OpenPlace from = openPlaceOf(first);
    const Place to = placeOf(stored.item.path);
    int error = 0;
    const auto toFolder = folderFor(to.folder, error);
    if (!from.folder || !toFolder)
        return false;
    const auto held = from.folder->item(from.name, error);
    const auto original = held ? held->status() : std::nullopt;
    if (!original || original->kind != targetKind(stored.item.kind))
        return false;
    // Somebody else's may have taken its place since.
    if (original->owner != platform::ownUserNumber() &&
        original->owner != context_.owners.owner(stored.item))
        return false;
    RestoredItem report{
        .path = stored.item.path, .kind = stored.item.kind, .state = RestoredState::unchanged};
    const auto there = toFolder->find(to.name, error);
    const std::string other = there && !hasStood ? mistakenFor(*toFolder, stored.item.path) : "";
    if (!other.empty()) {
        tell({.path = stored.item.path,
              .kind = stored.item.kind,
              .faults = {mistakenSentence(stored.item.path, other)}});
        return true;
    }
    if (there && there->inode == original->inode && there->device == original->device) {
        tell(std::move(report));
        return true;
    }
    if (there && isLeftAlone(context_.request.overwrite, stored.item, *there))
        return false; // told as a file of its own
    const std::string temporary = temporaryFor(stored.item.path, kNoContent);
    (void)toFolder->remove(temporary);
    if (toFolder->makeHardLink(*held, temporary) != 0)
        return false; // another file system, or one without hard links
    const GivenName given = giveName(*toFolder, *held, temporary, to.name, !there);
    if (!given.isGiven())
        removeIfStill(*toFolder, *held, temporary);
    if (given.error != 0)
        return false;
    if (given.isAnothers)
        report.faults.push_back(anothersSentence(report.path));
    report.state = given.isGiven() ? RestoredState::restored : RestoredState::failed;
    tell(std::move(report));
    return true;
}

/// What linkTo() would tell.
bool TreePlacer::wouldLinkTo(const std::string& first, const StoredItem& stored)
{
    const OpenPlace from = openPlaceOf(first);
    const Place to = placeOf(stored.item.path);
    int error = 0;
    const bool isFirstNew = [&] {
        const std::lock_guard lock(mutex_);
        return others_.wouldBeNew.contains(first);
    }();
    const auto original =
        from.folder && !isFirstNew ? from.folder->find(from.name, error) : std::nullopt;
    if (!isFirstNew && (!original || original->kind != targetKind(stored.item.kind)))
        return false;
    const auto toFolder = folderFor(to.folder, error);
    if (!toFolder && !isUnopenedOnlyNow(error))
        return false;
    const auto there = toFolder ? toFolder->find(to.name, error) : std::nullopt;
    const bool isRight =
        there && original && there->inode == original->inode && there->device == original->device;
    if (there && !isRight &&
        (there->kind == TargetKind::folder ||
         isLeftAlone(context_.request.overwrite, stored.item, *there)))
        return false;
    tell({.path = stored.item.path,
          .kind = stored.item.kind,
          .state = isRight ? RestoredState::unchanged : RestoredState::wouldRestore});
    return true;
}

void TreePlacer::finishFolders()
{
    for (auto path = folders_.rbegin(); path != folders_.rend(); ++path)
        isStopped() ? tighten(*path) : finishFolder(*path);
}

/// Takes back what loosen() did, where nothing else is done any more.
void TreePlacer::tighten(const std::string& path)
{
    const auto mode = loosenedFolders_.find(path);
    if (mode == loosenedFolders_.end())
        return;
    int error = 0;
    const auto folder = openFolder(selection_.placeOf(path), error);
    const auto held = folder ? folder->item("", error) : std::nullopt;
    if (held)
        (void)held->setMode(mode->second);
}

void TreePlacer::finishFolder(const std::string& path)
{
    files_.awaitDescriptors();
    const auto stored = items_.find(path);
    if (stored && context_.request.isDryRun)
        return wouldFinishFolder(stored->item);
    int error = 0;
    const auto folder = openFolder(selection_.placeOf(path), error);
    if (!folder && error == ESTALE)
        return tell({.path = path, .kind = ItemKind::folder, .faults = {anothersSentence(path)}});
    const auto held = folder ? folder->item("", error) : std::nullopt;
    if (!held || !stored)
        return fail(stored ? stored->item : ItemRecord{.path = path}, "it is no longer there",
                    held ? 0 : error);
    {
        const std::lock_guard lock(mutex_);
        if (!mayGoOnLater_)
            removeLeftGatherings(*folder, path);
    }
    if (const auto mode = loosenedFolders_.find(path); mode != loosenedFolders_.end())
        (void)held->setMode(mode->second);
    MetadataOutcome outcome = putMetadata(*held, stored->item, context_.owners);
    const bool isRight = !outcome.hasChanged && !madeFolders_.contains(path);
    RestoredItem report{.path = path,
                        .kind = ItemKind::folder,
                        .state = isRight ? RestoredState::unchanged : RestoredState::restored};
    takeOutcome(outcome, report);
    tell(std::move(report));
}

/// A folder's own time changes with what is put into it, and is put back then.
void TreePlacer::wouldFinishFolder(const ItemRecord& item)
{
    int error = 0;
    const bool isNew = madeFolders_.contains(item.path);
    const auto folder = context_.root.below(selection_.placeOf(item.path), error);
    const bool isChanged = [&] {
        const std::lock_guard lock(mutex_);
        return wouldBeChanged_.contains(item.path);
    }();
    const bool isRight =
        !isNew && !isChanged && folder && !isMetadataOther(*folder, "", item, context_.owners);
    tell({.path = item.path,
          .kind = item.kind,
          .state = isRight ? RestoredState::unchanged : RestoredState::wouldRestore,
          .isMetadataOnly = !isNew});
}

/// What restores of other contents left that were killed: only what bears our mark. The user's own
/// may have any name.
void TreePlacer::removeLeftGatherings(const TargetFolder& folder, const std::string& path) const
{
    int error = 0;
    for (const std::string& name : folder.names(error).value_or(std::vector<std::string>())) {
        if (!isGatheringName(name) || items_.find(pathIn(path, name)))
            continue;
        const auto left = folder.item(name, error);
        const auto attributes = left ? left->attributes(error) : std::nullopt;
        if (attributes && attributes->contains(kGatheringMark))
            removeLeftGathering(folder, name);
    }
}

void TreePlacer::queue(FileTask task)
{
    std::unique_lock lock(mutex_);
    moved_.wait(lock, [this] { return queue_.size() < 2 * workers_.size() || isStopped(); });
    queue_.push_back(std::move(task));
    lock.unlock();
    moved_.notify_all();
}

void TreePlacer::endWork()
{
    {
        const std::lock_guard lock(mutex_);
        isQueueOver_ = true;
    }
    moved_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
    workers_.clear();
}

void TreePlacer::work()
{
    try {
        workThroughQueue();
    } catch (...) {
        const std::lock_guard lock(mutex_);
        workFault_ = std::current_exception();
        hasGivenUp_ = true;
    }
    moved_.notify_all();
}

void TreePlacer::workThroughQueue()
{
    for (;;) {
        std::unique_lock lock(mutex_);
        moved_.wait(lock, [this] { return !queue_.empty() || isQueueOver_; });
        if (queue_.empty() || isStopped()) {
            if (isQueueOver_ || queue_.empty())
                return;
            queue_.clear();
            lock.unlock();
            moved_.notify_all();
            continue;
        }
        const FileTask task = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        moved_.notify_all();
        placeFile(task);
    }
}

void TreePlacer::placeFile(const FileTask& task)
{
    try {
        files_.place(task);
    } catch (const IndexFault&) {
        throw; // what is to be put back cannot be read, or nothing can go on at all
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        tell({.path = task.stored.item.path,
              .kind = ItemKind::file,
              .faults = {task.stored.item.path + ": " + platform::handledException().sentence}});
    }
}

} // namespace stowline::backup
