// What the last backup came to, kept for the reports about it.
#pragma once

#include "stowline/backup/BackupRun.h"
#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>

namespace stowline::cli {

struct RunFigures {
    std::string username;
    std::string machine;
    Date begun;
    double seconds = 0;
    std::uint64_t notChanged = 0;
    std::uint64_t backedUp = 0;
    std::uint64_t failed = 0;
    std::uint64_t notChangedBytes = 0;
    std::uint64_t backedUpBytes = 0;
    std::uint64_t failedBytes = 0;

    [[nodiscard]] std::uint64_t processed() const { return notChanged + backedUp + failed; }
    [[nodiscard]] std::uint64_t processedBytes() const
    {
        return notChangedBytes + backedUpBytes + failedBytes;
    }

    [[nodiscard]] Dictionary dictionary() const;
    [[nodiscard]] static std::optional<RunFigures> fromDictionary(const Dictionary& fields);
};

[[nodiscard]] RunFigures figuresOf(const backup::BackupSummary& result, const std::string& username,
                                   const std::string& machine, Date begun);

/// Keeps the figures in the state folder, and reads them again; absent when there are none.
void keepLastRun(const RunFigures& figures);
[[nodiscard]] std::optional<RunFigures> lastRun();

} // namespace stowline::cli
