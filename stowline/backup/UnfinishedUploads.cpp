#include "stowline/backup/UnfinishedUploads.h"

#include "stowline/backup/RunFault.h"
#include "stowline/backup/RunState.h"
#include "stowline/platform/values/HandledException.h"

#include <algorithm>
#include <set>

namespace stowline::backup {

namespace fs = std::filesystem;

namespace {

/// Throws RunFault.
std::vector<UnfinishedUpload> foundUploads(const fs::path& stateFolder)
{
    int error = 0;
    std::vector<UnfinishedUpload> found;
    const auto folders = profileFolders(stateFolder, error);
    requireRead(stateFolder, error);
    for (const fs::path& folder : folders) {
        const fs::path journal = journalFolder(folder);
        const auto entries = UploadJournal(journal).entries(error);
        requireRead(journal, error);
        for (const JournalEntry& entry : entries)
            found.push_back({.id = entry.guid,
                             .path = entry.path,
                             .username = entry.owner.username,
                             .systemName = entry.owner.systemName,
                             .profile = entry.owner.identity.profile,
                             .size = entry.state.size,
                             .sentBytes = entry.sentBytes,
                             .parts = entry.parts});
    }
    std::ranges::stable_sort(found, {}, &UnfinishedUpload::path);
    return found;
}

} // namespace

std::optional<std::vector<UnfinishedUpload>> unfinishedUploads(const fs::path& stateFolder,
                                                               std::string& fault) noexcept
{
    try {
        return foundUploads(stateFolder);
    } catch (...) {
        fault = platform::handledSentence();
        return std::nullopt;
    }
}

AbandonedUploads abandonUploads(const fs::path& stateFolder,
                                const std::vector<std::string>& ids) noexcept
{
    AbandonedUploads result;
    const auto fail = [&result](BackupEnd end) {
        result.end = end;
        result.sentence = platform::handledSentence();
    };
    try {
        const auto isMeant = [&ids](const std::string& id) {
            return std::ranges::find(ids, id) != ids.end();
        };
        std::set<std::string> profiles;
        for (const UnfinishedUpload& upload : foundUploads(stateFolder)) {
            if (isMeant(upload.id))
                profiles.insert(upload.profile);
        }
        for (const std::string& profile : profiles) {
            const RunState state = RunState::take(stateFolder, profile);
            for (const JournalEntry& entry : state.journal().entries()) {
                if (!isMeant(entry.guid))
                    continue;
                state.journal().remove(entry);
                ++result.count;
            }
        }
    } catch (const RunFault& fault) {
        fail(fault.end());
    } catch (...) {
        fail(BackupEnd::failed);
    }
    return result;
}

} // namespace stowline::backup
