#include "stowline/backup/RunState.h"

#include "stowline/backup/RunFault.h"
#include "stowline/backup/proof/TestFolder.h"
#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/LeftWrites.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <system_error>

namespace stowline::backup {

namespace fs = std::filesystem;

namespace {

constexpr const char* kBegunFolder = "begun";
constexpr const char* kConfirmedFolder = "confirmed";
constexpr const char* kRunsFolder = "runs-begun";
constexpr const char* kDeletionNote = "versions-deleted";
constexpr const char* kFolderNote = "folders-deleted";

std::string reasonOf(int systemError)
{
    return platform::systemErrorText(systemError) + ".";
}

/// Where others may not look.
void makeFolder(const fs::path& folder)
{
    int error = 0;
    if (!platform::makePrivateFolder(folder, error))
        throw RunFault(BackupEnd::stateFolder,
                       "The folder " + folder.string() + " cannot be made: " + reasonOf(error));
}

void requireWritable(const fs::path& folder)
{
    int error = 0;
    if (!platform::SourceFile::emptyIn(folder, error))
        throw RunFault(BackupEnd::stateFolder, "The state folder " + folder.string() +
                                                   " cannot be written: " + reasonOf(error));
}

platform::LockFile lockFor(const fs::path& folder, const std::string& profile)
{
    int error = 0;
    if (auto lock = platform::LockFile::take(folder / kLockFile, error))
        return std::move(*lock);
    if (error != 0)
        throw RunFault(BackupEnd::stateFolder, "The lock " + (folder / kLockFile).string() +
                                                   " cannot be made: " + reasonOf(error));
    throw RunFault(
        BackupEnd::locked,
        "Another backup of this user with the profile \"" + profile +
            "\" is running. Please wait until it has finished, or give this one a profile of its "
            "own.");
}

fs::path begunFile(const fs::path& folder, const UploadOwner& owner)
{
    return folder / kBegunFolder / fileName(owner);
}

fs::path confirmedFile(const fs::path& folder, const UploadOwner& owner)
{
    return folder / kConfirmedFolder / fileName(owner);
}

} // namespace

fs::path profileFolder(const fs::path& stateFolder, const std::string& profile)
{
    return folderOfProfile(stateFolder, profile);
}

void requireRead(const fs::path& folder, int error)
{
    if (error != 0)
        throw RunFault(BackupEnd::stateFolder,
                       "The unfinished uploads cannot be determined: " + folder.string() +
                           " cannot be read: " + platform::systemErrorText(error) + ".");
}

RunState::RunState(fs::path folder, platform::LockFile lock)
    : folder_(std::move(folder)), lock_(std::move(lock)),
      journal_(std::make_unique<UploadJournal>(journalFolder(folder_)))
{
}

std::optional<std::string> refusedStateFolder(const fs::path& stateFolder)
{
    const auto status = platform::fileStatus(stateFolder);
    if (!status)
        return std::nullopt;
    const std::string otherOne = ", or name another place with XDG_STATE_HOME.";
    if (!status->isFolder)
        return "The state folder " + stateFolder.string() +
               " is a link, or is not a folder. Please put a folder of this user's there" +
               otherOne;
    if (platform::mayOthersWrite(stateFolder))
        return "The state folder " + stateFolder.string() +
               " belongs to another user, or other users may write into it or put another one in "
               "its place. Please make it, and the folder that it is in, this user's alone" +
               otherOne;
    return std::nullopt;
}

RunState RunState::take(const fs::path& stateFolder, const std::string& profile,
                        Leftovers leftovers)
{
    const fs::path folder = profileFolder(stateFolder, profile);
    if (!platform::fileStatus(stateFolder))
        makeFolder(stateFolder);
    if (const auto refused = refusedStateFolder(stateFolder))
        throw RunFault(BackupEnd::stateFolder, *refused);
    makeFolder(folder);
    requireWritable(folder);
    RunState state(folder, lockFor(folder, profile));
    if (leftovers == Leftovers::takenOut) {
        std::error_code unimportant; // what stays is taken out by a later run
        fs::remove_all(state.spoolFolder(), unimportant);
        TestFolder::sweep(folder);
        platform::removeLeftWrites(folder);
        platform::removeLeftWrites(folder / kBegunFolder);
        platform::removeLeftWrites(folder / kConfirmedFolder);
        platform::removeLeftWrites(folder / kRunsFolder);
    }
    makeFolder(state.spoolFolder());
    return state;
}

void noteDeletedVersions(const fs::path& stateFolder, std::span<const std::string> damaged) noexcept
{
    try {
        std::error_code fault;
        if (!fs::exists(stateFolder, fault))
            return;
        int unimportant = 0; // of profiles that cannot be found some are asked about all the same
        for (const fs::path& folder : profileFolders(stateFolder, unimportant)) {
            const fs::path note = folder / kDeletionNote;
            std::string lines = platform::readRegularFile(note).value_or("");
            for (const std::string& version : damaged) {
                if (!("\n" + lines).contains("\n" + version + "\n"))
                    lines += version + "\n";
            }
            if (platform::makePrivateFolder(folder))
                (void)platform::writeFileAtomically(note, lines);
        }
    } catch (const std::bad_alloc&) { // some of the versions are asked about all the same
    }
}

void noteDeletedFolder(const fs::path& stateFolder, const Account& account,
                       const std::string& folder) noexcept
{
    noteDeletedVersions(stateFolder);
    try {
        std::error_code fault;
        if (!fs::exists(stateFolder, fault))
            return;
        int unimportant = 0; // for a profile that is not found it is a loss, which is told
        for (const fs::path& profile : profileFolders(stateFolder, unimportant)) {
            std::string text = platform::readRegularFile(profile / kFolderNote).value_or("");
            for (const std::string& part : {account.username, account.systemName, folder})
                text += part + '\0';
            if (platform::makePrivateFolder(profile))
                (void)platform::writeFileAtomically(profile / kFolderNote, text);
        }
    } catch (const std::bad_alloc&) { // the same
    }
}

std::vector<std::string> RunState::deletedFolders(const Account& account) const
{
    std::vector<std::string> folders;
    std::istringstream text(platform::readRegularFile(folder_ / kFolderNote).value_or(""));
    std::string username;
    std::string system;
    std::string folder;
    while (std::getline(text, username, '\0') && std::getline(text, system, '\0') &&
           std::getline(text, folder, '\0')) {
        if (username == account.username && system == account.systemName)
            folders.push_back(folder);
    }
    return folders;
}

std::vector<std::string> RunState::begunFolders(const UploadOwner& owner) const
{
    std::vector<std::string> folders;
    std::istringstream text(
        platform::readRegularFile(begunFile(folder_, owner)).value_or(std::string()));
    for (std::string folder; std::getline(text, folder, '\0');)
        folders.push_back(folder);
    return folders;
}

void RunState::noteBegunFolders(const UploadOwner& owner,
                                const std::vector<std::string>& folders) const
{
    const fs::path file = begunFile(folder_, owner);
    std::error_code fault;
    if (folders.empty()) {
        fs::remove(file, fault); // one that stays tells of a run that was whole: no harm
        return;
    }
    std::string text;
    for (const std::string& folder : folders)
        text += folder + '\0';
    makeFolder(file.parent_path());
    if (!platform::writeFileAtomically(file, text))
        throw RunFault(BackupEnd::stateFolder,
                       "The file " + file.string() + " cannot be written. Is the disk full?");
}

void RunState::noteConfirmedLosses(const UploadOwner& owner, std::uint64_t upToRun) const
{
    const fs::path file = confirmedFile(folder_, owner);
    makeFolder(file.parent_path());
    if (!platform::writeFileAtomically(file, std::to_string(upToRun) + "\n"))
        throw RunFault(BackupEnd::stateFolder,
                       "The file " + file.string() + " cannot be written. Is the disk full?");
}

std::uint64_t RunState::confirmedLosses(const UploadOwner& owner) const
{
    std::string text = platform::readRegularFile(confirmedFile(folder_, owner)).value_or("");
    if (text.ends_with('\n'))
        text.pop_back();
    return platform::wholeNumber<std::uint64_t>(text).value_or(0); // else it is asked for again
}

void RunState::dropConfirmedLosses(const UploadOwner& owner) const
{
    std::error_code unimportant; // the next run drops it
    fs::remove(confirmedFile(folder_, owner), unimportant);
}

std::map<std::uint64_t, std::string> RunState::runsBegunHere(const UploadOwner& owner) const
{
    std::map<std::uint64_t, std::string> runs;
    std::istringstream lines(
        platform::readRegularFile(folder_ / kRunsFolder / fileName(owner)).value_or(""));
    std::uint64_t run = 0;
    for (std::string digest; lines >> run >> digest;)
        runs[run] = digest;
    return runs;
}

void RunState::noteRunsBegunHere(const UploadOwner& owner,
                                 const std::map<std::uint64_t, std::string>& runs) const
{
    std::string text;
    for (const auto& [run, digest] : runs)
        text += std::to_string(run) + " " + digest + "\n";
    const fs::path file = folder_ / kRunsFolder / fileName(owner);
    makeFolder(file.parent_path());
    if (!platform::writeFileAtomically(file, text))
        throw RunFault(BackupEnd::stateFolder,
                       "The file " + file.string() + " cannot be written. Is the disk full?");
}

bool RunState::hasDeletionNote() const
{
    std::error_code unimportant;
    return fs::exists(folder_ / kDeletionNote, unimportant);
}

std::set<std::string> RunState::damagedVersions() const
{
    std::set<std::string> versions;
    std::istringstream lines(platform::readRegularFile(folder_ / kDeletionNote).value_or(""));
    for (std::string line; std::getline(lines, line);)
        versions.insert(line);
    return versions;
}

void RunState::dropDeletionNote() const
{
    std::error_code unimportant; // one that stays costs a longer question
    fs::remove(folder_ / kDeletionNote, unimportant);
    fs::remove(folder_ / kFolderNote, unimportant);
}

ItemIndex RunState::openIndex(const UploadOwner& owner, bool isTemporary, bool isAnew) const
{
    const fs::path file = indexFile(folder_, owner);
    std::error_code fault;
    if (isTemporary && (isAnew || !fs::exists(file, fault)))
        return ItemIndex::temporary();
    makeFolder(file.parent_path());
    ItemIndex index = ItemIndex::open(file, indexOwner(owner));
    if (isAnew)
        index.clear();
    return index;
}

} // namespace stowline::backup
