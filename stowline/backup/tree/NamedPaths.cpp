#include "stowline/backup/tree/NamedPaths.h"

#include "stowline/backup/tree/PathBelow.h"
#include "stowline/platform/text/SystemErrorText.h"
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

namespace stowline::backup {

namespace {

using platform::FolderHandle;

constexpr int kMostLinks = 40; // as the system has it

/// Puts the names of a path in front of those that are still to be gone: the next one is the last.
void prependNames(std::vector<std::string>& names, std::string_view path)
{
    while (!path.empty()) {
        const std::size_t slash = path.rfind('/');
        const auto name = slash == std::string_view::npos ? path : path.substr(slash + 1);
        if (!name.empty() && name != ".")
            names.emplace_back(name);
        path = slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
    }
}

/// Goes along one path.
class Follower {
public:
    explicit Follower(NamedPaths& result) : result_(result) {}

    void follow(const std::string& path)
    {
        int error = 0;
        prependNames(names_, path);
        if (!path.starts_with('/'))
            prependNames(names_, std::filesystem::current_path().native());
        if (!enter(FolderHandle::root(error), "/", error))
            return;
        while (!names_.empty()) {
            const std::string name = std::move(names_.back());
            names_.pop_back();
            if (!(name == ".." ? goUp() : goTo(name)))
                return;
        }
        result_.targets.push_back({real_, true});
    }

private:
    bool enter(std::optional<FolderHandle> folder, std::string path, int error)
    {
        if (!folder)
            return fail(std::move(path), error);
        folder_ = std::move(folder);
        real_ = std::move(path);
        return true;
    }

    bool goUp()
    {
        int error = 0;
        auto parent = folder_->parent(error);
        return enter(std::move(parent), real_ == "/" ? "/" : std::string(parentOf(real_)), error);
    }

    bool goTo(const std::string& name)
    {
        int error = 0;
        std::string path = pathIn(real_, name);
        const auto status = folder_->statusOf(name, error);
        if (!status)
            return fail(std::move(path), error);
        if (status->type == platform::ItemType::link)
            return followLink(name, std::move(path));
        if (status->type == platform::ItemType::folder && !names_.empty())
            return enter(folder_->folder(name, error), std::move(path), error);
        if (!names_.empty())
            return fail(std::move(path), ENOTDIR);
        real_ = std::move(path);
        return true;
    }

    bool followLink(const std::string& name, std::string path)
    {
        int error = 0;
        const auto target = folder_->linkTarget(name, error);
        if (!target)
            return fail(std::move(path), error);
        result_.targets.push_back({path, false});
        if (++links_ > kMostLinks)
            return fail(std::move(path), ELOOP);
        prependNames(names_, *target);
        if (target->starts_with('/'))
            return enter(FolderHandle::root(error), "/", error);
        return true;
    }

    bool fail(std::string path, int error)
    {
        while (!names_.empty()) {
            path = pathIn(path, names_.back());
            names_.pop_back();
        }
        result_.failures.push_back(
            {.path = std::move(path), .reason = platform::systemErrorText(error), .isNamed = true});
        return false;
    }

    NamedPaths& result_;
    std::vector<std::string> names_; ///< still to be gone, the next one last
    std::optional<FolderHandle> folder_;
    std::string real_;
    int links_ = 0;
};

/// Leaves the first of neighbours with one path.
template <class Item> void withoutDoubles(std::vector<Item>& items)
{
    const auto again =
        std::unique(items.begin(), items.end(),
                    [](const Item& left, const Item& right) { return left.path == right.path; });
    items.erase(again, items.end());
}

void sortAndMerge(std::vector<Target>& targets)
{
    std::ranges::sort(targets, [](const Target& left, const Target& right) {
        const int order = comparePaths(left.path, right.path);
        return order != 0 ? order < 0 : left.isNamed && !right.isNamed;
    });
    withoutDoubles(targets);
}

} // namespace

NamedPaths followPaths(const std::vector<std::string>& paths)
{
    NamedPaths result;
    for (const std::string& path : paths)
        Follower(result).follow(path);
    sortAndMerge(result.targets);
    const auto isLess = [](std::string_view left, std::string_view right) {
        return comparePaths(left, right) < 0;
    };
    std::ranges::sort(result.failures, isLess, &WalkFailure::path);
    withoutDoubles(result.failures);
    // A link that leads in a circle is not told twice.
    std::erase_if(result.targets, [&](const Target& target) {
        return std::ranges::binary_search(result.failures, target.path, isLess, &WalkFailure::path);
    });
    return result;
}

const Target* TargetCursor::takeBefore(std::string_view path)
{
    if (next_ < targets_.size() && comparePaths(targets_[next_].path, path) < 0)
        return &targets_[next_++];
    return nullptr;
}

const Target* TargetCursor::takeAny()
{
    return next_ < targets_.size() ? &targets_[next_++] : nullptr;
}

const Target* TargetCursor::takeAt(std::string_view path)
{
    if (next_ < targets_.size() && targets_[next_].path == path)
        return &targets_[next_++];
    return nullptr;
}

const Target* TargetCursor::takeBelow(std::string_view path)
{
    return hasBelow(path) ? &targets_[next_++] : nullptr;
}

bool TargetCursor::hasBelow(std::string_view path) const
{
    return next_ < targets_.size() && isBelow(targets_[next_].path, path);
}

std::vector<std::string> TargetCursor::namesBelow(std::string_view folder) const
{
    const std::size_t begin = folder == "/" ? 1 : folder.size() + 1;
    std::vector<std::string> names;
    for (std::size_t at = next_; at < targets_.size() && isBelow(targets_[at].path, folder); ++at) {
        const std::string& path = targets_[at].path;
        std::string name = path.substr(begin, path.find('/', begin) - begin);
        if (names.empty() || names.back() != name)
            names.push_back(std::move(name));
    }
    return names;
}

} // namespace stowline::backup
