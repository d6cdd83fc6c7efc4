#include "stowline/backup/tree/ItemRecord.h"

namespace stowline::backup {

std::string_view parentOf(std::string_view path)
{
    const auto slash = path.rfind('/');
    if (path == "/" || slash == std::string_view::npos)
        return {};
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

std::string_view nameOf(std::string_view path)
{
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string pathIn(std::string_view folder, std::string_view name)
{
    std::string path(folder);
    if (!folder.ends_with('/'))
        path += '/';
    return path.append(name);
}

int comparePaths(std::string_view left, std::string_view right)
{
    for (std::size_t at = 0;; ++at) {
        const bool leftEnds = at == left.size();
        const bool rightEnds = at == right.size();
        if (leftEnds || rightEnds)
            return static_cast<int>(rightEnds) - static_cast<int>(leftEnds);
        if (left[at] == right[at])
            continue;
        // A slash ends a name, so it comes before every byte of a longer one.
        if (left[at] == '/')
            return -1;
        if (right[at] == '/')
            return 1;
        return static_cast<unsigned char>(left[at]) < static_cast<unsigned char>(right[at]) ? -1
                                                                                            : 1;
    }
}

} // namespace stowline::backup
