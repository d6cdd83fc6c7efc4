// The rolling file logger, on good days and bad ones.
#include "stowline/logging/DDFileLogger.h"

#include "stowline/logging/DDLog.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/ConsoleLog.h"
#include "stowline/platform/FileDescriptor.h"
#include "stowline/platform/Files.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;

/// Writes the bare text.
class BareFormatter final : public DDLogFormatter {
public:
    std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
    {
        return message.logMsg == "drop" ? std::nullopt : std::optional(LogText(message));
    }
};

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
    /// The logger looks after its file once a millisecond.
    static void waitForTheNextLook() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

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
    EXPECT_EQ(logger->loggerName(), "cocoa.lumberjack.fileLogger");
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

TEST_F(FileLogger, ADeletedFileIsMadeAnew)
{
    auto logger = start();
    log("first");
    fs::remove(files()[0].filePath());
    waitForTheNextLook();
    log("second");
    EXPECT_EQ(everything(), "second\n");
}

TEST_F(FileLogger, AReplacedFileIsNotWrittenInSecret)
{
    auto logger = start();
    log("first");
    const std::string path = files()[0].filePath();
    folder_.write("other", "somebody else's\n");
    fs::rename(folder_.path() / "other", path);
    waitForTheNextLook();
    log("second");
    EXPECT_NE(everything().find("second\n"), std::string::npos);
    EXPECT_NE(everything().find("somebody else's\n"), std::string::npos);
}

TEST_F(FileLogger, ADeletedFolderIsMadeAnew)
{
    auto logger = start();
    log("first");
    fs::remove_all(logs());
    waitForTheNextLook();
    log("second");
    EXPECT_EQ(everything(), "second\n");
}

TEST_F(FileLogger, AFolderThatCannotBeWrittenIsToldAndTriedAgain)
{
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    auto logger = start();
    folder_.write("logs", "a file in the way");
    log("lost");
    EXPECT_EQ(console.back(), "write log error");
    fs::remove(logs());
    log("kept");
    platform::setConsoleLogSink({});
    EXPECT_EQ(everything(), "kept\n");
}

TEST_F(FileLogger, LinksAreNotFollowed)
{
    fs::create_directory(logs());
    const auto target = folder_.write("target", "");
    fs::create_symlink(target, fs::path(logs()) / "log-ABCDEF.txt");
    auto logger = start();
    log("first");
    EXPECT_EQ(fs::file_size(target), 0U);
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(FileLogger, TwoLoggersInOneFolderLeaveEachOthersFilesAlone)
{
    auto one = start();
    log("both");
    auto two = start();
    log("both");
    const auto infos = files();
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_NE(one->currentLogFileInfo()->filePath(), two->currentLogFileInfo()->filePath());
    one->setMaximumFileSize(10);
    std::static_pointer_cast<DDLogFileManagerDefault>(one->logFileManager())
        ->setMaximumNumberOfLogFiles(0);
    for (int i = 0; i < 20; ++i)
        log("0123456789");
    EXPECT_TRUE(fs::exists(two->currentLogFileInfo()->filePath()));
    const std::string text = platform::readFile(two->currentLogFileInfo()->filePath()).value_or("");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 21);
}

TEST_F(FileLogger, TakesAnyBytesAndAnyLength)
{
    auto logger = start();
    const std::string odd("a\0b\x1b[31m\xff", 9);
    log(odd);
    EXPECT_EQ(everything(), odd + "\n");
    log(std::string(10 << 20, 'x'));
    EXPECT_TRUE(files()[0].isArchived());
    EXPECT_EQ(files()[0].fileSize(), odd.size() + 1 + (10 << 20) + 1);
}

TEST_F(FileLogger, AFullDiskDropsWholeLinesAndRecovers)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = test::Mount::memory(logs(), "size=64k");
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    auto logger = start();
    log("first");
    const std::string filler = fs::path(logs()) / "filler";
    std::ofstream(filler) << std::string(60000, 'x');
    log(std::string(10000, 'y'));
    EXPECT_EQ(console, std::vector<std::string>{"write log error"});
    fs::remove(filler);
    log("second");
    platform::setConsoleLogSink({});
    EXPECT_EQ(everything(), "first\nsecond\n");
}

TEST_F(FileLogger, ALineThatTheRootFileSystemCannotHoldIsDropped)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = test::Mount::memory(folder_.path() / "root", "size=64k");
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    const platform::FileDescriptor realRoot(::open("/", O_PATH | O_CLOEXEC));
    if (::chroot((folder_.path() / "root").c_str()) != 0)
        GTEST_SKIP() << "This user may not change the root folder.";
    auto logger = std::make_shared<DDFileLogger>(std::make_shared<DDLogFileManagerDefault>("/logs"),
                                                 FileLoggerClocks{timer_, [this] { return now_; }});
    logger->setLogFormatter(std::make_shared<BareFormatter>());
    // Logged directly: what works on a thread of its own has another root folder.
    const auto write = [&](const std::string& text) {
        logger->logMessage({text, kSystemLogLevel, kLogFlagInfo, 0, "F.cpp", "f", 1});
    };
    DDLog::loggingQueue().sync([] {});
    write("first");
    write(std::string(100000, 'x'));
    write("second");
    platform::setConsoleLogSink({});
    EXPECT_TRUE(console.empty());
    const auto infos = DDLogFileManagerDefault("/logs").sortedLogFileInfos();
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(platform::readFile(infos[0].filePath()), "first\nsecond\n");
    logger.reset();
    ASSERT_EQ(::fchdir(realRoot.number()), 0);
    ASSERT_EQ(::chroot("."), 0);
}

TEST_F(FileLogger, AKilledProcessLosesNoLineThatWasLogged)
{
    const pid_t child = ::fork();
    if (child == 0) {
        auto logger = start();
        for (int i = 0; i < 1000; ++i)
            log("line " + std::to_string(i));
        (void)std::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    const std::string text = everything();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1000);
    EXPECT_TRUE(text.ends_with("line 999\n"));
}

TEST_F(FileLogger, TheChildOfAForkGoesOnInTheSameFile)
{
    auto logger = start();
    log("parent");
    const pid_t child = ::fork();
    if (child == 0) {
        log("child");
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    log("parent again");
    EXPECT_EQ(everything(), "parent\nchild\nparent again\n");
}

TEST_F(FileLogger, AProcessThatJustEndsLosesNothingThatIsQueued)
{
    const pid_t child = ::fork();
    if (child == 0) {
        auto logger = start();
        for (int i = 0; i < 500; ++i)
            STOWLINE_LOG_INFO("line %d", i);
        std::exit(0); // NOLINT: that is the point
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    const std::string text = everything();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 500);
}

TEST_F(FileLogger, ManyThreadsWriteWholeLinesOverManyFiles)
{
    auto logger = start();
    logger->setMaximumFileSize(20000);
    std::static_pointer_cast<DDLogFileManagerDefault>(logger->logFileManager())
        ->setMaximumNumberOfLogFiles(1000);
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 500; ++i)
                    STOWLINE_LOG_INFO("thread %d line %d of some length", t, i);
            });
        }
    }
    DDLog::flushLog();
    std::istringstream lines(everything());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_TRUE(line.starts_with("thread ") && line.ends_with(" of some length")) << line;
    EXPECT_EQ(count, 2000);
    EXPECT_GT(files().size(), 2U);
}

} // namespace
} // namespace stowline
