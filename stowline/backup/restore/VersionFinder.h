// Asking the service for a version that it did not tell when the file was stored.
#pragma once

#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/transfer/ServiceQuestions.h"

#include <optional>
#include <string>

namespace stowline::backup {

/// The versions of one machine. Any thread.
class VersionFinder {
public:
    VersionFinder(const Account& account, Tries& tries)
        : account_(account), tries_(tries), held_(account, tries)
    {
    }

    struct Answer {
        std::string version; ///< empty: the service holds none of this size and checksum
        std::string list;    ///< names it in a deletion; empty: not told
        std::optional<StepFailure> failure;
    };
    /// That of a content: the one that was recorded, else the newest of the path that has its size
    /// and its checksum.
    [[nodiscard]] Answer versionFor(const std::string& path, const StoredContent& content);

private:
    const Account account_;
    Tries& tries_;
    HeldFiles held_;
};

} // namespace stowline::backup
