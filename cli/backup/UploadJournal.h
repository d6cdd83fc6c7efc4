// What is on its way, kept on disk so that a run that was cut off can be gone on with.
#pragma once

#include "cli/backup/FileTree.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// One unfinished upload.
struct JournalEntry {
    std::string guid; ///< names the upload on the service
    std::string username;
    std::string systemName;
    LocalFile file;
    std::uint64_t sentBytes = 0; ///< that the service has confirmed
    std::uint64_t parts = 0;
    std::uint32_t checksum = 0; ///< CRC-32 of the confirmed bytes
};

/// One small property list for each upload, written before the first byte is sent, replaced after
/// each part, and removed when the file is registered. Files of mode 0600 in a folder of mode 0700.
/// Any thread, but one at a time for an entry.
class UploadJournal {
public:
    explicit UploadJournal(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// @return whether the entry is on disk
    [[nodiscard]] bool write(const JournalEntry& entry) const;

    /// Absent when there is none, or it cannot be read.
    [[nodiscard]] std::optional<JournalEntry> find(const std::string& guid) const;

    void remove(const std::string& guid) const;

    /// All entries, by path.
    [[nodiscard]] std::vector<JournalEntry> entries() const;

private:
    [[nodiscard]] std::filesystem::path fileFor(const std::string& guid) const;
    const std::filesystem::path folder_;
};

} // namespace stowline::cli
