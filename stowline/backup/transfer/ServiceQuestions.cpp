#include "stowline/backup/transfer/ServiceQuestions.h"

#include "stowline/backup/transfer/FolderPages.h"
#include "stowline/backup/transfer/VersionCheck.h"
#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>

namespace stowline::backup {

namespace {

/// Of an entry of a listing; no file's size where the service tells none.
std::uint64_t sizeIn(const Dictionary& entry)
{
    return platform::wholeNumber<std::uint64_t>(platform::findText(entry, "Size"))
        .value_or(UINT64_MAX);
}

} // namespace

HeldFiles::Answer HeldFiles::find(const std::string& folderPath, const std::string& name)
{
    const auto listing = folder(folderPath);
    if (listing->failure)
        return {.file = std::nullopt, .failure = listing->failure};
    const auto file = listing->files.find(name);
    return {.file = file == listing->files.end() ? std::nullopt : std::optional(file->second),
            .failure = std::nullopt};
}

std::shared_ptr<const HeldFiles::Folder> HeldFiles::folder(const std::string& path)
{
    std::promise<std::shared_ptr<const Folder>> promise;
    Listing listing;
    {
        const std::lock_guard lock(mutex_);
        const auto [place, isNew] = listings_.try_emplace(path);
        if (!isNew)
            listing = place->second;
        else
            place->second = promise.get_future().share();
    }
    if (listing.valid())
        return listing.get();
    Folder found = listed(path);
    auto result = std::make_shared<const Folder>(std::move(found));
    promise.set_value(result);
    return result;
}

HeldFiles::Folder HeldFiles::listed(const std::string& path)
{
    Folder result;
    if (path.empty())
        return listOfSystems();
    const std::string_view above = path == "/" ? "" : parentOf(path);
    const auto parent = folder(std::string(above));
    if (parent->failure)
        result.failure = parent->failure;
    else if (parent->folders.contains(std::string(nameOf(path))))
        result.failure = readPages(path, result);
    return result;
}

/// What stands above the root folder: the root of this machine, when the service knows it.
HeldFiles::Folder HeldFiles::listOfSystems()
{
    Folder result;
    std::optional<Array> systems;
    result.failure = tries_.repeat([&](std::optional<Error>& error) {
        systems = WebServiceBroker::getAccountSystemsForUsername(
            account_.username, account_.password, account_.server, &error);
        return systems.has_value();
    });
    const auto isThis = [this](const Value& entry) {
        const Dictionary* fields = entry.dictionary();
        return (fields ? platform::findText(*fields, "SystemName") : entry.text()) ==
               account_.systemName;
    };
    if (systems && std::ranges::any_of(*systems, isThis))
        result.folders.insert("/");
    return result;
}

std::optional<StepFailure> HeldFiles::readPages(const std::string& path, Folder& folder)
{
    return forEachEntry(account_, tries_, path, [&folder](const Dictionary& entry) {
        const std::string name = platform::findText(entry, "Name");
        if (platform::findText(entry, "IsFolder") == "true")
            folder.folders.insert(name);
        else
            folder.files.emplace(
                name, HeldFile{sizeIn(entry), platform::findText(entry, "Checksum"),
                               platform::leadingInteger(platform::findText(entry, "FileID"))});
    });
}

std::optional<HeldVersion> versionOf(const Account& account, const HeldFile& file, Tries& tries,
                                     std::optional<StepFailure>& failure)
{
    std::optional<Array> versions;
    failure = tries.repeat([&](std::optional<Error>& error) {
        versions = WebServiceBroker::getFileVersionsForUsername(account.username, account.password,
                                                                account.server, file.id, &error);
        return versions.has_value();
    });
    for (const Value& entry : versions.value_or(Array())) {
        const Dictionary* fields = entry.dictionary();
        if (fields && sizeIn(*fields) == file.size &&
            platform::findText(*fields, "Checksum") == file.checksum &&
            isVersionNumber(platform::findText(*fields, "VersionID")))
            return HeldVersion{platform::findText(*fields, "VersionID"),
                               platform::findText(*fields, "FileListID")};
    }
    return std::nullopt;
}

} // namespace stowline::backup
