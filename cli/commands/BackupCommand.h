// What the commands that upload have in common.
#pragma once

#include "cli/backup/BackupRun.h"
#include "cli/shared/CommandLine.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Reporting.h"
#include "cli/shared/Session.h"
#include "stowline/platform/files/LockFile.h"

#include <functional>

namespace stowline::cli {

/// The options of a run.
struct BackupFlags {
    std::string systemName;
    std::uint64_t partBytes = 4U << 20;
    std::uint64_t bytesPerSecond = 0;
    std::size_t jobs = 4;
    double retrySeconds = 300;
    bool comparesChecksums = false;
    bool isDryRun = false;
    std::string registration = "protect2";
    ReportFlags reports;

    void declare(const Command& command);
};

/// Keeps other runs of this user away as long as it exists.
class BackupGuard {
public:
    BackupGuard();
    [[nodiscard]] bool isHeld() const { return lock_.has_value(); }
    [[nodiscard]] ExitStatus failure() const;

private:
    std::optional<platform::LockFile> lock_;
};

/// Signs in, finds the files, backs them up, tells of the run where that is wanted, also when it
/// failed, and ends the output.
[[nodiscard]] ExitStatus backUpTree(const SessionOptions& options, BackupFlags& flags,
                                    const std::function<FileTree()>& findFiles);

} // namespace stowline::cli
