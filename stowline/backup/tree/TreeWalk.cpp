#include "stowline/backup/tree/TreeWalk.h"

#include "stowline/backup/tree/NamedPaths.h"
#include "stowline/backup/tree/OpenFolders.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

namespace stowline::backup {

namespace {

using platform::FolderHandle;
using platform::ItemStatus;
using platform::ItemType;

constexpr const char* kMoved = "its folder was moved away while it was looked at";
constexpr const char* kReplaced = "it was replaced by something else while it was looked at";
constexpr const char* kGone = "it is not there any more";

std::string messageOf(int error)
{
    return error == ENOTDIR ? kReplaced : platform::systemErrorText(error);
}

ItemKind kindOf(ItemType type)
{
    switch (type) {
    case ItemType::file:
        return ItemKind::file;
    case ItemType::folder:
        return ItemKind::folder;
    case ItemType::link:
        return ItemKind::link;
    case ItemType::pipe:
        return ItemKind::pipe;
    case ItemType::socket:
        return ItemKind::socket;
    case ItemType::characterDevice:
        return ItemKind::characterDevice;
    case ItemType::blockDevice:
        return ItemKind::blockDevice;
    }
    return ItemKind::file;
}

Timestamp timestampOf(const platform::StatusTime& time)
{
    return {time.seconds, time.nanoseconds};
}

/// The beginning of a file in an open folder; empty when it cannot be read.
std::string beginningOf(const FolderHandle& folder, const std::string& name, std::size_t most)
{
    int error = 0;
    const auto file = platform::SourceFile::open(folder.descriptor(), name, error);
    std::string text(most, '\0');
    const auto count = file ? file->readAt(0, text, error) : std::nullopt;
    text.resize(count.value_or(0));
    return text;
}

bool holds(const std::vector<std::string>& names, std::string_view name)
{
    return std::ranges::binary_search(names, name, std::less<>());
}

/// The names that the file ".hidden" in a folder lists, one a line.
std::set<std::string, std::less<>> hiddenNamesIn(const FolderHandle& folder,
                                                 const std::vector<std::string>& names)
{
    constexpr std::size_t most = 1U << 20;
    std::set<std::string, std::less<>> hidden;
    if (!holds(names, ".hidden"))
        return hidden;
    for (auto& name : pathsOfList(beginningOf(folder, ".hidden", most)))
        hidden.insert(std::move(name));
    return hidden;
}

/// The first names of files with several, until all have been met.
class HardLinks {
public:
    /// @return the first name; empty for the first one itself
    std::string firstNameOf(const ItemRecord& item)
    {
        if (item.kind == ItemKind::folder || item.links < 2)
            return {};
        const auto [known, isFirst] =
            files_.try_emplace({item.device, item.inode}, File{item.path, 1});
        if (isFirst)
            return {};
        std::string first = known->second.firstName;
        if (++known->second.met >= item.links)
            files_.erase(known);
        return first;
    }

private:
    struct File {
        std::string firstName;
        std::uint64_t met = 0;
    };
    std::map<std::pair<std::uint64_t, std::uint64_t>, File> files_;
};

/// A folder that the walk is in, and how things stand there.
struct Level {
    std::size_t pathLength = 0;
    std::vector<std::string> names;
    std::size_t at = 0;
    std::uint64_t device = 0;
    FolderEnd end; ///< its path is filled at the end
    // What holds for the things in it, if it is not a passage:
    std::size_t baseLength = 0; ///< of the named path that it is at or below
    std::uint64_t baseDevice = 0;
    bool isIncluded = false; ///< by an include pattern
    bool isOnNetwork = false;
    std::set<std::string, std::less<>> hiddenNames;
};

class Walk {
public:
    Walk(const WalkOptions& options, WalkObserver& observer, const platform::StopRequest& stop)
        : options_(options), rules_(options.rules), observer_(observer), stop_(stop), targets_({}),
          idlePatterns_(rules_)
    {
    }

    WalkResult run()
    {
        noteOwnFolders();
        NamedPaths named = followPaths(options_.paths);
        for (const WalkFailure& failure : named.failures)
            fail(failure);
        if (!named.targets.empty()) {
            targets_ = TargetCursor(std::move(named.targets));
            enterRoot();
        }
        while (!levels_.empty() && !(result_.isStopped = stop_.isRequested())) {
            if (levels_.back().at < levels_.back().names.size())
                visitNext();
            else
                leave();
        }
        while (const Target* missed = result_.isStopped ? nullptr : targets_.takeAny())
            failTarget(*missed, kGone);
        result_.idlePatterns = idlePatterns_.texts();
        return result_;
    }

private:
    /// What stands at a name, and what is to become of it.
    struct Meeting {
        std::string name;
        ItemRecord item;
        bool isTarget = false;
        bool isNamed = false;
        bool isPassage = false;
        bool isIncluded = false;
        std::optional<Exclusion> leftOut; ///< of a passage
    };

    void noteOwnFolders()
    {
        for (const Target& folder : followPaths(options_.ownFolders).targets) {
            int error = 0;
            auto handle = FolderHandle::root(error);
            const std::string_view path = folder.path;
            for (std::size_t at = 1; handle && folder.isNamed && at < path.size();) {
                const std::size_t end = std::min(path.find('/', at), path.size());
                handle = handle->folder(std::string(path.substr(at, end - at)), error);
                at = end + 1;
            }
            if (const auto status = handle ? handle->status(error) : std::nullopt;
                status && folder.isNamed)
                ownFolders_.emplace(status->device, status->inode);
        }
    }

    void enterRoot()
    {
        int error = 0;
        auto root = FolderHandle::root(error);
        const auto status = root ? root->status(error) : std::nullopt;
        if (!status)
            return; // every target is told as missed
        Meeting meeting{.name = "/"};
        meeting.item = recordOf("/", *status);
        meeting.isTarget = meeting.isNamed = targets_.takeAt("/") != nullptr;
        meeting.isPassage = !meeting.isTarget;
        meeting.isIncluded = meeting.isTarget;
        go(std::move(*root), *status, std::move(meeting));
    }

    void visitNext()
    {
        Level& level = levels_.back();
        Meeting meeting{.name = std::move(level.names[level.at++])};
        meeting.item.path = pathIn(path_, meeting.name);
        const std::string& path = meeting.item.path;
        while (const Target* missed = targets_.takeBefore(path))
            failTarget(*missed, kGone);
        if (const Target* target = targets_.takeAt(path)) {
            meeting.isTarget = true;
            meeting.isNamed = target->isNamed;
        }
        if (!open_.innermost())
            return failMeeting(meeting, kMoved);
        int error = 0;
        const auto status = open_.innermost()->statusOf(meeting.name, error);
        if (!status)
            return missMeeting(meeting, error);
        meeting.item = recordOf(std::move(meeting.item.path), *status);
        if (meeting.item.kind == ItemKind::folder)
            visitFolder(std::move(meeting));
        else
            visitOther(std::move(meeting));
    }

    void visitOther(Meeting meeting)
    {
        const Level& level = levels_.back();
        failTargetsBelow(meeting.item.path, messageOf(ENOTDIR));
        if (level.end.isPassage && !meeting.isTarget)
            return; // was a folder when it was on the way to something
        if (const auto why = exclusionOf(meeting))
            return exclude(meeting.item, *why);
        int error = 0;
        if (meeting.item.kind == ItemKind::link) {
            auto target = open_.innermost()->linkTarget(meeting.name, error);
            if (!target) // what is not a link any more is not a valid argument
                return missMeeting(meeting, error == EINVAL ? ENOTDIR : error);
            meeting.item.linkTarget = std::move(*target);
        }
        tell(std::move(meeting), open_.innermost(), level.isOnNetwork);
    }

    void visitFolder(Meeting meeting)
    {
        meeting.isPassage = levels_.back().end.isPassage && !meeting.isNamed;
        if (!meeting.isPassage) {
            if (const auto why = exclusionOf(meeting); why && !passesThrough(meeting, *why))
                return;
        }
        int error = 0;
        auto folder = open_.innermost()->folder(meeting.name, error);
        const auto status = folder ? folder->status(error) : std::nullopt;
        if (!status)
            return missMeeting(meeting, error);
        // It may have been mounted upon, or replaced by another one, since it was looked at.
        meeting.item = recordOf(std::move(meeting.item.path), *status);
        go(std::move(*folder), *status, std::move(meeting));
    }

    /// Tells an open folder and makes it the innermost one.
    void go(FolderHandle folder, const ItemStatus& status, Meeting meeting)
    {
        const auto fileSystem = fileSystemOf(folder, status.device);
        meeting.item.isMountPoint =
            !levels_.empty() && (status.device != levels_.back().device || folder.isMountRoot());
        if (!meeting.isPassage) {
            const auto why = exclusionOfFolder(meeting, fileSystem);
            if (why && !passesThrough(meeting, *why))
                return;
        }
        int error = 0;
        auto names =
            meeting.isPassage ? targets_.namesBelow(meeting.item.path) : folder.names(error);
        if (rules_.skipsCaches && !meeting.isPassage && !meeting.isTarget &&
            holds(names, kCacheTagName) &&
            isCacheTag(beginningOf(folder, std::string(kCacheTagName), kCacheTagBytes))) {
            if (!passesThrough(meeting, {Rule::cacheFolder, {}}))
                return;
            names = targets_.namesBelow(meeting.item.path);
        }
        Level level = levelOf(meeting, status, std::move(names));
        level.isOnNetwork = fileSystem.isNetwork;
        level.end.isComplete = error == 0;
        if (rules_.skipsHidden && !meeting.isPassage)
            level.hiddenNames = hiddenNamesIn(folder, level.names);
        if (error != 0)
            includeTargets(level, meeting.item.path);
        path_ = meeting.item.path;
        const auto parent = levels_.empty() ? nullptr : open_.innermost();
        open_.push(std::move(folder), status);
        levels_.push_back(std::move(level));
        if (error == 0)
            tell(std::move(meeting), parent, fileSystem.isNetwork);
        else
            fail({meeting.item.path, messageOf(error), true, meeting.isNamed});
    }

    [[nodiscard]] Level levelOf(const Meeting& meeting, const ItemStatus& status,
                                std::vector<std::string> names) const
    {
        Level level;
        level.pathLength = meeting.item.path.size();
        level.end.names = names.size();
        level.names = std::move(names);
        level.device = status.device;
        level.end.isNamed = meeting.isNamed;
        level.end.isPassage = meeting.isPassage;
        level.end.isLeftOut = meeting.leftOut.has_value();
        const bool isBase = meeting.isNamed || levels_.empty();
        level.baseLength = isBase ? level.pathLength : levels_.back().baseLength;
        level.baseDevice = isBase ? status.device : levels_.back().baseDevice;
        level.isIncluded = !isBase && meeting.isIncluded;
        return level;
    }

    /// What is named below a folder that cannot be listed may be reached all the same.
    void includeTargets(Level& level, std::string_view path) const
    {
        for (std::string& name : targets_.namesBelow(path)) {
            if (!holds(level.names, name))
                level.names.insert(std::ranges::lower_bound(level.names, name), std::move(name));
        }
    }

    void leave()
    {
        FolderEnd end = std::move(levels_.back().end);
        end.path = path_;
        levels_.pop_back();
        if (!levels_.empty())
            path_.resize(levels_.back().pathLength);
        open_.pop(path_);
        observer_.left(end);
    }

    [[nodiscard]] std::string_view below(const Level& level, std::string_view path) const
    {
        return path.substr(level.baseLength + (level.baseLength > 1 ? 1 : 0));
    }

    /// By name, and by the file system of what is not a folder.
    [[nodiscard]] std::optional<Exclusion> exclusionOf(Meeting& meeting)
    {
        if (meeting.isTarget)
            return std::nullopt;
        const Level& level = levels_.back();
        const bool isFolder = meeting.item.kind == ItemKind::folder;
        const auto path = below(level, meeting.item.path);
        idlePatterns_.meet(path, isFolder);
        meeting.isIncluded = level.isIncluded || rules_.includes(path, isFolder);
        const bool isHidden = rules_.skipsHidden && (meeting.name.starts_with('.') ||
                                                     level.hiddenNames.contains(meeting.name));
        if (!isFolder && rules_.staysOnFileSystem && meeting.item.device != level.baseDevice)
            return Exclusion{Rule::otherFileSystem, {}};
        return rules_.excludes({path, isFolder, isHidden, meeting.isIncluded});
    }

    /// By what shows when a folder is open.
    [[nodiscard]] std::optional<Exclusion>
    exclusionOfFolder(const Meeting& meeting, const platform::FileSystemKind& fileSystem) const
    {
        if (ownFolders_.contains({meeting.item.device, meeting.item.inode}))
            return Exclusion{Rule::ownFolder, {}};
        if (meeting.isTarget || levels_.empty() || meeting.item.device == levels_.back().device)
            return std::nullopt;
        if (fileSystem.isPseudo)
            return Exclusion{Rule::pseudoFileSystem, {}};
        if (rules_.staysOnFileSystem && meeting.item.device != levels_.back().baseDevice)
            return Exclusion{Rule::otherFileSystem, {}};
        return std::nullopt;
    }

    /// What is left out is a passage all the same when something below it is named.
    bool passesThrough(Meeting& meeting, const Exclusion& why)
    {
        meeting.isPassage = targets_.hasBelow(meeting.item.path);
        if (meeting.isPassage)
            meeting.leftOut = why;
        else
            exclude(meeting.item, why);
        return meeting.isPassage;
    }

    [[nodiscard]] platform::FileSystemKind fileSystemOf(const FolderHandle& folder,
                                                        std::uint64_t device)
    {
        const auto [known, isNew] = fileSystems_.try_emplace(device);
        int error = 0;
        if (isNew)
            known->second = folder.fileSystem(error).value_or(platform::FileSystemKind{});
        return known->second;
    }

    [[nodiscard]] ItemRecord recordOf(std::string path, const ItemStatus& status)
    {
        return {.path = std::move(path),
                .kind = kindOf(status.type),
                .size = status.size,
                .modified = timestampOf(status.modified),
                .changed = timestampOf(status.changed),
                .mode = status.mode,
                .owner = status.owner,
                .group = status.group,
                .ownerName = names_.userName(status.owner),
                .groupName = names_.groupName(status.group),
                .device = status.device,
                .inode = status.inode,
                .links = status.links,
                .deviceNumber = status.deviceNumber};
    }

    // ---- the four ends of a name ----

    void tell(Meeting meeting, std::shared_ptr<const FolderHandle> folder, bool isOnNetwork)
    {
        ++(meeting.isPassage ? result_.passages : result_.found);
        std::string first = links_.firstNameOf(meeting.item);
        observer_.found({.item = std::move(meeting.item),
                         .folder = std::move(folder),
                         .sameFileAs = std::move(first),
                         .isNamed = meeting.isNamed,
                         .isPassage = meeting.isPassage,
                         .isOnNetwork = isOnNetwork,
                         .leftOut = std::move(meeting.leftOut)});
    }

    void exclude(const ItemRecord& item, const Exclusion& why)
    {
        ++result_.excluded;
        observer_.excluded(item.path, item.kind, why);
    }

    void fail(const WalkFailure& failure)
    {
        ++result_.failed;
        observer_.failed(failure);
    }

    /// It could not be looked at; what is named below it neither.
    void failMeeting(const Meeting& meeting, const std::string& reason)
    {
        const bool isListed = !levels_.back().end.isPassage || meeting.isTarget;
        const bool isFolder =
            meeting.item.kind == ItemKind::folder || targets_.hasBelow(meeting.item.path);
        if (isListed)
            fail({meeting.item.path, reason, isFolder, meeting.isNamed});
        failTargetsBelow(meeting.item.path, reason);
    }

    /// As failMeeting(); but what was listed and is there no more has just gone.
    void missMeeting(const Meeting& meeting, int error)
    {
        if (error != ENOENT || meeting.isTarget || levels_.back().end.isPassage)
            return failMeeting(meeting, messageOf(error));
        failTargetsBelow(meeting.item.path, kGone);
        ++result_.vanished;
        observer_.vanished(meeting.item.path);
    }

    void failTarget(const Target& target, const std::string& reason)
    {
        fail({.path = target.path, .reason = reason, .isNamed = target.isNamed});
    }

    void failTargetsBelow(const std::string& path, const std::string& reason)
    {
        while (const Target* missed = targets_.takeBelow(path))
            failTarget(*missed, reason);
    }

    const WalkOptions& options_;
    const TreeRules& rules_;
    WalkObserver& observer_;
    const platform::StopRequest& stop_;
    WalkResult result_;
    TargetCursor targets_;
    std::set<std::pair<std::uint64_t, std::uint64_t>> ownFolders_;
    std::map<std::uint64_t, platform::FileSystemKind> fileSystems_;
    platform::AccountNames names_;
    HardLinks links_;
    OpenFolders open_;
    std::vector<Level> levels_;
    IdlePatterns idlePatterns_;
    std::string path_; ///< of the innermost folder
};

} // namespace

std::optional<std::string> readAttributes(FoundItem& found)
{
    int error = 0;
    auto folder = found.folder;
    if (!folder) {
        if (auto root = FolderHandle::root(error))
            folder = std::make_shared<const FolderHandle>(std::move(*root));
    }
    const std::string name(found.folder ? nameOf(found.item.path) : ".");
    auto attributes = folder ? folder->attributesOf(name, error) : std::nullopt;
    if (!attributes)
        return messageOf(error);
    found.item.attributes.clear();
    for (auto& [attribute, value] : *attributes)
        found.item.attributes.push_back({std::move(attribute), std::move(value)});
    return std::nullopt;
}

WalkResult walkTree(const WalkOptions& options, WalkObserver& observer,
                    const platform::StopRequest& stop)
{
    return Walk(options, observer, stop).run();
}

} // namespace stowline::backup
