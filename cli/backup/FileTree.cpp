#include "cli/backup/FileTree.h"

#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/text/GlobPattern.h"
#include "stowline/util/General.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

LocalFile fileFrom(const std::string& path, const platform::FileStatus& status)
{
    return {path, status.size, status.modified, status.device, status.inode};
}

bool matchesAny(const std::vector<std::string>& patterns, const std::string& name,
                const std::string& below)
{
    return std::ranges::any_of(patterns, [&](const std::string& pattern) {
        if (pattern.find('/') == std::string::npos)
            return platform::matchesGlob(pattern, name, false);
        return platform::matchesGlob(pattern.substr(pattern.starts_with('/') ? 1 : 0), below, true);
    });
}

class Walk {
public:
    explicit Walk(const TreeRules& rules) : rules_(rules) {}

    void add(const std::string& named)
    {
        std::error_code fault;
        const fs::path path = fs::absolute(named, fault).lexically_normal();
        // "folder/" has an empty last name.
        const std::string text = path.has_filename() || path == path.root_path()
                                     ? path.string()
                                     : path.parent_path().string();
        const auto status = platform::fileStatus(text);
        if (!status) {
            tree.missing.push_back(text);
            return;
        }
        root_ = text;
        visit(text, *status, true);
    }

    FileTree tree;

private:
    [[nodiscard]] std::string below(const std::string& path) const
    {
        return path.size() > root_.size() ? path.substr(root_.size() + (root_ == "/" ? 0 : 1))
                                          : path;
    }

    [[nodiscard]] bool isTaken(const std::string& path, bool isFolder) const
    {
        const std::string name = path.substr(path.rfind('/') + 1);
        if (matchesAny(rules_.exclude, name, below(path)))
            return false;
        if (rules_.skipsHidden && General::isItemHidden(path))
            return false;
        return isFolder || rules_.include.empty() || matchesAny(rules_.include, name, below(path));
    }

    /// @param isNamed by the user, whose word counts more than the rules
    void visit(const std::string& path, const platform::FileStatus& status, bool isNamed)
    {
        if (!isNamed && !isTaken(path, status.isFolder))
            return;
        if (!status.isFolder && !status.isRegular) {
            ++tree.leftOut;
            return;
        }
        if (!seen_.insert(path).second)
            return;
        if (status.isFolder)
            visitFolder(path);
        else
            tree.files.push_back(fileFrom(path, status));
    }

    void visitFolder(const std::string& path)
    {
        std::error_code fault;
        std::vector<std::string> items;
        for (fs::directory_iterator item(path, fault), end; !fault && item != end;
             item.increment(fault))
            items.push_back(item->path().string());
        if (fault)
            tree.faults.push_back("The folder " + path + " cannot be read: " + fault.message());
        std::ranges::sort(items);
        const std::size_t firstFile = tree.files.size();
        for (const std::string& item : items) {
            if (const auto status = platform::fileStatus(item))
                visit(item, *status, false);
        }
        if (General::isPathPackage(path))
            notePackage(path, firstFile);
    }

    void notePackage(const std::string& path, std::size_t firstFile)
    {
        LocalPackage package{path, 0};
        for (std::size_t i = firstFile; i < tree.files.size(); ++i)
            package.bytes += tree.files[i].size;
        tree.packages.push_back(package);
    }

    const TreeRules& rules_;
    std::string root_;
    std::set<std::string> seen_;
};

} // namespace

FileTree walk(const std::vector<std::string>& paths, const TreeRules& rules)
{
    Walk walk(rules);
    for (const std::string& path : paths)
        walk.add(path);
    return std::move(walk.tree);
}

std::optional<LocalFile> localFile(const std::string& path)
{
    const auto status = platform::fileStatus(path);
    if (!status || !status->isRegular)
        return std::nullopt;
    return fileFrom(path, *status);
}

} // namespace stowline::cli
