// Folders by their names, volumes, and what an item is to people.
#include "stowline/platform/files/ItemFlags.h"
#include "stowline/platform/files/StandardFolders.h"
#include "stowline/platform/files/Volumes.h"
#include "stowline/platform/text/PathText.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/util/General.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

using platform::StandardFolder;

struct NamedFolder {
    std::string_view name;
    StandardFolder folder;
};

constexpr std::array<NamedFolder, 8> kNamedFolders{{
    {"documents", StandardFolder::documents},
    {"library", StandardFolder::library},
    {"desktop", StandardFolder::desktop},
    {"downloads", StandardFolder::downloads},
    {"movies", StandardFolder::movies},
    {"music", StandardFolder::music},
    {"pictures", StandardFolder::pictures},
    {"sharedpublic", StandardFolder::sharedPublic},
}};

std::size_t significantLength(const std::vector<std::string>& components)
{
    return components.size() - (components.back() == "/" ? 1 : 0);
}

platform::ItemFlags flagsOf(const std::string& path)
{
    return path.empty() ? platform::ItemFlags()
                        : platform::itemFlags(path).value_or(platform::ItemFlags());
}

} // namespace

std::string General::pathRepresentedByDirectoryString(const std::string& name)
{
    (void)launchTime();
    const std::string word = platform::lowercased(name);
    if (word == "home directory")
        return platform::homeDirectory().value_or(name);
    if (word == "trash") {
        const auto home = platform::homeDirectory();
        return home ? platform::appendingPathComponent(*home, ".Trash") : name;
    }
    const auto named = std::find_if(kNamedFolders.begin(), kNamedFolders.end(),
                                    [&](const NamedFolder& entry) { return entry.name == word; });
    if (named == kNamedFolders.end())
        return platform::standardizedPath(name);
    return platform::userFolder(named->folder).value_or(name);
}

bool General::path(const std::string& path, const std::string& isSubPathOfPath)
{
    const auto volume = volumeRefNumFromPath(path);
    if (volume == 0 || volume != volumeRefNumFromPath(isSubPathOfPath))
        return false;
    const auto inner = platform::pathComponents(path);
    const auto outer = platform::pathComponents(isSubPathOfPath);
    if (inner.empty() || outer.empty() || inner.front() != "/" || outer.front() != "/")
        return false;
    const std::size_t length = significantLength(outer);
    if (length > significantLength(inner))
        return false;
    for (std::size_t at = 1; at < length; ++at) {
        if (inner[at] != outer[at])
            return false;
    }
    return true;
}

std::int16_t General::volumeRefNumFromPath(const std::string& path)
{
    (void)launchTime();
    return platform::volumeNumberOf(path);
}

std::optional<std::string> General::volumeNameFromPath(const std::string& path)
{
    (void)launchTime();
    return platform::volumeNameOf(path);
}

std::optional<std::string> General::volumePathFromItemPath(const std::string& path)
{
    (void)launchTime();
    const auto mount = platform::mountPathOf(path);
    return mount ? std::optional(mount->string()) : std::nullopt;
}

bool General::isSystemVolumePath(const std::string& path)
{
    const auto volume = volumeRefNumFromPath(path);
    return volume != 0 && volume == volumeRefNumFromPath("/");
}

bool General::isItemHidden(const std::string& path)
{
    (void)launchTime();
    return platform::lastPathComponent(path).starts_with('.') || flagsOf(path).isInvisible;
}

bool General::isPathPackage(const std::string& path)
{
    (void)launchTime();
    return flagsOf(path).isPackage;
}

bool General::isItemInPackage(const std::string& path)
{
    (void)launchTime();
    std::string prefix = "/";
    for (const std::string& part : platform::pathComponents(path)) {
        if (part == "/")
            continue;
        prefix = platform::appendingPathComponent(prefix, part);
        if (isPathPackage(prefix))
            return true;
    }
    return false;
}

bool General::isItemPlainFile(const std::string& path)
{
    (void)launchTime();
    return platform::isPlainFile(path);
}

} // namespace stowline
