#include "stowline/backup/record/StateFolder.h"

#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/Value.h"
#include "stowline/service/WebServicesSettings.h"

#include <algorithm>
#include <cerrno>

namespace stowline::backup {

namespace fs = std::filesystem;

namespace {

constexpr const char* kProfiles = "profiles";
constexpr const char* kIndexes = "index";

/// "https://host:port" of the address at which the account signs in.
std::string serviceOrigin()
{
    const auto entry = WebServicesSettings::webMethodInfo("Authenticate");
    const std::string address = entry ? platform::findText(*entry, "URL") : std::string();
    const auto scheme = address.find("://");
    return scheme == std::string::npos ? address : address.substr(0, address.find('/', scheme + 3));
}

} // namespace

UploadOwner uploadOwner(const Account& account, const ChainIdentity& identity)
{
    return {.service = serviceOrigin(),
            .username = account.username,
            .systemName = account.systemName,
            .identity = identity};
}

std::string fileName(const UploadOwner& owner)
{
    std::string text;
    for (const std::string& part :
         {owner.service, owner.username, owner.systemName, owner.identity.machine,
          owner.identity.user, owner.identity.profile})
        text += std::to_string(part.size()) + ":" + part;
    return platform::derivedUuid("com.stowline.index.1", text) + ".db";
}

fs::path indexFile(const fs::path& profileFolder, const UploadOwner& owner)
{
    return profileFolder / kIndexes / fileName(owner);
}

IndexOwner indexOwner(const UploadOwner& owner)
{
    return {.service = owner.service,
            .username = owner.username,
            .systemName = owner.systemName,
            .machine = owner.identity.machine,
            .user = owner.identity.user,
            .profile = owner.identity.profile};
}

fs::path proofFile(const fs::path& stateFolder, const UploadOwner& owner)
{
    return folderOfProfile(stateFolder, owner.identity.profile) / "proofs" / fileName(owner);
}

fs::path journalFolder(const fs::path& profileFolder)
{
    return profileFolder / "uploads";
}

fs::path folderOfProfile(const fs::path& stateFolder, const std::string& profile)
{
    if (profile == ChainIdentity().profile)
        return stateFolder;
    return stateFolder / kProfiles / platform::derivedUuid("com.stowline.profile.1", profile);
}

std::vector<fs::path> profileFolders(const fs::path& stateFolder, int& error)
{
    std::vector<fs::path> folders{stateFolder};
    for (const std::string& name : platform::namesInFolder(stateFolder / kProfiles, error))
        folders.push_back(stateFolder / kProfiles / name);
    if (error == ENOENT)
        error = 0; // no other profile was ever used
    return folders;
}

bool isProfileFolder(std::span<const std::string> names)
{
    return std::ranges::find(names, kLockFile) != names.end() &&
           std::ranges::find(names, kSpoolFolder) != names.end();
}

std::vector<UploadOwner> knownOwners(const fs::path& stateFolder)
{
    std::vector<UploadOwner> owners;
    int unimportant = 0; // what cannot be read tells nothing
    for (const fs::path& folder : profileFolders(stateFolder, unimportant)) {
        for (const std::string& name : platform::namesInFolder(folder / kIndexes, unimportant)) {
            if (!name.ends_with(".db"))
                continue;
            if (const auto owner = ItemIndex::ownerOf(folder / kIndexes / name))
                owners.push_back({.service = owner->service,
                                  .username = owner->username,
                                  .systemName = owner->systemName,
                                  .identity = {.machine = owner->machine,
                                               .user = owner->user,
                                               .profile = owner->profile}});
        }
    }
    return owners;
}

IndexPosition seenRun(const fs::path& stateFolder, const UploadOwner& owner)
{
    return ItemIndex::positionOf(
        indexFile(folderOfProfile(stateFolder, owner.identity.profile), owner), indexOwner(owner));
}

std::vector<IndexPosition> knownRecords(const fs::path& stateFolder, const UploadOwner& owner)
{
    return ItemIndex::knownRecordsOf(
        indexFile(folderOfProfile(stateFolder, owner.identity.profile), owner), indexOwner(owner));
}

} // namespace stowline::backup
