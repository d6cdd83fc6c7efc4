#include "stowline/backup/restore/LinkTrail.h"

#include <algorithm>
#include <deque>

namespace stowline::backup {

namespace {

constexpr int kMostLinks = 40; ///< as the system follows

std::deque<std::string> namesOf(std::string_view path)
{
    std::deque<std::string> names;
    while (!path.empty()) {
        const auto slash = std::min(path.find('/'), path.size());
        if (slash > 0)
            names.emplace_back(path.substr(0, slash));
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return names;
}

} // namespace

std::optional<std::string> pathThroughLinks(const ItemIndex& items, std::string_view path)
{
    std::deque<std::string> ahead = namesOf(path);
    std::string at = "/";
    for (int links = 0; !ahead.empty();) {
        const std::string name = std::move(ahead.front());
        ahead.pop_front();
        if (name == ".")
            continue;
        if (name == "..") {
            at = at == "/" ? at : std::string(parentOf(at));
            continue;
        }
        const std::string next = pathIn(at, name);
        const auto found = items.find(next);
        if (!found || found->item.kind != ItemKind::link) {
            at = next;
            continue;
        }
        if (++links > kMostLinks)
            return std::nullopt;
        const std::string& target = found->item.linkTarget;
        if (target.starts_with('/'))
            at = "/";
        const auto names = namesOf(target);
        ahead.insert(ahead.begin(), names.begin(), names.end());
    }
    return at;
}

} // namespace stowline::backup
