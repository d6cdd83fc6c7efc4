// What was begun to be sent from this machine and is not finished.
#pragma once

#include "stowline/backup/BackupRun.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// An upload that was begun and is not finished.
struct UnfinishedUpload {
    std::string id;
    std::string path;
    std::string username;
    std::string systemName;
    std::string profile;
    std::uint64_t size = 0;
    std::uint64_t sentBytes = 0;
    std::uint64_t parts = 0;
};

/// Those of a state folder, by path; none when there is no such folder. Nothing is thrown.
/// @param fault why it is not known which there are, in a sentence
/// @return absent when it is not known
[[nodiscard]] std::optional<std::vector<UnfinishedUpload>>
unfinishedUploads(const std::filesystem::path& stateFolder, std::string& fault) noexcept;

/// What became of forgetting unfinished uploads.
struct AbandonedUploads {
    std::size_t count = 0;           ///< that were forgotten, also when not all were
    BackupEnd end = BackupEnd::done; ///< `locked` while a run of their profile is under way
    std::string sentence;            ///< what went wrong; empty: nothing
};

/// Forgets unfinished uploads, on this machine alone. Nothing is thrown.
/// @param ids those that are not unfinished count for nothing
[[nodiscard]] AbandonedUploads abandonUploads(const std::filesystem::path& stateFolder,
                                              const std::vector<std::string>& ids) noexcept;

} // namespace stowline::backup
#pragma GCC visibility pop
