// The rolling file logger: lines, sizes, ages.
#include "stowline/logging/DDFileLoggerTest.h"

namespace stowline {
namespace {

using std::chrono::hours;

/// Remembers what it is told.
class TellingManager final : public DDLogFileManager {
public:
    explicit TellingManager(std::string folder)
        : files_(std::make_shared<DDLogFileManagerDefault>(std::move(folder)))
    {
    }
    std::vector<DDLogFileInfo> sortedLogFileInfos() override
    {
        return files_->sortedLogFileInfos();
    }
    std::optional<std::string> createNewLogFile() override { return files_->createNewLogFile(); }
    void didArchiveLogFile(const std::string& path) override { archived.push_back(path); }
    void didRollAndArchiveLogFile(const std::string& path) override { rolled.push_back(path); }

    std::vector<std::string> archived;
    std::vector<std::string> rolled;

private:
    std::shared_ptr<DDLogFileManagerDefault> files_;
};

TEST_F(FileLogger, WritesLinesInOrder)
{
    auto logger = start();
    log("first");
    STOWLINE_LOG_INFO("%@", "second");
    log("with line feed\n");
    log("");
    log("drop");
    EXPECT_EQ(everything(), "first\nsecond\nwith line feed\n\n");
    ASSERT_EQ(files().size(), 1U);
    EXPECT_FALSE(files()[0].isArchived());
    EXPECT_EQ(logger->loggerName(), "com.Stowline.logging.fileLogger");
}

TEST_F(FileLogger, TheUsualLineBeginsWithTheLocalTime)
{
    ::setenv("TZ", "Asia/Kolkata", 1);
    auto logger = start();
    logger->setLogFormatter(std::make_shared<DDLogFileFormatterDefault>());
    log("text");
    const std::string line = everything();
    ASSERT_EQ(line.size(), sizeof "2013/06/01 09:30:00:125  text");
    EXPECT_TRUE(line.ends_with("  text\n"));
    for (const auto& [at, character] :
         {std::pair{4, '/'}, {7, '/'}, {10, ' '}, {13, ':'}, {16, ':'}, {19, ':'}})
        EXPECT_EQ(line[static_cast<std::size_t>(at)], character) << line;
}

TEST_F(FileLogger, WithoutFormatterTheTextItselfIsWritten)
{
    auto logger = start();
    logger->setLogFormatter(nullptr);
    log("drop");
    EXPECT_EQ(everything(), "drop\n");
}

TEST_F(FileLogger, HasTheUsualSettings)
{
    auto logger = start();
    EXPECT_EQ(logger->maximumFileSize(), 1048576U);
    EXPECT_EQ(logger->rollingFrequency(), 86400.0);
    EXPECT_FALSE(logger->currentLogFileInfo());
    log("x");
    EXPECT_EQ(logger->currentLogFileInfo()->filePath(), files()[0].filePath());
}

TEST_F(FileLogger, AFileOfExactlyTheMaximumIsRolled)
{
    auto logger = start();
    log(std::string(1048576 - 2, 'x'));
    EXPECT_EQ(files().size(), 1U);
    EXPECT_FALSE(files()[0].isArchived()) << "one byte is left";
    log("");
    ASSERT_EQ(files().size(), 1U);
    EXPECT_EQ(files()[0].fileSize(), 1048576U);
    EXPECT_TRUE(files()[0].isArchived());
    log("next");
    EXPECT_EQ(files().size(), 2U);
}

TEST_F(FileLogger, KeepsFiveArchivedFilesAndTheCurrentOne)
{
    auto logger = start();
    logger->setMaximumFileSize(10);
    for (int i = 0; i < 20; ++i) {
        log("0123456789");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    log("now");
    const auto infos = files();
    EXPECT_EQ(infos.size(), 6U);
    EXPECT_TRUE(everything().ends_with("0123456789\nnow\n"));
}

TEST_F(FileLogger, ALowerMaximumTakesEffectAtOnce)
{
    auto logger = start();
    log("0123456789");
    logger->setMaximumFileSize(11);
    DDLog::flushLog();
    EXPECT_TRUE(files()[0].isArchived());
    EXPECT_EQ(logger->maximumFileSize(), 11U);
}

TEST_F(FileLogger, NoMaximumIsAnySize)
{
    auto logger = start();
    logger->setMaximumFileSize(0);
    log(std::string(3000000, 'x'));
    EXPECT_FALSE(files()[0].isArchived());
}

TEST_F(FileLogger, RollsOnRequest)
{
    auto logger = start();
    logger->rollLogFile(); // nothing to roll yet
    log("first");
    logger->rollLogFile();
    DDLog::flushLog();
    EXPECT_TRUE(files()[0].isArchived());
    EXPECT_FALSE(logger->currentLogFileInfo());
    log("second");
    EXPECT_EQ(files().size(), 2U);
}

TEST_F(FileLogger, TellsItsManager)
{
    const auto manager = std::make_shared<TellingManager>(logs());
    auto logger = start(manager);
    log("first");
    const std::string path = files()[0].filePath();
    logger->rollLogFile();
    DDLog::flushLog();
    EXPECT_EQ(manager->rolled, std::vector{path});
    log("second");
    const std::string second = logger->currentLogFileInfo()->filePath();
    stop(logger);
    now_ += hours(25);
    logger = start(manager);
    log("third");
    EXPECT_EQ(manager->archived, std::vector{second});
    EXPECT_EQ(manager->rolled.size(), 1U);
}

TEST_F(FileLogger, ContinuesAYoungSmallFile)
{
    auto logger = start();
    log("first");
    stop(logger);
    now_ += hours(23);
    logger = start();
    log("second");
    EXPECT_EQ(files().size(), 1U);
    EXPECT_EQ(everything(), "first\nsecond\n");
}

TEST_F(FileLogger, ArchivesAnOldFileAtTheStart)
{
    auto logger = start();
    log("first");
    stop(logger);
    now_ += hours(24) + std::chrono::seconds(1);
    logger = start();
    log("second");
    const auto infos = files();
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_TRUE(infos[1].isArchived());
}

TEST_F(FileLogger, ArchivesALargeFileAtTheStart)
{
    auto logger = start();
    logger->setMaximumFileSize(0);
    log(std::string(1048576, 'x'));
    stop(logger);
    logger = start();
    log("second");
    const auto infos = files();
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_TRUE(infos[1].isArchived());
}

TEST_F(FileLogger, DoesNotContinueAnArchivedFile)
{
    auto logger = start();
    log("first");
    logger->rollLogFile();
    stop(logger);
    logger = start();
    log("second");
    EXPECT_EQ(files().size(), 2U);
}

TEST_F(FileLogger, RollsByAge)
{
    auto logger = start();
    logger->setRollingFrequency(10);
    log("first");
    pass(std::chrono::seconds(9));
    EXPECT_FALSE(files()[0].isArchived());
    pass(std::chrono::seconds(2));
    EXPECT_TRUE(files()[0].isArchived());
    log("second");
    EXPECT_EQ(files().size(), 2U);
}

TEST_F(FileLogger, ANewFrequencyAppliesToTheCurrentFile)
{
    auto logger = start();
    log("first");
    pass(std::chrono::seconds(100));
    logger->setRollingFrequency(60);
    EXPECT_EQ(logger->rollingFrequency(), 60.0);
    pass(std::chrono::milliseconds(1));
    EXPECT_TRUE(files()[0].isArchived());
}

TEST_F(FileLogger, NoFrequencyIsAnyAge)
{
    auto logger = start();
    logger->setRollingFrequency(0);
    log("first");
    pass(hours(24 * 365));
    EXPECT_FALSE(files()[0].isArchived());
}

TEST_F(FileLogger, AClockSetBackDoesNotKeepAFileOpenForLonger)
{
    auto logger = start();
    log("first");
    now_ -= hours(24 * 365);
    pass(hours(24) + std::chrono::seconds(1));
    EXPECT_TRUE(files()[0].isArchived());
}

TEST_F(FileLogger, AClockSetForwardDoesNotFinishAFileEarly)
{
    auto logger = start();
    log("first");
    now_ += hours(24 * 365);
    pass(hours(23));
    EXPECT_FALSE(files()[0].isArchived());
    pass(hours(2));
    EXPECT_TRUE(files()[0].isArchived());
}

TEST_F(FileLogger, AFileFromTheFutureIsContinued)
{
    auto logger = start();
    log("first");
    stop(logger);
    now_ -= hours(24 * 365);
    logger = start();
    log("second");
    EXPECT_EQ(everything(), "first\nsecond\n");
    pass(hours(25));
    EXPECT_TRUE(files()[0].isArchived());
}

} // namespace
} // namespace stowline
