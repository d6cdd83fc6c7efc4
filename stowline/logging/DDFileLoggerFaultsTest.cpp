// The rolling file logger on bad days: files that go away, full disks, other loggers, processes
// that end.
#include "stowline/logging/DDFileLoggerTest.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/FileDescriptor.h"
#include "tests/support/MountNamespace.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline {
namespace {

/// After this long the logger looks after its file anew.
constexpr std::chrono::milliseconds kLook{1};

TEST_F(FileLogger, ADeletedFileIsMadeAnew)
{
    auto logger = start();
    log("first");
    fs::remove(files()[0].filePath());
    log("of the same moment");
    EXPECT_EQ(everything(), "");
    pass(kLook);
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
    pass(kLook);
    log("second");
    EXPECT_NE(everything().find("second\n"), std::string::npos);
    EXPECT_NE(everything().find("somebody else's\n"), std::string::npos);
}

TEST_F(FileLogger, ADeletedFolderIsMadeAnew)
{
    auto logger = start();
    log("first");
    fs::remove_all(logs());
    pass(kLook);
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

/// Holds its first message until it is let go.
class HoldingLogger final : public DDAbstractLogger {
public:
    void logMessage(const DDLogMessage&) override { gate.get_future().wait(); }
    std::promise<void> gate;
};

TEST_F(FileLogger, BesideASlowLoggerADeliveredLineIsInTheFile)
{
    auto logger = start();
    const auto slow = std::make_shared<HoldingLogger>();
    DDLog::addLogger(slow);
    for (int i = 0; i < 3; ++i)
        STOWLINE_LOG_INFO("line %d", i);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (everything() != "line 0\n" && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_EQ(everything(), "line 0\n");
    DDLog::removeLogger(slow);
    slow->gate.set_value();
}

/// Asks its logger, logs, and fails, whenever it is told something.
class TroublesomeManager final : public DDLogFileManager {
public:
    explicit TroublesomeManager(std::string folder)
        : files_(std::make_shared<DDLogFileManagerDefault>(std::move(folder)))
    {
    }
    std::vector<DDLogFileInfo> sortedLogFileInfos() override
    {
        return files_->sortedLogFileInfos();
    }
    std::optional<std::string> createNewLogFile() override
    {
        if (failsToCreate)
            throw std::runtime_error("no file today");
        return files_->createNewLogFile();
    }
    void didRollAndArchiveLogFile(const std::string&) override
    {
        ++told;
        for (int i = 0; i < linesWhenTold; ++i)
            STOWLINE_LOG_ERROR("told");
        if (const auto asked = logger.lock())
            (void)asked->maximumFileSize();
        throw std::runtime_error("not today");
    }

    std::weak_ptr<DDFileLogger> logger;
    std::atomic<int> told = 0;
    int linesWhenTold = 0;
    bool failsToCreate = false;

private:
    std::shared_ptr<DDLogFileManagerDefault> files_;
};

TEST_F(FileLogger, WhatItsManagerThrowsEndsThere)
{
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    const auto manager = std::make_shared<TroublesomeManager>(logs());
    auto logger = start(manager);
    manager->logger = logger;
    log("first");
    logger->rollLogFile(); // on the log's queue
    log("second");
    logger->setMaximumFileSize(1);
    log("third"); // on the logger's
    logger->setMaximumFileSize(0);
    log("fourth");
    pass(std::chrono::hours(25)); // on a timer
    EXPECT_EQ(manager->told, 4);
    manager->failsToCreate = true;
    log("lost");
    manager->failsToCreate = false;
    log("last");
    platform::setConsoleLogSink({});
    EXPECT_EQ(everything(), "first\nsecond\nthird\nfourth\nlast\n");
    EXPECT_EQ(std::count(console.begin(), console.end(), "write log error"), 1);
    EXPECT_EQ(std::count_if(console.begin(), console.end(),
                            [](const auto& line) { return line.ends_with("not today"); }),
              4);
}

TEST_F(FileLogger, AManagerThatLogsDuringABurstStopsNothing)
{
    platform::setConsoleLogSink([](std::string_view) {});
    const auto manager = std::make_shared<TroublesomeManager>(logs());
    manager->linesWhenTold = 50;
    auto logger = start(manager);
    manager->logger = logger;
    log("first");
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 990; ++i)
            STOWLINE_LOG_INFO("burst");
        logger->rollLogFile();
        for (int i = 0; i < 1500; ++i)
            STOWLINE_LOG_INFO("burst");
    }
    DDLog::flushLog();
    EXPECT_EQ(manager->told, 3);
    platform::setConsoleLogSink({});
}

TEST_F(FileLogger, ProgramsThatStartAtOnceLoseNoLine)
{
    constexpr int rounds = 10;
    constexpr int programs = 8;
    constexpr int lines = 40;
    for (int round = 0; round < rounds; ++round) {
        std::vector<pid_t> children;
        int gate[2];
        ASSERT_EQ(::pipe(gate), 0);
        for (int p = 0; p < programs; ++p) {
            children.push_back(::fork());
            if (children.back() != 0)
                continue;
            ::close(gate[1]);
            char none = 0;
            (void)!::read(gate[0], &none, 1); // until all are there
            const auto manager = std::make_shared<DDLogFileManagerDefault>(logs());
            manager->setMaximumNumberOfLogFiles(1000);
            start(manager);
            for (int i = 0; i < lines; ++i)
                log("line");
            ::_exit(0);
        }
        ::close(gate[0]);
        ::close(gate[1]);
        for (const pid_t child : children)
            ::waitpid(child, nullptr, 0);
    }
    const std::string text = everything();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), rounds * programs * lines);
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
