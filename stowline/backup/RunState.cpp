#include "stowline/backup/RunState.h"

#include "stowline/backup/RunFault.h"
#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/values/Value.h"
#include "stowline/service/WebServicesSettings.h"

#include <system_error>

namespace stowline::backup {

namespace fs = std::filesystem;

namespace {

/// "https://host:port" of the address at which the account signs in.
std::string serviceOrigin()
{
    const auto entry = WebServicesSettings::webMethodInfo("Authenticate");
    const std::string address = entry ? platform::findText(*entry, "URL") : std::string();
    const auto scheme = address.find("://");
    return scheme == std::string::npos ? address : address.substr(0, address.find('/', scheme + 3));
}

void requireWritable(const fs::path& folder)
{
    int error = 0;
    if (!platform::SourceFile::emptyIn(folder, error))
        throw RunFault(BackupEnd::stateFolder,
                       "The state folder " + folder.string() +
                           " cannot be written: " + std::generic_category().message(error) + ".");
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

fs::path indexFile(const fs::path& folder, const UploadOwner& owner)
{
    std::string text;
    for (const std::string& part :
         {owner.service, owner.username, owner.systemName, owner.identity.machine,
          owner.identity.user, owner.identity.profile})
        text += std::to_string(part.size()) + ":" + part;
    return folder / "index" / (platform::derivedUuid("com.stowline.index.1", text) + ".db");
}

} // namespace

fs::path journalFolder(const fs::path& stateFolder)
{
    return stateFolder / "uploads";
}

RunState::RunState(fs::path folder, platform::LockFile lock)
    : folder_(std::move(folder)), lock_(std::move(lock)),
      journal_(std::make_unique<UploadJournal>(journalFolder(folder_)))
{
}

RunState RunState::take(const fs::path& folder)
{
    if (!platform::makePrivateFolder(folder))
        throw RunFault(BackupEnd::stateFolder,
                       "The state folder " + folder.string() + " cannot be made.");
    requireWritable(folder);
    auto lock = platform::LockFile::take(folder / "backup.lock");
    if (!lock)
        throw RunFault(BackupEnd::locked,
                       "Another backup of this user is running. Please wait for its end.");
    RunState state(folder, std::move(*lock));
    std::error_code unimportant; // what stays is taken out by a later run
    fs::remove_all(state.spoolFolder(), unimportant);
    if (!platform::makePrivateFolder(state.spoolFolder()))
        throw RunFault(BackupEnd::stateFolder, "The folder " + state.spoolFolder().string() +
                                                   " cannot be made. Is the disk full?");
    return state;
}

UploadOwner RunState::owner(const Account& account, const ChainIdentity& identity)
{
    return {.service = serviceOrigin(),
            .username = account.username,
            .systemName = account.systemName,
            .identity = identity};
}

IndexPosition RunState::seen(const fs::path& folder, const UploadOwner& owner)
{
    return ItemIndex::positionOf(indexFile(folder, owner), indexOwner(owner));
}

ItemIndex RunState::openIndex(const UploadOwner& owner, bool isTemporary, bool isAnew) const
{
    const fs::path file = indexFile(folder_, owner);
    std::error_code fault;
    if (isTemporary && (isAnew || !fs::exists(file, fault)))
        return ItemIndex::temporary();
    if (!platform::makePrivateFolder(file.parent_path()))
        throw RunFault(BackupEnd::stateFolder,
                       "The folder " + file.parent_path().string() + " cannot be made.");
    ItemIndex index = ItemIndex::open(file, indexOwner(owner));
    if (isAnew)
        index.clear();
    return index;
}

} // namespace stowline::backup
