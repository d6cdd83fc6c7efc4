#include "cli/backup/RemoteCatalogue.h"

#include "cli/shared/RemotePages.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"

#include <charconv>

namespace stowline::cli {

namespace {

std::string folderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

std::string nameOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::uint64_t sizeIn(const Dictionary& entry)
{
    const std::string digits = platform::findText(entry, "Size");
    std::uint64_t size = 0;
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), size);
    return size;
}

} // namespace

RemoteCatalogue::Folder RemoteCatalogue::listed(const std::string& path) const
{
    Folder folder;
    std::optional<Error> unimportant;
    (void)forEachInFolder(
        session_, {.systemName = systemName_, .path = path.empty() ? "/" : path},
        [&folder](const Dictionary& entry) {
            const std::string name = platform::findText(entry, "Name");
            if (platform::findText(entry, "IsFolder") == "true")
                folder.folders.emplace(name, true);
            else
                folder.files.emplace(name, RemoteFile{sizeIn(entry),
                                                      platform::findText(entry, "Modified"),
                                                      platform::findText(entry, "Checksum")});
        },
        &unimportant);
    return folder;
}

bool RemoteCatalogue::exists(const std::string& path)
{
    return path.empty() || folder(folderOf(path)).folders.contains(nameOf(path));
}

const RemoteCatalogue::Folder& RemoteCatalogue::folder(const std::string& path)
{
    const auto known = folders_.find(path);
    if (known != folders_.end())
        return known->second;
    Folder found = exists(path) ? listed(path) : Folder();
    return folders_.emplace(path, std::move(found)).first->second;
}

std::optional<RemoteFile> RemoteCatalogue::find(const std::string& path)
{
    const std::string remote = remotePath(path);
    const std::lock_guard lock(mutex_);
    const Folder& listing = folder(folderOf(remote));
    const auto file = listing.files.find(nameOf(remote));
    return file == listing.files.end() ? std::nullopt : std::optional(file->second);
}

} // namespace stowline::cli
