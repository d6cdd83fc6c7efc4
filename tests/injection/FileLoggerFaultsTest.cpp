// Logging into files while everything that can fail does.
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/files/Files.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/TemporaryFolder.h"

#include <limits>

namespace stowline {
namespace {

const std::vector<std::string> kCalled{"new",       "write", "fdatasync", "stat",      "lstat",
                                       "fstat",     "statx", "fcntl",     "lgetxattr", "lsetxattr",
                                       "getrandom", "open",  "unlink"};

/// Each turn logs a line, finishes the file, and logs another into a new one.
class LoggingIntoFiles {
public:
    LoggingIntoFiles()
    {
        files_->setMaximumNumberOfLogFiles(2); // so that some are deleted
        DDLog::addLogger(logger_);
        DDLog::flushLog();
    }
    ~LoggingIntoFiles()
    {
        DDLog::removeAllLoggers();
        DDLog::flushLog();
    }
    LoggingIntoFiles(const LoggingIntoFiles&) = delete;
    LoggingIntoFiles& operator=(const LoggingIntoFiles&) = delete;

    test::Path path()
    {
        return {[this] { run(); }, [this] { check(false); },
                [this] {
                    run();
                    check(true);
                }};
    }

private:
    void run()
    {
        ++turn_;
        log("first");
        logger_->rollLogFile();
        log("second");
        DDLog::flushLog();
    }
    void log(const char* which) const
    {
        DDLog::log(false, kLogFlagInfo, kLogFlagInfo, 0, __FILE__, "log", __LINE__,
                   "%@ line of turn %d.", which, turn_);
    }

    /// Lines are lost at most, and never a piece of one; undisturbed none is.
    void check(bool isUndisturbed) const
    {
        for (const DDLogFileInfo& info : files_->sortedLogFileInfos()) {
            const auto content = platform::readFile(info.filePath());
            ASSERT_TRUE(content);
            EXPECT_TRUE(content->empty() || content->ends_with(".\n")) << *content;
        }
        if (!isUndisturbed)
            return;
        std::string all;
        for (const DDLogFileInfo& info : files_->sortedLogFileInfos())
            all += platform::readFile(info.filePath()).value_or("");
        for (const std::string which : {"first", "second"})
            EXPECT_NE(all.find(which + " line of turn " + std::to_string(turn_) + ".\n"),
                      std::string::npos);
    }

    const test::TemporaryFolder folder_;
    const std::shared_ptr<DDLogFileManagerDefault> files_ =
        std::make_shared<DDLogFileManagerDefault>((folder_.path() / "logs").string());
    const std::shared_ptr<DDFileLogger> logger_ = std::make_shared<DDFileLogger>(files_);
    int turn_ = 0;
};

class FileLoggerFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(FileLoggerFaults, LoseLinesAtMost)
{
    LoggingIntoFiles logging;
    test::failInTurn(GetParam(), logging.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, FileLoggerFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

TEST(FileLoggerFaults, UnknownFreeSpaceIsPlenty)
{
    const test::TemporaryFolder folder;
    const auto files = std::make_shared<DDLogFileManagerDefault>((folder.path() / "logs").string());
    test::arm({"statvfs", 1, true});
    DDLog::addLogger(std::make_shared<DDFileLogger>(files));
    DDLog::log(false, kLogFlagInfo, kLogFlagInfo, 0, __FILE__, "test", __LINE__, "the line");
    EXPECT_GT(test::disarm().failures, 0U);
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    const auto infos = files->sortedLogFileInfos();
    ASSERT_EQ(infos.size(), 1U);
    const auto content = platform::readFile(infos.front().filePath());
    EXPECT_TRUE(content.value_or("").ends_with("  the line\n")) << content.value_or("none");
}

TEST(FileLoggerFaults, FilesAreMadeDurableWhenTheyAreFlushedFinishedAndClosed)
{
    const test::TemporaryFolder folder;
    const DDLogMessage message("line", 7, 4, 0, "F.cpp", "f", 1);
    test::arm({"fdatasync", std::numeric_limits<std::size_t>::max(), false});
    {
        DDFileLogger logger(
            std::make_shared<DDLogFileManagerDefault>((folder.path() / "logs").string()));
        logger.logMessage(message);
        EXPECT_EQ(test::disarm().calls, 0U);
        test::arm({"fdatasync", std::numeric_limits<std::size_t>::max(), false});
        logger.flush();
        EXPECT_EQ(test::disarm().calls, 1U);
        test::arm({"fdatasync", std::numeric_limits<std::size_t>::max(), false});
        logger.rollLogFile();
        DDLog::loggingQueue().sync([] {});
        EXPECT_EQ(test::disarm().calls, 1U);
        logger.logMessage(message);
        test::arm({"fdatasync", std::numeric_limits<std::size_t>::max(), false});
    }
    EXPECT_EQ(test::disarm().calls, 1U);
}

TEST(FileLoggerFaults, AreAllTried)
{
    LoggingIntoFiles logging;
    auto tried = kCalled;
    tried.emplace_back("statvfs"); // asked again only when a moment has passed
    EXPECT_EQ(test::unlisted(tried, logging.path()), std::vector<std::string>());
}

} // namespace
} // namespace stowline
