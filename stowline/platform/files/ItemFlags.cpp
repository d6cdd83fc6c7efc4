#include "stowline/platform/files/ItemFlags.h"

#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/text/PathText.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <array>
#include <sys/stat.h>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 46> kPackageExtensions{
    "action",        "app",
    "appdir",        "appex",
    "aplibrary",     "band",
    "bundle",        "component",
    "download",      "dsym",
    "fcpbundle",     "graffle",
    "imovielibrary", "kext",
    "key",           "logicx",
    "mdimporter",    "migratedphotolibrary",
    "mpkg",          "musiclibrary",
    "nib",           "numbers",
    "oo3",           "pages",
    "photolibrary",  "photoslibrary",
    "pkg",           "playground",
    "plugin",        "prefpane",
    "qlgenerator",   "rtfd",
    "saver",         "scptd",
    "service",       "sparsebundle",
    "theater",       "tvlibrary",
    "vst",           "vst3",
    "wdgt",          "workflow",
    "xcarchive",     "xcodeproj",
    "xcworkspace",   "xpc"};

/// Longest listing of hidden names that is read.
constexpr std::size_t kLongestListing = 1 << 20;

bool hasPackageExtension(const std::string& name)
{
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0)
        return false;
    const std::string extension = asciiLowercase(std::string_view(name).substr(dot + 1));
    return std::find(kPackageExtensions.begin(), kPackageExtensions.end(), extension) !=
           kPackageExtensions.end();
}

std::string smallFile(const fs::path& path)
{
    try {
        auto file = FileHandle::forReading(path);
        std::string content(std::min<std::uint64_t>(file.size(), kLongestListing), '\0');
        content.resize(file.read(content));
        return content;
    } catch (const FileFault&) {
        return {};
    }
}

bool isListed(const std::string& name, std::string_view listing)
{
    while (!listing.empty()) {
        const auto end = std::min(listing.find('\n'), listing.size());
        if (listing.substr(0, end) == name)
            return true;
        listing.remove_prefix(std::min(end + 1, listing.size()));
    }
    return false;
}

} // namespace

bool isPlainFile(const std::string& path)
{
    struct stat found = {};
    return path.find('\0') == std::string::npos && ::lstat(path.c_str(), &found) == 0 &&
           S_ISREG(found.st_mode);
}

std::optional<ItemFlags> itemFlags(const std::string& path)
{
    struct stat found = {};
    if (path.find('\0') != std::string::npos || ::lstat(path.c_str(), &found) != 0)
        return std::nullopt;
    const std::string name = lastPathComponent(path);
    const fs::path parent = path.substr(0, path.rfind(name));
    return ItemFlags{S_ISREG(found.st_mode), S_ISDIR(found.st_mode) && hasPackageExtension(name),
                     name.starts_with('.') || isListed(name, smallFile(parent / ".hidden"))};
}

} // namespace stowline::platform
