// A log kept in a real database, on good days and bad ones.
#include "stowline/logging/SQLiteLogger.h"

#include "stowline/logging/DDLog.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

class KeptLog : public testing::Test {
protected:
    [[nodiscard]] std::string path() const { return folder_.path() / "log.sqlite"; }
    [[nodiscard]] std::shared_ptr<SQLiteLogger> open() const
    {
        std::string fault;
        auto logger = SQLiteLogger::open(path(), &fault);
        EXPECT_TRUE(logger) << fault;
        return logger;
    }
    [[nodiscard]] std::vector<std::string> texts(const LogQuery& query = {}) const
    {
        std::string fault;
        const auto found = SQLiteLogger::entries(path(), query, &fault);
        EXPECT_TRUE(found) << fault;
        std::vector<std::string> texts;
        for (const LogEntry& entry : found.value_or(std::vector<LogEntry>()))
            texts.push_back(entry.text);
        return texts;
    }
    [[nodiscard]] std::string integrity() const
    {
        SQLite::Database database(path(), SQLite::OPEN_READWRITE);
        return database.execAndGet("PRAGMA integrity_check").getString();
    }
    /// Logs directly, on the logger's queue, without a dispatcher.
    static void log(SQLiteLogger& logger, const std::string& text, std::int32_t flag = kLogFlagInfo)
    {
        logger.loggerQueue()->sync([&] {
            logger.logMessage({text, kSystemLogLevel, flag, 3, "a/Upload.cpp", "upload", 42});
        });
    }
    static void flush(SQLiteLogger& logger)
    {
        logger.loggerQueue()->sync([&] { logger.flush(); });
    }

    test::TemporaryFolder folder_;
};

using Texts = std::vector<std::string>;

TEST_F(KeptLog, KeepsEverythingOfAMessage)
{
    const auto logger = open();
    const Date before = platform::currentDate();
    log(*logger, std::string("a\0b \xff", 5), kLogFlagError);
    flush(*logger);
    const auto found = SQLiteLogger::entries(path(), {}, nullptr);
    ASSERT_TRUE(found);
    ASSERT_EQ(found->size(), 1U);
    const LogEntry& entry = found->front();
    EXPECT_EQ(entry.text, std::string("a\0b \xff", 5));
    EXPECT_EQ(entry.level, kSystemLogLevel);
    EXPECT_EQ(entry.flag, kLogFlagError);
    EXPECT_EQ(entry.context, 3);
    EXPECT_EQ(entry.file, "Upload");
    EXPECT_EQ(entry.function, "upload");
    EXPECT_EQ(entry.line, 42);
    EXPECT_GE(entry.timestamp, before);
    EXPECT_FALSE(entry.thread.empty());
    EXPECT_EQ(entry.queue, "com.Stowline.logging.sqliteLogger");
    EXPECT_EQ(std::filesystem::status(path()).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(KeptLog, IsSearched)
{
    const auto logger = open();
    log(*logger, "upload of a letter");
    log(*logger, "it failed: 100%", kLogFlagError);
    log(*logger, "upload of a picture");
    flush(*logger);
    EXPECT_EQ(texts({.contains = "upload"}), (Texts{"upload of a letter", "upload of a picture"}));
    EXPECT_EQ(texts({.contains = "%"}), Texts{"it failed: 100%"});
    EXPECT_EQ(texts({.contains = "'; DROP TABLE log"}), Texts{});
    EXPECT_EQ(texts({.flags = kLogFlagError}), Texts{"it failed: 100%"});
    EXPECT_EQ(texts({.limit = 1}), Texts{"upload of a letter"});
    EXPECT_EQ(texts({.since = platform::currentDate()}), Texts{});
    EXPECT_EQ(texts({.before = platform::currentDate()}).size(), 3U);
}

TEST_F(KeptLog, SavesInBatchesAndWhenItGoes)
{
    auto logger = open();
    logger->setSaveThreshold(3);
    log(*logger, "1");
    log(*logger, "2");
    EXPECT_EQ(texts(), Texts{});
    log(*logger, "3");
    EXPECT_EQ(texts().size(), 3U);
    log(*logger, "4");
    logger.reset();
    EXPECT_EQ(texts().size(), 4U);
}

TEST_F(KeptLog, NothingIsLostBetweenRemovalFlushAndTheEnd)
{
    for (int round = 0; round < 20; ++round) {
        auto logger = open();
        DDLog::addLogger(logger);
        for (int i = 0; i < 50; ++i)
            STOWLINE_LOG_INFO("round %d line %d", round, i);
        if (round % 2 == 0)
            DDLog::flushLog();
        DDLog::removeLogger(logger);
        DDLog::flushLog();
        logger->loggerQueue()->sync([] {});
    }
    EXPECT_EQ(texts({.limit = 10000}).size(), 1000U);
}

TEST_F(KeptLog, DeletesWhatIsOld)
{
    const auto logger = open();
    log(*logger, "old");
    flush(*logger);
    {
        SQLite::Database database(path(), SQLite::OPEN_READWRITE);
        database.exec("UPDATE log SET timestamp = timestamp - 8 * 86400000000");
    }
    log(*logger, "new");
    logger->deleteOldLogEntries();
    flush(*logger);
    EXPECT_EQ(texts(), Texts{"new"});
}

TEST_F(KeptLog, SavesAndDeletesTogether)
{
    const auto logger = open();
    logger->setDeleteOnEverySave(true);
    logger->setMaxAge(0.001);
    log(*logger, "soon old");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    flush(*logger);
    EXPECT_EQ(texts(), Texts{});
}

TEST_F(KeptLog, KeepsItsFormattersText)
{
    class Shouting final : public DDLogFormatter {
    public:
        std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
        {
            if (message.logMsg == "drop")
                return std::nullopt;
            return LogText(message.logMsg + "!");
        }
    };
    const auto logger = open();
    logger->loggerQueue()->sync([&] { logger->setLogFormatter(std::make_shared<Shouting>()); });
    log(*logger, "text");
    log(*logger, "drop");
    flush(*logger);
    EXPECT_EQ(texts(), Texts{"text!"});
}

TEST_F(KeptLog, AKilledProcessLosesNoSavedBatch)
{
    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const auto logger = open();
        logger->setSaveThreshold(100);
        for (int i = 0; i < 1000000; ++i) {
            log(*logger, "line " + std::to_string(i));
            if (i == 949)
                (void)!::write(channel[1], "x", 1);
        }
        ::_exit(0);
    }
    char mark = 0;
    ASSERT_EQ(::read(channel[0], &mark, 1), 1);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(integrity(), "ok");
    const auto found = texts({.limit = 2000000});
    EXPECT_GE(found.size(), 900U);
    EXPECT_EQ(found.size() % 100, 0U) << "whole batches";
    EXPECT_EQ(found.back(), "line " + std::to_string(found.size() - 1));
}

TEST_F(KeptLog, ALockedDatabaseIsTriedAgain)
{
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    const auto logger = open();
    {
        SQLite::Database other(path(), SQLite::OPEN_READWRITE);
        other.exec("BEGIN IMMEDIATE");
        log(*logger, "first");
        flush(*logger);
        log(*logger, "second");
        flush(*logger);
        EXPECT_EQ(console.size(), 1U) << "it is told once";
        EXPECT_EQ(texts(), Texts{});
    }
    log(*logger, "third");
    flush(*logger);
    platform::setConsoleLogSink({});
    EXPECT_EQ(texts(), (Texts{"first", "second", "third"}));
}

TEST_F(KeptLog, ARefusedBatchIsTriedAgainWithoutAnotherLine)
{
    platform::setConsoleLogSink([](std::string_view) {});
    platform::ManualTimerClock clock;
    const auto logger = SQLiteLogger::open(path(), nullptr, clock);
    logger->loggerQueue()->sync([&] { logger->didAddLogger(); });
    const auto refused = [&](const std::string& text) {
        SQLite::Database other(path(), SQLite::OPEN_READWRITE);
        other.exec("BEGIN IMMEDIATE");
        log(*logger, text);
        flush(*logger);
    };
    refused("kept for a flush, as at the end of the process");
    EXPECT_EQ(texts().size(), 0U);
    flush(*logger);
    EXPECT_EQ(texts().size(), 1U);
    refused("kept for the timer");
    clock.advance(std::chrono::seconds(60));
    logger->loggerQueue()->sync([] {});
    EXPECT_EQ(texts().size(), 2U);
    platform::setConsoleLogSink({});
}

TEST_F(KeptLog, KeepsAHundredThousandRefusedEntries)
{
    platform::setConsoleLogSink([](std::string_view) {});
    constexpr int most = 100000;
    const auto logger = open();
    logger->setSaveThreshold(0);
    for (int i = 0; i < most; ++i)
        log(*logger, std::to_string(i));
    flush(*logger);
    EXPECT_EQ(texts({.limit = 2 * most}).size(), std::size_t{most});
    for (int i = 0; i <= most; ++i)
        log(*logger, "again " + std::to_string(i));
    flush(*logger);
    const auto again = texts({.contains = "again", .limit = 2 * most});
    ASSERT_EQ(again.size(), std::size_t{90001});
    EXPECT_EQ(again.front(), "again 10000");
    EXPECT_EQ(again.back(), "again 100000");
    platform::setConsoleLogSink({});
}

TEST_F(KeptLog, AForkAtAnyMomentSavesEachLineOnce)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                    "threads that allocate. The other builds run this test.";
#endif
    constexpr int forks = 100;
    const auto logger = open();
    logger->setSaveThreshold(20);
    DDLog::addLogger(logger);
    std::atomic<bool> stop = false;
    std::atomic<int> logged = 0;
    std::thread producer([&] {
        while (!stop)
            STOWLINE_LOG_INFO("parent %d", ++logged);
    });
    for (int i = 0; i < forks; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20); // a child that hangs fails the test instead of hanging it
            STOWLINE_LOG_INFO("child %d", i);
            do // the parent may hold the database for longer than one flush is patient
                DDLog::flushLog();
            while (texts({.contains = "child " + std::to_string(i)}).empty());
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0) << "fork " << i;
    }
    stop = true;
    producer.join();
    DDLog::flushLog();
    EXPECT_EQ(integrity(), "ok");
    const auto all = texts({.limit = 100000000});
    EXPECT_EQ(all.size(), static_cast<std::size_t>(logged + forks));
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
    DDLog::removeLogger(logger);
    DDLog::flushLog();
}

TEST_F(KeptLog, AFullDiskIsTriedAgain)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = test::Mount::memory(folder_.path() / "disk", "size=1m");
    platform::setConsoleLogSink([](std::string_view) {});
    const std::string full = folder_.path() / "disk" / "log";
    const auto logger = SQLiteLogger::open(full, nullptr);
    ASSERT_TRUE(logger);
    const auto filler = folder_.write("disk/filler", "");
    std::ofstream(filler) << std::string(2 << 20, 'x');
    for (int i = 0; i < 100; ++i)
        log(*logger, std::string(1000, 'x'));
    flush(*logger);
    std::filesystem::remove(filler);
    log(*logger, "last");
    flush(*logger);
    platform::setConsoleLogSink({});
    EXPECT_EQ(SQLiteLogger::entries(full, {}, nullptr)->size(), 101U);
}

TEST_F(KeptLog, TellsOfFilesThatAreNoLog)
{
    std::string fault;
    const std::string text = folder_.write("text", "this is no database at all, just a text");
    EXPECT_FALSE(SQLiteLogger::open(text, &fault));
    EXPECT_EQ(fault, "The log database " + text + " cannot be opened: file is not a database.");
    EXPECT_FALSE(SQLiteLogger::entries(text, {}, &fault));
    EXPECT_EQ(fault, "The log database " + text + " cannot be read: file is not a database.");
    EXPECT_FALSE(SQLiteLogger::open(folder_.path() / "no" / "log", nullptr));
    EXPECT_FALSE(SQLiteLogger::entries(folder_.path() / "missing", {}, nullptr));
}

} // namespace
} // namespace stowline
