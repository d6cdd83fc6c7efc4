#include "stowline/backup/restore/StandingNames.h"

#include "stowline/backup/restore/Selection.h"

#include <algorithm>

namespace stowline::backup {

void StandingNames::leaveAllBut(const std::string& folder)
{
    const auto isAbove = [&folder](const Folder& known) {
        return known.path.empty() || isAtOrBelow(folder, known.path);
    };
    while (!folders_.empty() && !isAbove(folders_.back()))
        folders_.pop_back();
}

void StandingNames::note(const std::string& madeFolder)
{
    leaveAllBut(madeFolder);
    folders_.push_back({madeFolder, {}});
}

bool StandingNames::stood(const std::string& folder, const std::string& name)
{
    leaveAllBut(folder);
    if (folders_.empty() || folders_.back().path != folder) {
        Folder known{folder, {}};
        int error = 0;
        const auto opened = root_.below(folder, error);
        const auto names = opened ? opened->names(error) : std::nullopt;
        if (names)
            known.names.insert(names->begin(), names->end());
        folders_.push_back(std::move(known));
    }
    return folders_.back().names.contains(name);
}

std::vector<std::string> otherNamesFor(const platform::TargetFolder& folder,
                                       const std::string& name)
{
    int error = 0;
    const auto shown = folder.find(name, error);
    const auto names = folder.names(error).value_or(std::vector<std::string>());
    std::vector<std::string> others;
    if (!shown || std::ranges::find(names, name) != names.end())
        return others;
    for (const std::string& other : names) {
        const auto status = folder.find(other, error);
        if (status && status->inode == shown->inode && status->device == shown->device)
            others.push_back(other);
    }
    return others;
}

} // namespace stowline::backup
