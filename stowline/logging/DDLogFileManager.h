// Where log files are kept, how they are named, and how many of them stay.
#pragma once

#include "stowline/logging/DDLogFileInfo.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// What a file logger asks of those who keep its files. Called on the queues of the log.
class DDLogFileManager {
public:
    virtual ~DDLogFileManager() = default;

    /// Descriptions of the log files, newest creation date first.
    [[nodiscard]] virtual std::vector<DDLogFileInfo> sortedLogFileInfos() = 0;

    /// Makes an empty file for new lines. @return its path; absent when that is impossible
    [[nodiscard]] virtual std::optional<std::string> createNewLogFile() = 0;

    /// Told when a file that was found at the start is marked as archived, and when the current
    /// file is finished. They may log, ask the logger and change its settings.
    virtual void didArchiveLogFile(const std::string& /*path*/) {}
    virtual void didRollAndArchiveLogFile(const std::string& /*path*/) {}
};

/// Keeps files "log-" and six upper-case hexadecimal digits ".txt" in one folder (mode 0700). Links
/// and files that another logger has open are left alone. Any thread. Made by std::make_shared.
class DDLogFileManagerDefault : public DDLogFileManager,
                                public std::enable_shared_from_this<DDLogFileManagerDefault> {
public:
    /// @param logsDirectory made when first used
    explicit DDLogFileManagerDefault(std::string logsDirectory);
    DDLogFileManagerDefault() : DDLogFileManagerDefault(defaultLogsDirectory()) {}

    /// The folder, made with what is missing above it. A failure is told to the machine's log.
    [[nodiscard]] std::string logsDirectory() const;

    /// "Logs" and the process's name in the user's library folder, else in the temporary folder.
    [[nodiscard]] static std::string defaultLogsDirectory();

    /// How many files stay beside the current one; 5 until it is set. A change takes effect in turn
    /// with the messages.
    [[nodiscard]] std::size_t maximumNumberOfLogFiles() const;
    void setMaximumNumberOfLogFiles(std::size_t number);

    /// Whether a name begins with "log-" and six characters of 0123456789ABCDEF.
    [[nodiscard]] static bool isLogFile(std::string_view fileName);

    [[nodiscard]] std::vector<std::string> unsortedLogFilePaths() const;
    [[nodiscard]] std::vector<std::string> unsortedLogFileNames() const;
    [[nodiscard]] std::vector<DDLogFileInfo> unsortedLogFileInfos() const;
    /// Newest creation date first. Of files made in one moment the one that is not archived comes
    /// first, then the one that was changed last.
    [[nodiscard]] std::vector<std::string> sortedLogFilePaths();
    [[nodiscard]] std::vector<std::string> sortedLogFileNames();
    [[nodiscard]] std::vector<DDLogFileInfo> sortedLogFileInfos() override;

    /// The first six characters of a new UUID.
    [[nodiscard]] static std::string generateShortUUID();

    /// Also deletes old files.
    [[nodiscard]] std::optional<std::string> createNewLogFile() override;

    /// Deletes the oldest files beyond the number that stays. The newest file, when it is not
    /// archived, is the current one and not counted.
    void deleteOldLogFiles();

private:
    /// @param current a file that is in use whatever its date says
    void deleteOldLogFilesBut(const std::string& current);

    const std::string logsDirectory_;
    mutable platform::ForkSafeMutex mutex_;
    std::size_t maximumNumberOfLogFiles_ = 5;
};

} // namespace stowline
#pragma GCC visibility pop
