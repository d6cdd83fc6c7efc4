// What the tests of the rolling file logger have in common.
#pragma once

#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace stowline {

namespace fs = std::filesystem;

/// Writes the bare text.
class BareFormatter final : public DDLogFormatter {
public:
    std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
    {
        return message.logMsg == "drop" ? std::nullopt : std::optional(LogText(message));
    }
};

/// Loggers of a folder, with clocks that stand still, and what their files hold.
class FileLogger : public testing::Test {
protected:
    /// The clocks and folders go only when the loggers are gone.
    ~FileLogger() override
    {
        DDLog::removeAllLoggers();
        awaitEnd();
    }

    [[nodiscard]] std::string logs() const { return folder_.path() / "logs"; }

    std::shared_ptr<DDFileLogger> start(std::shared_ptr<DDLogFileManager> manager = nullptr)
    {
        if (!manager)
            manager = std::make_shared<DDLogFileManagerDefault>(logs());
        ++started_;
        std::shared_ptr<DDFileLogger> logger(
            new DDFileLogger(manager, {timer_, [this] { return now_; }}),
            [this](DDFileLogger* gone) {
                delete gone; // NOLINT: a deleter
                ++gone_;
            });
        logger->setLogFormatter(std::make_shared<BareFormatter>());
        DDLog::addLogger(logger);
        return logger;
    }
    void stop(std::shared_ptr<DDFileLogger>& logger)
    {
        DDLog::removeLogger(std::exchange(logger, nullptr));
        awaitEnd();
    }
    /// A logger's end comes in turn on its own queue.
    void awaitEnd() const
    {
        DDLog::flushLog();
        while (gone_ != started_)
            std::this_thread::yield();
    }
    static void log(const std::string& text) { STOWLINE_LOG_ERROR("%@", text); }

    [[nodiscard]] std::vector<DDLogFileInfo> files() const
    {
        return DDLogFileManagerDefault(logs()).sortedLogFileInfos();
    }
    /// The content of all files, the oldest first.
    [[nodiscard]] std::string everything() const
    {
        std::string text;
        auto infos = files();
        for (auto info = infos.rbegin(); info != infos.rend(); ++info)
            text += platform::readFile(info->filePath()).value_or("?");
        return text;
    }
    /// Lets both clocks go on.
    void pass(std::chrono::milliseconds time)
    {
        now_ += time;
        timer_.advance(time);
        DDLog::flushLog();
    }

    int started_ = 0;
    std::atomic<int> gone_ = 0;
    test::TemporaryFolder folder_;
    platform::ManualTimerClock timer_;
    Date now_ = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
};

} // namespace stowline
