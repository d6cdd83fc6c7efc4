// Log lines in files that are rolled.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"
#include "stowline/logging/DDLogFileManager.h"
#include "stowline/platform/threads/Timer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Writes "2013/06/01 09:30:00:125  Upload started.": local time and the message's text.
class DDLogFileFormatterDefault final : public DDLogFormatter {
public:
    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override;
};

class LogFileWriter;

/// Where a file logger takes the time from; tests use clocks of their own.
struct FileLoggerClocks {
    platform::TimerClock& timer = platform::TimerClock::shared();
    std::function<Date()> now = platform::currentDate;
};

/// Writes each message as a line to the current log file, in the order logged, and starts a new
/// file when the current one has reached a size or an age, or when asked to. A line is with the
/// operating system when logMessage() or logMessages() returns, so it survives the end of the
/// process however that comes.
///
/// The current file is the newest log file, when it is neither archived nor too large or too old,
/// nor in use by another logger; else a new one. Finished files are marked as archived.
///
/// Trouble never reaches the caller: a line that does not fit on the disk of "/" is dropped, one
/// that cannot be written whole is taken back, dropped and told to the machine's log, and the next
/// is tried anew. A deleted file is noticed within a millisecond; a new one is made then, with its
/// folder. Links are not followed.
///
/// Any thread. Settings asked for from elsewhere than the logger's own queue are read and changed
/// in turn with the messages.
class DDFileLogger final : public DDAbstractLogger {
public:
    explicit DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager =
                              std::make_shared<DDLogFileManagerDefault>(),
                          FileLoggerClocks clocks = {});
    ~DDFileLogger() override;
    DDFileLogger(const DDFileLogger&) = delete;
    DDFileLogger& operator=(const DDFileLogger&) = delete;

    void logMessage(const DDLogMessage& message) override;
    [[nodiscard]] bool takesMessagesTogether() const override { return true; }
    void logMessages(std::span<const std::shared_ptr<const DDLogMessage>> messages) override;

    /// Makes durable what was written.
    void flush() override;

    [[nodiscard]] const std::shared_ptr<DDLogFileManager>& logFileManager() const;

    /// Bytes at which a file is finished: 1048576 until it is set; 0 for any size.
    [[nodiscard]] std::uint64_t maximumFileSize();
    void setMaximumFileSize(std::uint64_t bytes);

    /// Seconds of age at which a file is finished: 86400 until it is set; 0 or less for any age.
    /// Setting the clock neither finishes a file early nor keeps it open for longer than this;
    /// the time that the machine is suspended counts.
    [[nodiscard]] double rollingFrequency();
    void setRollingFrequency(double seconds);

    /// Finishes the current file, in turn with the messages. The next message begins another.
    void rollLogFile();

    /// The current file; absent before the first message and after a file is finished.
    [[nodiscard]] std::optional<DDLogFileInfo> currentLogFileInfo();

private:
    [[nodiscard]] bool appendLine(std::string& lines, const DDLogMessage& message);

    /// Shared with changes of settings and timers that are on their way.
    const std::shared_ptr<LogFileWriter> writer_;
};

} // namespace stowline
#pragma GCC visibility pop
