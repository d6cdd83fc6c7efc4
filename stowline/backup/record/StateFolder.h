// What lies where in a state folder, and what it says of an owner's runs.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/transfer/UploadJournal.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace stowline::backup {

/// Names in a profile's folder.
inline constexpr const char* kSpoolFolder = "spool";
inline constexpr const char* kLockFile = "backup.lock";

/// Where the journal of a profile's folder lies.
[[nodiscard]] std::filesystem::path journalFolder(const std::filesystem::path& profileFolder);

/// Whose uploads these are: the account, at the service that the settings name.
[[nodiscard]] UploadOwner uploadOwner(const Account& account, const ChainIdentity& identity);

/// Who an index, or what self-tests have proven, belongs to.
[[nodiscard]] IndexOwner indexOwner(const UploadOwner& owner);

/// The name of a file of an owner's own.
[[nodiscard]] std::string fileName(const UploadOwner& owner);

/// Where an owner's index lies in a profile's folder, and in the state folder what self-tests have
/// proven.
[[nodiscard]] std::filesystem::path indexFile(const std::filesystem::path& profileFolder,
                                              const UploadOwner& owner);
[[nodiscard]] std::filesystem::path proofFile(const std::filesystem::path& stateFolder,
                                              const UploadOwner& owner);

/// The folder of one profile.
[[nodiscard]] std::filesystem::path folderOfProfile(const std::filesystem::path& stateFolder,
                                                    const std::string& profile);

/// The folders of all profiles that a state folder has, that of the profile "default" always.
/// @param error the system's number when it is not known which there are; else 0
[[nodiscard]] std::vector<std::filesystem::path>
profileFolders(const std::filesystem::path& stateFolder, int& error);

/// Whether names in a folder are those that a profile's folder has since its first run.
[[nodiscard]] bool isProfileFolder(std::span<const std::string> names);

/// Whose indexes a state folder has, of all profiles.
[[nodiscard]] std::vector<UploadOwner> knownOwners(const std::filesystem::path& stateFolder);

/// The newest run that the index of an owner knows, and its record's digest, and all records that
/// it knows; nothing is changed.
[[nodiscard]] IndexPosition seenRun(const std::filesystem::path& stateFolder,
                                    const UploadOwner& owner);
[[nodiscard]] std::vector<IndexPosition> knownRecords(const std::filesystem::path& stateFolder,
                                                      const UploadOwner& owner);

} // namespace stowline::backup
