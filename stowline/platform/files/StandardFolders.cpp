#include "stowline/platform/files/StandardFolders.h"

#include "stowline/platform/text/PathText.h"

#include <glib.h>

#include <array>
#include <cstdlib>

namespace stowline::platform {

namespace {

struct DesktopFolder {
    StandardFolder kind;
    GUserDirectory configured;
    const char* usualName;
};

constexpr std::array<DesktopFolder, 7> kDesktopFolders{{
    {StandardFolder::documents, G_USER_DIRECTORY_DOCUMENTS, "Documents"},
    {StandardFolder::desktop, G_USER_DIRECTORY_DESKTOP, "Desktop"},
    {StandardFolder::downloads, G_USER_DIRECTORY_DOWNLOAD, "Downloads"},
    {StandardFolder::movies, G_USER_DIRECTORY_VIDEOS, "Videos"},
    {StandardFolder::music, G_USER_DIRECTORY_MUSIC, "Music"},
    {StandardFolder::pictures, G_USER_DIRECTORY_PICTURES, "Pictures"},
    {StandardFolder::sharedPublic, G_USER_DIRECTORY_PUBLIC_SHARE, "Public"},
}};

std::optional<std::string> desktopFolder(const DesktopFolder& folder)
{
    const auto home = homeDirectory();
    if (!home)
        return std::nullopt;
    g_reload_user_special_dirs_cache();
    const char* configured = g_get_user_special_dir(folder.configured);
    if (!configured)
        return appendingPathComponent(*home, folder.usualName);
    const std::string path = standardizedPath(configured);
    return path == standardizedPath(*home) ? std::nullopt : std::optional(path);
}

std::optional<std::string> dataFolder()
{
    const char* set = std::getenv("XDG_DATA_HOME");
    if (set && *set == '/')
        return standardizedPath(set);
    const auto home = homeDirectory();
    return home ? std::optional(appendingPathComponent(*home, ".local/share")) : std::nullopt;
}

} // namespace

std::optional<std::string> userFolder(StandardFolder kind)
{
    if (kind == StandardFolder::library || kind == StandardFolder::applicationSupport)
        return dataFolder();
    for (const DesktopFolder& folder : kDesktopFolders) {
        if (folder.kind == kind)
            return desktopFolder(folder);
    }
    return std::nullopt;
}

std::optional<std::string> standardFolder(StandardFolder kind, unsigned domains)
{
    return (domains & kUserDomain) != 0 ? userFolder(kind) : std::nullopt;
}

} // namespace stowline::platform
