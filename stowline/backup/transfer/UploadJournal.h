// What is on its way, kept on disk so that a run that was cut off can be gone on with.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/platform/files/SourceFile.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stowline::backup {

/// Whose upload it is. One of anybody else is never gone on with.
struct UploadOwner {
    std::string service; ///< origin of the service, from the settings
    std::string username;
    std::string systemName;
    ChainIdentity identity;
    bool operator==(const UploadOwner&) const = default;
};

/// One upload that is not finished.
struct JournalEntry {
    std::string guid; ///< names the upload on the service; of a name's every state another one
    UploadOwner owner;
    std::string path;            ///< of this machine; any bytes
    platform::FileState state;   ///< that is being sent; its device is not kept
    std::uint64_t sentBytes = 0; ///< that the service has confirmed
    std::uint64_t parts = 0;
    std::uint32_t checksum = 0; ///< CRC-32 of the confirmed bytes
};

/// One small property list for each path of an owner, written before the first byte is sent,
/// replaced after each part, and removed when the file is stored and known to be. An entry for
/// another state of the file takes the place of the one before. Files of mode 0600 in a folder of
/// mode 0700. Any thread, but one at a time for a path.
class UploadJournal {
public:
    explicit UploadJournal(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// @param error the system's number when it cannot be written
    /// @return whether the entry is on disk
    [[nodiscard]] bool write(const JournalEntry& entry, int& error) const;

    /// Absent when there is none, or it cannot be read.
    [[nodiscard]] std::optional<JournalEntry> find(const UploadOwner& owner,
                                                   const std::string& path) const;

    void remove(const UploadOwner& owner, const std::string& path) const;
    void remove(const JournalEntry& entry) const { remove(entry.owner, entry.path); }

    /// All entries, by path.
    /// @param error the system's number when the folder cannot be read; else 0, also without one
    [[nodiscard]] std::vector<JournalEntry> entries(int& error) const;
    [[nodiscard]] std::vector<JournalEntry> entries() const;

    /// Takes out what can never be gone on with: entries whose file is gone or another one by now,
    /// files that are not entries, and what a write that was cut off left behind.
    void removeOvertaken() const;

private:
    [[nodiscard]] std::filesystem::path fileFor(const UploadOwner& owner,
                                                const std::string& path) const;
    const std::filesystem::path folder_;
};

/// Whether two looks saw the same state; file systems get new numbers, so that is not asked.
[[nodiscard]] bool isSameState(const platform::FileState& left, const platform::FileState& right);

} // namespace stowline::backup
