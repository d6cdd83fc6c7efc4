#include "stowline/backup/restore/GivenName.h"

namespace stowline::backup {

GivenName giveName(const platform::TargetFolder& folder, const platform::TargetItem& item,
                   const std::string& from, const std::string& to, bool isNew)
{
    if (!folder.isNameOf(item, from))
        return {.isAnothers = true};
    const int error = isNew ? folder.renameToNew(from, to) : folder.rename(from, to);
    return {.error = error, .isAnothers = error == 0 && !folder.isNameOf(item, to)};
}

void removeIfStill(const platform::TargetFolder& folder, const platform::TargetItem& item,
                   const std::string& name)
{
    if (folder.isNameOf(item, name))
        (void)folder.remove(name);
}

std::string anothersSentence(const std::string& path)
{
    return path + ": something else took its place while it was being put back. It is not put "
                  "back, and what stands there is left alone. Please see who else writes into "
                  "this folder.";
}

} // namespace stowline::backup
