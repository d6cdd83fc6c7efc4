// A whole backup: many files, several at a time.
#pragma once

#include "cli/backup/FileTree.h"
#include "cli/backup/FileUploader.h"
#include "cli/shared/Session.h"

#include <cstdint>
#include <string>
#include <vector>

namespace stowline::cli {

struct BackupOptions {
    std::string systemName;
    std::uint64_t partBytes = 0;
    std::uint64_t bytesPerSecond = 0; ///< 0: as fast as it goes
    std::size_t jobs = 1;
    Duration budgetPerStep{};
    bool comparesChecksums = false;
    bool isDryRun = false;
    RegistrationMethod registration = RegistrationMethod::protect2;
};

/// What a run came to.
struct BackupResult {
    std::uint64_t stored = 0;
    std::uint64_t resumed = 0; ///< of those stored, gone on with from an earlier run
    std::uint64_t unchanged = 0;
    std::uint64_t failed = 0;
    std::uint64_t storedBytes = 0;
    std::uint64_t unchangedBytes = 0;
    std::uint64_t failedBytes = 0; ///< as far as they are known
    std::uint64_t sentParts = 0;
    std::uint64_t leftOut = 0;
    std::vector<std::string> faults; ///< a sentence for each thing that was not stored
    bool onlyMissingPaths = false;   ///< nothing that was named is there
    double seconds = 0;
    double registrationSeconds = 0; ///< of all jobs together
};

/// Backs up a tree: announces packages, leaves out what the service holds with the same size and
/// date, uploads the rest. Says on standard error what was not stored, shows progress, and with
/// JSON prints a line for each file. Stops when the user asks to.
[[nodiscard]] BackupResult runBackup(const Session& session, const std::string& serverPath,
                                     const FileTree& tree, const BackupOptions& options);

/// Ends the output with the result.
[[nodiscard]] ExitStatus finishBackup(const BackupResult& result);

/// The identifier of this machine's upload path; where its journal and its lock are kept.
[[nodiscard]] std::string uploadPathIdentifier();
[[nodiscard]] std::optional<std::filesystem::path> journalFolder();

/// Asks the service for this machine's upload path; says what goes wrong.
[[nodiscard]] Result<std::string> uploadPathFor(const Session& session);

} // namespace stowline::cli
