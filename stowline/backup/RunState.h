// The state folder of a run: its lock, its journal, its index, its copies.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/StateFolder.h"
#include "stowline/backup/transfer/UploadJournal.h"
#include "stowline/platform/files/LockFile.h"

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// Why a state folder is not used, with what can be done about it: it is a link, belongs to another
/// user, or others may write into it or put something else in its place. Absent when it may be
/// used, or is not there yet.
[[nodiscard]] std::optional<std::string>
refusedStateFolder(const std::filesystem::path& stateFolder);

/// Whether what a killed run has left is taken out.
enum class Leftovers { takenOut, kept };

/// Throws RunFault unless the folder of what is unfinished could be read: `error` is the system's
/// number, 0 when it could.
void requireRead(const std::filesystem::path& folder, int error);

/// Holds the folder of a profile as long as it exists. Operations throw RunFault and IndexFault.
class RunState {
public:
    /// Makes the folder when it is missing, and keeps other runs of the profile away. Takes out the
    /// copies and the folders of self-tests that a killed run may have left, unless they are kept
    /// for a run that changes nothing.
    [[nodiscard]] static RunState take(const std::filesystem::path& stateFolder,
                                       const std::string& profile,
                                       Leftovers leftovers = Leftovers::takenOut);

    /// What noteDeletedFolder() noted of this account's machine; gone with the deletion note.
    [[nodiscard]] std::vector<std::string> deletedFolders(const Account& account) const;

    /// Whether versions were deleted since the last run that asked about all of them.
    [[nodiscard]] bool hasDeletionNote() const;
    /// Versions that were found to hold other bytes than were stored.
    [[nodiscard]] std::set<std::string> damagedVersions() const;
    /// All were asked about.
    void dropDeletionNote() const;

    /// Folders that an owner's runs began to back up and did not come to the end of.
    [[nodiscard]] std::vector<std::string> begunFolders(const UploadOwner& owner) const;
    /// Notes durably which they are from now on; none: every run came to its end.
    void noteBegunFolders(const UploadOwner& owner, const std::vector<std::string>& folders) const;

    /// Notes durably that a person has confirmed what an owner's runs found gone, up to a run;
    /// which that is, 0: none; and that the next record says so.
    void noteConfirmedLosses(const UploadOwner& owner, std::uint64_t upToRun) const;
    [[nodiscard]] std::uint64_t confirmedLosses(const UploadOwner& owner) const;
    void dropConfirmedLosses(const UploadOwner& owner) const;

    /// Runs that an owner began from this state folder, and the digests of the notes of that: who
    /// holds the folder knows that they are over.
    [[nodiscard]] std::map<std::uint64_t, std::string>
    runsBegunHere(const UploadOwner& owner) const;
    /// Notes durably which they are from now on.
    void noteRunsBegunHere(const UploadOwner& owner,
                           const std::map<std::uint64_t, std::string>& runs) const;

    [[nodiscard]] const UploadJournal& journal() const { return *journal_; }
    /// For copies of files and for records that are put together; exists.
    [[nodiscard]] std::filesystem::path spoolFolder() const { return folder_ / kSpoolFolder; }

    /// @param isTemporary an index that does not outlive the run, when there is none to be read
    /// @param isAnew nothing of the one that there is counts
    [[nodiscard]] ItemIndex openIndex(const UploadOwner& owner, bool isTemporary,
                                      bool isAnew) const;

private:
    RunState(std::filesystem::path folder, platform::LockFile lock);
    std::filesystem::path folder_;
    platform::LockFile lock_;
    std::unique_ptr<UploadJournal> journal_;
};

} // namespace stowline::backup
