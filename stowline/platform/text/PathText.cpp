#include "stowline/platform/text/PathText.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kRoomForUser = 16384;

template <class Ask> std::optional<std::string> homeInUserDatabase(Ask ask)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> room(kRoomForUser);
    if (ask(&entry, room.data(), room.size(), &found) != 0 || !found)
        return std::nullopt;
    return std::string(entry.pw_dir);
}

/// A leading "~" or "~name" replaced; the path itself when there is no such user.
std::string tildeExpanded(std::string_view path)
{
    if (!path.starts_with('~'))
        return std::string(path);
    const auto slash = std::min(path.find('/'), path.size());
    const std::string user(path.substr(1, slash - 1));
    const auto home = user.empty() ? homeDirectory() : homeDirectoryOf(user);
    return home ? *home + std::string(path.substr(slash)) : std::string(path);
}

/// What ".." leaves of a path.
std::string parentOf(const std::string& path)
{
    std::error_code unknown;
    if (fs::is_symlink(fs::symlink_status(path, unknown))) {
        const fs::path target = fs::canonical(path, unknown);
        if (!unknown)
            return target.parent_path().string();
    }
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

std::vector<std::string> pathComponents(std::string_view path)
{
    std::vector<std::string> components;
    if (path.starts_with('/'))
        components.emplace_back("/");
    for (std::size_t at = 0; at < path.size();) {
        const auto slash = std::min(path.find('/', at), path.size());
        if (slash > at)
            components.emplace_back(path.substr(at, slash - at));
        at = slash + 1;
    }
    if (path.ends_with('/') && components.back() != "/")
        components.emplace_back("/");
    return components;
}

std::string lastPathComponent(std::string_view path)
{
    const auto last = path.find_last_not_of('/');
    if (last == std::string_view::npos)
        return path.empty() ? "" : "/";
    path = path.substr(0, last + 1);
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string appendingPathComponent(std::string_view path, std::string_view component)
{
    std::string longer(path);
    if (component.empty())
        return longer;
    if (!longer.empty() && !longer.ends_with('/'))
        longer += '/';
    return longer.append(component);
}

std::string standardizedPath(std::string_view path)
{
    const std::string expanded = tildeExpanded(path);
    std::string plain;
    for (const std::string& component : pathComponents(expanded)) {
        const bool nothingToLeave = plain.empty() || plain == ".." || plain.ends_with("/..");
        if (component == "/" && !plain.empty())
            continue; // a trailing slash
        if (component == ".." && !nothingToLeave)
            plain = plain == "/" ? plain : parentOf(plain);
        else if (component != ".")
            plain = appendingPathComponent(plain, component);
    }
    return plain.empty() && !expanded.empty() ? "." : plain;
}

std::optional<std::string> homeDirectory()
{
    const char* home = std::getenv("HOME");
    if (home && *home != '\0')
        return std::string(home);
    return homeInUserDatabase([](auto... place) { return ::getpwuid_r(::getuid(), place...); });
}

std::optional<std::string> homeDirectoryOf(const std::string& user)
{
    return homeInUserDatabase([&](auto... place) { return ::getpwnam_r(user.c_str(), place...); });
}

} // namespace stowline::platform
