#include "stowline/backup/restore/Pruning.h"

#include "stowline/backup/restore/LinkTrail.h"
#include "stowline/backup/restore/Selection.h"

#include <algorithm>
#include <cctype>
#include <cerrno>

namespace stowline::backup {

namespace {

using platform::TargetFolder;
using platform::TargetKind;
using platform::TargetStatus;

constexpr std::string_view kExclude = "exclude ";
constexpr std::string_view kExcludeFrom = "exclude-from ";
constexpr std::string_view kOneFileSystem = "one-file-system"; ///< what is mounted stays anyway

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

/// Whether a file system takes a name for another one whose letters differ in case.
bool takesForAnother(const TargetFolder& folder, const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        std::string other = name;
        std::ranges::transform(other, other.begin(), [](unsigned char c) {
            return static_cast<char>(std::islower(c) != 0 ? std::toupper(c) : std::tolower(c));
        });
        if (other == name || std::ranges::find(names, other) != names.end())
            continue;
        int error = 0;
        return folder.find(other, error).has_value();
    }
    return false;
}

std::string cannotBeDeleted(const std::string& path, int error)
{
    return path + " was not in the run and cannot be deleted: " + platform::systemErrorText(error) +
           ".";
}

} // namespace

Pruning::Pruning(const RecordHead& head, const ItemIndex& items,
                 const std::optional<std::filesystem::path>& ownState)
    : items_(items)
{
    const std::string run = "Run " + std::to_string(head.run);
    const std::string unsure = " so it cannot tell what is to be deleted. Please restore without "
                               "--delete.";
    if (head.state != RecordState::finished)
        refusal_ = run + " did not come to its end," + unsure;
    else if (head.failed > 0)
        refusal_ = run + " could not read or store everything," + unsure;
    for (const std::string& rule : head.description.rules) {
        const bool isTaken =
            rule == kOneFileSystem ||
            (rule.starts_with(kExcludeFrom) &&
             !rules_.excludeLines(std::string_view(rule).substr(kExcludeFrom.size()))) ||
            (rule.starts_with(kExclude) &&
             rules_.exclude(std::string_view(rule).substr(kExclude.size())));
        if (!isTaken && !refusal_)
            refusal_ = run + " left items out by the rule \"" + rule + "\"," + unsure;
    }
    for (const std::string& named : head.description.namedPaths)
        named_.push_back(pathThroughLinks(items, named).value_or(named));
    int error = 0;
    const auto state = ownState ? TargetFolder::open(*ownState, false, error) : std::nullopt;
    if (state)
        ownState_ = state->status();
}

/// Whether the run was told to back up a path, or one above it.
bool Pruning::isAtOrBelowNamed(const std::string& path) const
{
    return std::ranges::any_of(
        named_, [&path](const std::string& named) { return isAtOrBelow(path, named); });
}

/// Whether the run's patterns leave an item out, counted from any of the named paths above it.
bool Pruning::isLeftOut(const std::string& path, bool isFolder) const
{
    return std::ranges::any_of(named_, [&](const std::string& named) {
        if (path == named || !isAtOrBelow(path, named))
            return false;
        const std::string_view below =
            std::string_view(path).substr(named == "/" ? 1 : named.size() + 1);
        return rules_.excludes({.below = below, .isFolder = isFolder, .isIncluded = true})
            .has_value();
    });
}

bool Pruning::isOwnState(const TargetStatus& status) const
{
    return ownState_ && ownState_->device == status.device && ownState_->inode == status.inode;
}

bool Pruning::prune(const TargetFolder& folder, const std::string& path, bool isDryRun,
                    const std::function<void(RestoredItem)>& tell, const StopRequest& stop) const
{
    const auto stored = items_.find(path);
    const auto here = folder.status();
    // Of what stood above the named paths the run knows nothing, nor may it of what was mounted
    // below them.
    const bool isNamed = std::ranges::find(named_, path) != named_.end();
    if (refusal_ || !stored || !here || stored->isStale ||
        (stored->item.isMountPoint && !isNamed) || !isAtOrBelowNamed(path))
        return false;
    int error = 0;
    const auto names = folder.names(error);
    if (!names || takesForAnother(folder, *names))
        return false;
    bool isAnything = false;
    const Walk walk{isDryRun, tell, stop, here->device};
    for (const std::string& name : *names) {
        if (stop.isRequested())
            break;
        const std::string place = pathIn(path, name);
        if (!items_.find(place))
            isAnything = remove(folder, name, place, walk) == Outcome::gone || isAnything;
    }
    return isAnything;
}

Pruning::Outcome Pruning::remove(const TargetFolder& folder, const std::string& name,
                                 const std::string& path, const Walk& walk) const
{
    int error = 0;
    const auto there = folder.find(name, error);
    if (!there || there->device != walk.device || folder.isMounted(name) || isOwnState(*there) ||
        isLeftOut(path, there->kind == TargetKind::folder))
        return Outcome::stays;
    RestoredItem report{
        .path = path, .kind = itemKind(there->kind), .state = RestoredState::deleted};
    if (there->kind == TargetKind::folder) {
        if (removeTree(folder, name, path, walk) == Outcome::stays)
            return Outcome::stays;
        error = walk.isDryRun ? 0 : folder.removeFolder(name);
    } else {
        error = walk.isDryRun ? 0 : folder.remove(name);
    }
    if (error == 0) {
        report.state = walk.isDryRun ? RestoredState::wouldDelete : RestoredState::deleted;
    } else {
        report.state = RestoredState::failed;
        report.faults.push_back(cannotBeDeleted(path, error));
    }
    walk.tell(report);
    return error == 0 ? Outcome::gone : Outcome::stays;
}

/// What is in a folder, so that the folder can go.
Pruning::Outcome Pruning::removeTree(const TargetFolder& folder, const std::string& name,
                                     const std::string& path, const Walk& walk) const
{
    int error = 0;
    const auto inside = folder.below(name, error);
    const auto names = inside ? inside->names(error) : std::nullopt;
    if (!names) {
        walk.tell({.path = path,
                   .kind = ItemKind::folder,
                   .state = RestoredState::failed,
                   .faults = {cannotBeDeleted(path, error)}});
        return Outcome::stays;
    }
    // The folder may have become another one since it was looked at.
    const auto status = inside->status();
    if (!status || status->device != walk.device)
        return Outcome::stays;
    Outcome outcome = Outcome::gone;
    for (const std::string& below : *names) {
        if (walk.stop.isRequested() ||
            remove(*inside, below, pathIn(path, below), walk) == Outcome::stays)
            outcome = Outcome::stays;
    }
    return outcome;
}

} // namespace stowline::backup
