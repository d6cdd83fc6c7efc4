// Lines into files that are rolled: the work of a file logger, whichever thread asks for it.
#pragma once

#include "stowline/logging/CurrentLogFile.h"
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/FreeSpace.h"
#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/threads/Timer.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace stowline {

/// The current file of a file logger and the settings that end it. Made by std::make_shared.
///
/// Any thread; one piece of work after another, and a fork() waits for its end. The manager is told
/// of finished files when the piece is done and nothing is locked, so it may log and ask; what it
/// throws is told to the machine's log.
class LogFileWriter : public std::enable_shared_from_this<LogFileWriter>,
                      private platform::ForkParticipant {
public:
    LogFileWriter(std::shared_ptr<DDLogFileManager> manager, FileLoggerClocks clocks);

    [[nodiscard]] const std::shared_ptr<DDLogFileManager>& manager() const { return manager_; }

    /// Writes lines, and returns when they are with the operating system. A line that does not fit
    /// is dropped; one that cannot be written is dropped and told.
    /// @param lines one after the other, each with its line feed
    /// @param ends  where each of them ends
    void write(std::string_view lines, std::span<const std::size_t> ends);

    /// Makes durable what was written.
    void synchronize();

    /// Finishes the current file.
    void roll();

    /// Makes durable what was written and lets go of the file, which stays unfinished.
    void close();

    [[nodiscard]] std::uint64_t maximumFileSize();
    void setMaximumFileSize(std::uint64_t bytes);
    [[nodiscard]] double rollingFrequency();
    void setRollingFrequency(double seconds);
    [[nodiscard]] std::optional<DDLogFileInfo> currentFile();

private:
    struct Finished {
        std::string path;
        bool isRolled; ///< else it was found at the start
    };

    template <class Piece> void work(Piece piece);
    void tell(const std::vector<Finished>& finished) const;

    void writeLines(std::string_view lines, std::span<const std::size_t> ends);
    void writeOrTell(std::string_view line);
    [[nodiscard]] bool append(std::string_view lines);
    [[nodiscard]] bool appendToCurrentFile(std::string_view lines);

    [[nodiscard]] bool isTooLarge(std::uint64_t size) const;
    [[nodiscard]] bool isTooOld(double age) const;
    [[nodiscard]] double wallAge(const DDLogFileInfo& info) const;

    void openFile();
    void continueFile();
    void use(DDLogFileInfo info);
    void scheduleTimer();
    void rollIfOld();
    void rollNow();
    void forgetFile();

    void beforeFork() override {}
    void afterForkInParent() override {}
    void afterForkInChild() override { isTimerGone_ = true; }

    const std::shared_ptr<DDLogFileManager> manager_;
    const FileLoggerClocks clocks_;
    std::recursive_mutex mutex_; ///< recursive, because the manager is asked for files within
    std::uint64_t maximumFileSize_ = 1048576;
    double rollingFrequency_ = 86400;
    std::optional<CurrentLogFile> file_;
    std::unique_ptr<platform::Timer> timer_;
    bool isTimerGone_ = false;       ///< it was left with the parent of a fork
    std::vector<Finished> finished_; ///< that the manager is still to be told of
    FreeSpace freeSpace_;
    platform::TimerClock::Moment now_{}; ///< of the piece of work that is being done
    const platform::ForkRegistration registration_{*this};
};

} // namespace stowline
