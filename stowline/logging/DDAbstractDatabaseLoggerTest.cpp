// When a database logger saves and deletes.
#include "stowline/logging/DDAbstractDatabaseLogger.h"

#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace stowline {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Counts what it is told to do.
class RecordingLogger final : public DDAbstractDatabaseLogger {
public:
    explicit RecordingLogger(platform::TimerClock& clock)
        : DDAbstractDatabaseLogger("RecordingLogger", clock)
    {
    }
    ~RecordingLogger() override { shutDown(); }

    bool takes = true;
    bool throws = false;
    int taken = 0;
    int saves = 0;
    int deletes = 0;
    int savesAndDeletes = 0;

private:
    bool db_log(const DDLogMessage&) override
    {
        taken += takes ? 1 : 0;
        return takes;
    }
    void db_save() override
    {
        ++saves;
        if (throws)
            throw std::runtime_error("disk on fire");
    }
    void db_delete() override { ++deletes; }
    void db_saveAndDelete() override { ++savesAndDeletes; }
};

/// A logger that is called as the dispatcher calls it, with a clock of the test's own.
class DatabaseLogger : public testing::Test {
protected:
    void add()
    {
        onQueue([this] { logger_->didAddLogger(); });
    }
    void log(int count = 1)
    {
        for (int i = 0; i < count; ++i) {
            onQueue([this] {
                logger_->logMessage({"text", kSystemLogLevel, kLogFlagInfo, 0, "F.cpp", "f", 1});
            });
        }
    }
    void pass(milliseconds time)
    {
        clock_.advance(time);
        settle();
    }
    /// Until everything that was handed to the queue is done.
    void settle()
    {
        onQueue([] {});
    }
    template <class Work> void onQueue(Work work) { logger_->loggerQueue()->sync(work); }

    platform::ManualTimerClock clock_;
    std::shared_ptr<RecordingLogger> logger_ = std::make_shared<RecordingLogger>(clock_);
};

TEST_F(DatabaseLogger, HasTheUsualSettings)
{
    EXPECT_EQ(logger_->saveThreshold(), 500U);
    EXPECT_EQ(logger_->saveInterval(), 60.0);
    EXPECT_EQ(logger_->maxAge(), 604800.0);
    EXPECT_EQ(logger_->deleteInterval(), 300.0);
    EXPECT_FALSE(logger_->deleteOnEverySave());
}

TEST_F(DatabaseLogger, WhatIsUnsavedStaysTheParentsInAForkAndTheChildHasTimersOfItsOwn)
{
    logger_ = std::make_shared<RecordingLogger>(platform::TimerClock::shared());
    logger_->setSaveInterval(1);
    logger_->setDeleteInterval(0.2);
    add();
    log();
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([this] {
        const int before = logger_->saves; // none, but on a machine that is busy for a second
        onQueue([this] { logger_->flush(); });
        EXPECT_EQ(logger_->saves, before); // the parent's entry is not saved twice
        log();
        int saves = before;
        int deletes = 0;
        onQueue([this] { logger_->deletes = 0; });
        for (int i = 0; i < 20000 && (saves == before || deletes == 0); ++i) {
            std::this_thread::sleep_for(milliseconds(1));
            onQueue([&] {
                saves = logger_->saves;
                deletes = logger_->deletes;
            });
        }
        EXPECT_EQ(saves, before + 1);
        EXPECT_GT(deletes, 0);
    }));
    onQueue([this] { logger_->flush(); });
    EXPECT_EQ(logger_->saves, 1);
}

TEST_F(DatabaseLogger, SavesAtTheFiveHundredthEntry)
{
    add();
    log(499);
    EXPECT_EQ(logger_->saves, 0);
    log();
    EXPECT_EQ(logger_->saves, 1);
    log(500);
    EXPECT_EQ(logger_->saves, 2);
}

TEST_F(DatabaseLogger, SavesASingleEntryAfterSixtySeconds)
{
    add();
    log();
    pass(seconds(30));
    log();
    pass(milliseconds(29999));
    EXPECT_EQ(logger_->saves, 0);
    pass(milliseconds(1));
    EXPECT_EQ(logger_->saves, 1) << "sixty seconds after the first of them";
    pass(seconds(600));
    EXPECT_EQ(logger_->saves, 1) << "nothing is unsaved";
    log();
    pass(seconds(60));
    EXPECT_EQ(logger_->saves, 2);
}

TEST_F(DatabaseLogger, ASaveByCountPutsTheTimerOff)
{
    add();
    log();
    pass(seconds(50));
    log(499);
    EXPECT_EQ(logger_->saves, 1);
    log();
    pass(seconds(59));
    EXPECT_EQ(logger_->saves, 1);
    pass(seconds(1));
    EXPECT_EQ(logger_->saves, 2);
}

TEST_F(DatabaseLogger, WithoutThresholdOnlyTimeFlushAndRemovalSave)
{
    add();
    logger_->setSaveThreshold(0);
    log(2000);
    EXPECT_EQ(logger_->saves, 0);
    pass(seconds(60));
    EXPECT_EQ(logger_->saves, 1);
    log();
    onQueue([this] { logger_->flush(); });
    EXPECT_EQ(logger_->saves, 2);
    log();
    onQueue([this] { logger_->willRemoveLogger(); });
    EXPECT_EQ(logger_->saves, 3);
    onQueue([this] { logger_->flush(); });
    EXPECT_EQ(logger_->saves, 3) << "nothing is unsaved";
}

TEST_F(DatabaseLogger, AMessageThatIsNotTakenDoesNotCount)
{
    add();
    logger_->takes = false;
    log(600);
    EXPECT_EQ(logger_->saves, 0);
}

TEST_F(DatabaseLogger, ALowerThresholdMaySaveAtOnce)
{
    add();
    log(10);
    logger_->setSaveThreshold(11);
    settle();
    EXPECT_EQ(logger_->saves, 0);
    logger_->setSaveThreshold(10);
    settle();
    EXPECT_EQ(logger_->saves, 1);
    logger_->setSaveThreshold(1);
    settle();
    EXPECT_EQ(logger_->saves, 1) << "nothing is unsaved";
}

TEST_F(DatabaseLogger, ANewIntervalCountsFromTheFirstEntry)
{
    add();
    log();
    pass(seconds(5));
    logger_->setSaveInterval(10);
    pass(milliseconds(4999));
    EXPECT_EQ(logger_->saves, 0);
    pass(milliseconds(1));
    EXPECT_EQ(logger_->saves, 1);
    log();
    pass(seconds(7));
    logger_->setSaveInterval(3);
    settle();
    pass(milliseconds(1));
    EXPECT_EQ(logger_->saves, 2) << "it is overdue";
}

TEST_F(DatabaseLogger, NoIntervalSavesByCountOnly)
{
    add();
    log();
    logger_->setSaveInterval(0);
    pass(seconds(6000));
    EXPECT_EQ(logger_->saves, 0);
    logger_->setSaveInterval(60);
    settle();
    pass(milliseconds(1));
    EXPECT_EQ(logger_->saves, 1) << "the entry has waited long enough";
}

TEST_F(DatabaseLogger, DeletesEveryFiveMinutes)
{
    add();
    pass(milliseconds(299999));
    EXPECT_EQ(logger_->deletes, 0);
    pass(milliseconds(1));
    EXPECT_EQ(logger_->deletes, 1);
    pass(seconds(300));
    pass(seconds(300));
    EXPECT_EQ(logger_->deletes, 3);
}

TEST_F(DatabaseLogger, AShorterAgeDeletesAtOnceALongerDoesNot)
{
    add();
    logger_->setMaxAge(24.0 * 3600);
    settle();
    EXPECT_EQ(logger_->deletes, 1);
    logger_->setMaxAge(48.0 * 3600);
    logger_->setMaxAge(48.0 * 3600);
    settle();
    EXPECT_EQ(logger_->deletes, 1);
    pass(seconds(300));
    EXPECT_EQ(logger_->deletes, 2) << "the timer goes on";
}

TEST_F(DatabaseLogger, NoAgeEndsDeletionAndAnAgeBeginsIt)
{
    add();
    logger_->setMaxAge(0);
    pass(seconds(3000));
    EXPECT_EQ(logger_->deletes, 0);
    logger_->deleteOldLogEntries();
    settle();
    EXPECT_EQ(logger_->deletes, 0);
    logger_->setMaxAge(3600);
    settle();
    EXPECT_EQ(logger_->deletes, 1);
    pass(seconds(300));
    EXPECT_EQ(logger_->deletes, 2);
}

TEST_F(DatabaseLogger, ANewDeleteIntervalCountsFromTheLastDeletion)
{
    add();
    pass(seconds(300));
    EXPECT_EQ(logger_->deletes, 1);
    pass(seconds(50));
    logger_->setDeleteInterval(60);
    pass(milliseconds(9999));
    EXPECT_EQ(logger_->deletes, 1);
    pass(milliseconds(1));
    EXPECT_EQ(logger_->deletes, 2);
    logger_->setDeleteInterval(0);
    pass(seconds(6000));
    EXPECT_EQ(logger_->deletes, 2);
    logger_->setDeleteInterval(300);
    settle();
    pass(milliseconds(1));
    EXPECT_EQ(logger_->deletes, 3) << "it is overdue";
}

TEST_F(DatabaseLogger, SavesAndDeletesTogetherWhenToldTo)
{
    add();
    logger_->setDeleteOnEverySave(true);
    log(500);
    EXPECT_EQ(logger_->savesAndDeletes, 1);
    EXPECT_EQ(logger_->saves, 0);
}

TEST_F(DatabaseLogger, SavesAndDeletesOnRequest)
{
    add();
    log();
    logger_->savePendingLogEntries();
    logger_->deleteOldLogEntries();
    settle();
    EXPECT_EQ(logger_->saves, 1);
    EXPECT_EQ(logger_->deletes, 1);
    logger_->savePendingLogEntries();
    settle();
    EXPECT_EQ(logger_->saves, 1);
}

TEST_F(DatabaseLogger, WhatASaveThrowsOnTheTimerAndAtTheEndIsTold)
{
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    add();
    logger_->throws = true;
    log();
    pass(seconds(60));
    EXPECT_EQ(logger_->saves, 1);
    logger_->savePendingLogEntries();
    settle();
    logger_.reset();
    platform::setConsoleLogSink({});
    const std::string sentence = "The logger RecordingLogger failed: disk on fire";
    EXPECT_EQ(console, std::vector<std::string>(3, sentence));
}

TEST_F(DatabaseLogger, HasNoTimersAfterRemoval)
{
    add();
    log();
    onQueue([this] { logger_->willRemoveLogger(); });
    EXPECT_EQ(logger_->saves, 1);
    pass(seconds(6000));
    EXPECT_EQ(logger_->saves, 1);
    EXPECT_EQ(logger_->deletes, 0);
}

TEST_F(DatabaseLogger, WorksBehindTheDispatcher)
{
    DDLog::addLogger(logger_);
    for (int i = 0; i < 750; ++i)
        DDLog::log(true, kSystemLogLevel, kLogFlagInfo, 0, "F.cpp", "f", 1, "text");
    DDLog::flushLog();
    EXPECT_EQ(logger_->taken, 750);
    EXPECT_EQ(logger_->saves, 2);
    DDLog::removeLogger(logger_);
    DDLog::flushLog();
    settle();
}

} // namespace
} // namespace stowline
