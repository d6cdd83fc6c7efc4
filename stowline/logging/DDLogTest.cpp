// The log hands messages to loggers, and survives what they and processes do.
#include "stowline/logging/DDLogTest.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/desktop/NotificationCenter.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>
#include <semaphore>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using Keep = CountingLogger::Keep;

/// Keeps its thread until it is let go.
class BlockingLogger final : public DDAbstractLogger {
public:
    BlockingLogger() : DDAbstractLogger("BlockingLogger") {}
    void logMessage(const DDLogMessage&) override
    {
        ++started;
        gate_.wait();
    }
    void letGo() { promise_.set_value(); }
    std::atomic<int> started = 0;

private:
    std::promise<void> promise_;
    std::shared_future<void> gate_ = promise_.get_future().share();
};

TEST(DDLog, SynchronousMessagesAreHandledBeforeTheCallReturns)
{
    const auto logger = addedLogger();
    logText("one", false);
    EXPECT_TRUE(logger->hasLine("one"));
}

TEST(DDLog, EachLoggerSeesTheMessagesInOrder)
{
    const auto first = addedLogger();
    const auto second = addedLogger();
    for (int i = 0; i < 3000; ++i)
        logText(std::to_string(i).c_str(), i % 7 != 0);
    DDLog::flushLog();
    for (const auto& logger : {first, second}) {
        const auto lines = logger->lines();
        ASSERT_EQ(lines.size(), 3000U);
        for (int i = 0; i < 3000; ++i)
            ASSERT_EQ(lines[static_cast<std::size_t>(i)].text, std::to_string(i));
    }
}

TEST(DDLog, MessagesOfManyThreadsAreAllDelivered)
{
    const auto logger = addedLogger(Keep::nothing);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 2000; ++i)
                logText("x", i % 10 != 0);
        });
    }
    for (auto& thread : threads)
        thread.join();
    DDLog::flushLog();
    EXPECT_EQ(logger->count(), 16000U);
}

TEST(DDLog, WithoutFormatNothingHappens)
{
    const auto logger = addedLogger();
    // Were the queue bound taken, the 1001st call would wait for ever: nothing gives it back.
    for (int i = 0; i < 1500; ++i)
        DDLog::log(true, 7, 4, 0, "f.cpp", "f", 1, std::nullopt);
    const char* null = nullptr;
    DDLog::log(false, 7, 4, 0, "f.cpp", "f", 1, null, 5);
    DDLog::flushLog();
    EXPECT_EQ(logger->count(), 0U);
}

TEST(DDLog, WithoutLoggersMessagesPassAndTheBoundIsGivenBack)
{
    for (int i = 0; i < 3000; ++i)
        logText("x");
    DDLog::flushLog();
}

TEST(DDLog, AtMostAThousandMessagesWait)
{
    const auto blocking = std::make_shared<BlockingLogger>();
    const auto counting = std::make_shared<CountingLogger>(Keep::nothing);
    DDLog::addLogger(blocking);
    DDLog::addLogger(counting);
    std::atomic<int> logged = 0;
    std::thread producer([&] {
        for (int i = 0; i < 1500; ++i) {
            logText("x");
            ++logged;
        }
    });
    while (logged < 1000)
        std::this_thread::yield();
    // The 1001st call must wait; give it every chance not to.
    for (int i = 0; i < 1000; ++i)
        std::this_thread::yield();
    EXPECT_EQ(logged, 1000);
    blocking->letGo();
    producer.join();
    DDLog::flushLog();
    EXPECT_EQ(counting->count(), 1500U);
}

/// Handles one message each time it is let.
class SteppingLogger final : public DDAbstractLogger {
public:
    void logMessage(const DDLogMessage&) override { steps.acquire(); }
    std::counting_semaphore<> steps{0};
};

TEST(DDLog, AWaitingCallerGoesOnWhenFewerThanAThousandWait)
{
    const auto logger = std::make_shared<SteppingLogger>();
    DDLog::addLogger(logger);
    std::promise<void> through;
    std::thread producer([&] {
        for (int i = 0; i < 1001; ++i)
            logText("x");
        through.set_value();
    });
    auto done = through.get_future();
    logger->steps.release();
    EXPECT_EQ(done.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    logger->steps.release(1000);
    producer.join();
    DDLog::removeLogger(logger);
    DDLog::flushLog();
}

TEST(DDLog, LoggersWorkSideBySideOnOneMessage)
{
    // Each logger waits for the other to have started on the same message.
    class Meeting final : public DDAbstractLogger {
    public:
        explicit Meeting(std::atomic<int>& arrived) : arrived_(arrived) {}
        void logMessage(const DDLogMessage&) override
        {
            ++arrived_;
            while (arrived_ < 2)
                std::this_thread::yield();
        }

    private:
        std::atomic<int>& arrived_;
    };
    if (std::thread::hardware_concurrency() < 2)
        GTEST_SKIP() << "This machine has one processor; loggers work one after another.";
    std::atomic<int> arrived = 0;
    DDLog::addLogger(std::make_shared<Meeting>(arrived));
    DDLog::addLogger(std::make_shared<Meeting>(arrived));
    logText("x", false);
    EXPECT_EQ(arrived, 2);
    DDLog::removeAllLoggers();
    DDLog::flushLog();
}

TEST(DDLog, LoggersAreCalledOnTheirOwnQueue)
{
    class Labelled final : public DDAbstractLogger {
    public:
        Labelled() : DDAbstractLogger("Labelled") {}
        void logMessage(const DDLogMessage&) override
        {
            label = platform::SerialQueue::currentLabel();
        }
        std::string label;
    };
    class Bare final : public DDLogger {
    public:
        void logMessage(const DDLogMessage&) override
        {
            label = platform::SerialQueue::currentLabel();
        }
        std::shared_ptr<DDLogFormatter> logFormatter() override { return nullptr; }
        void setLogFormatter(std::shared_ptr<DDLogFormatter>) override {}
        std::string loggerName() const override { return "a bare logger"; }
        std::string label;
    };
    const auto labelled = std::make_shared<Labelled>();
    const auto bare = std::make_shared<Bare>();
    DDLog::addLogger(labelled);
    DDLog::addLogger(bare);
    logText("x", false);
    EXPECT_EQ(labelled->label, "Labelled");
    EXPECT_EQ(bare->label, "a bare logger");
    EXPECT_EQ(DDLog::loggingQueue().label(), "com.Stowline.logging");
}

TEST(DDLog, TellsLoggersWhenTheyComeAndGo)
{
    const auto logger = addedLogger();
    DDLog::flushLog();
    EXPECT_EQ(logger->flushCount(), 1U);
    DDLog::removeLogger(logger);
    logText("late", false);
    logger->loggerQueue()->sync([] {});
    EXPECT_EQ(logger->addCount(), 1U);
    EXPECT_EQ(logger->removeCount(), 1U);
    EXPECT_EQ(logger->count(), 0U);
}

TEST(DDLog, RemovingEveryLoggerTellsEach)
{
    const auto first = addedLogger();
    const auto second = addedLogger();
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    for (const auto& logger : {first, second}) {
        logger->loggerQueue()->sync([] {});
        EXPECT_EQ(logger->removeCount(), 1U);
    }
}

/// Is busy when it is removed until it is let go, and then waits for the log itself.
template <class Base> class LeavingLogger final : public Base {
public:
    void logMessage(const DDLogMessage&) override {}
    std::shared_ptr<DDLogFormatter> logFormatter() override { return nullptr; }
    void setLogFormatter(std::shared_ptr<DDLogFormatter>) override {}
    void willRemoveLogger() override
    {
        gate.get_future().wait();
        DDLog::loggingQueue().sync([] {});
        left.set_value();
    }
    static inline std::promise<void> gate;
    static inline std::promise<void> left;
};

class WithoutQueue : public DDLogger {};

TEST(DDLog, RemovingALoggerDoesNotWaitForIt)
{
    auto logger = std::make_shared<LeavingLogger<WithoutQueue>>();
    DDLog::addLogger(logger);
    logText("x", false);
    DDLog::removeLogger(std::move(logger));
    const auto other = addedLogger();
    logText("y", false);
    EXPECT_EQ(other->count(), 1U);
    LeavingLogger<WithoutQueue>::gate.set_value();
    EXPECT_EQ(LeavingLogger<WithoutQueue>::left.get_future().wait_for(std::chrono::seconds(20)),
              std::future_status::ready);
    logText("z", false);
    EXPECT_EQ(other->count(), 2U);
}

TEST(DDLog, AbsentAndUnknownLoggersChangeNothing)
{
    DDLog::addLogger(nullptr);
    DDLog::removeLogger(nullptr);
    DDLog::removeLogger(std::make_shared<CountingLogger>());
    logText("x", false);
}

TEST(DDLog, ChangesOfTheListAreOrderedWithMessages)
{
    const auto logger = std::make_shared<CountingLogger>();
    logText("before");
    DDLog::addLogger(logger);
    logText("between");
    DDLog::removeLogger(logger);
    logText("after");
    DDLog::flushLog();
    const auto lines = logger->lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "between");
}

/// Notes how many messages it is handed at once, and holds its first until it is let go.
class TogetherLogger final : public DDAbstractLogger {
public:
    bool takesMessagesTogether() const override { return true; }
    void logMessage(const DDLogMessage&) override { note(1); }
    void logMessages(std::span<const std::shared_ptr<const DDLogMessage>> messages) override
    {
        note(messages.size());
    }
    void note(std::size_t number)
    {
        handed.push_back(number);
        while (!letGo)
            std::this_thread::yield();
    }
    std::vector<std::size_t> handed;
    std::atomic<bool> letGo = false;
};

TEST(DDLog, ASingleLoggerIsHandedQueuedMessagesTogetherWhenItLikesTo)
{
    const auto logger = std::make_shared<TogetherLogger>();
    DDLog::addLogger(logger);
    logText("first");
    for (int i = 0; i < 300; ++i)
        logText("queued");
    logger->letGo = true;
    logText("awaited", false);
    EXPECT_EQ(std::accumulate(logger->handed.begin(), logger->handed.end(), std::size_t{0}), 302U);
    EXPECT_LT(logger->handed.size(), 30U);
    EXPECT_EQ(logger->handed.back(), 1U) << "somebody waits for it";
    DDLog::removeLogger(logger);
    DDLog::flushLog();
}

TEST(DDLog, BesideAnotherLoggerMessagesComeOneByOne)
{
    const auto logger = std::make_shared<TogetherLogger>();
    logger->letGo = true;
    DDLog::addLogger(logger);
    const auto other = addedLogger();
    for (int i = 0; i < 300; ++i)
        logText("queued");
    DDLog::flushLog();
    EXPECT_EQ(logger->handed, std::vector<std::size_t>(300, 1));
    EXPECT_EQ(other->count(), 300U);
}

TEST(DDLog, MessagesBehindAChangeOfTheListAreNotHandedOverBeforeIt)
{
    const auto logger = std::make_shared<TogetherLogger>();
    DDLog::addLogger(logger);
    logText("first");
    for (int i = 0; i < 10; ++i)
        logText("before");
    const auto late = addedLogger();
    for (int i = 0; i < 10; ++i)
        logText("after");
    logger->letGo = true;
    DDLog::flushLog();
    EXPECT_EQ(late->count(), 10U);
}

TEST(DDLog, ALoggerThatThrowsLosesItsOwnLineOnly)
{
    class Throwing final : public DDAbstractLogger {
    public:
        Throwing() : DDAbstractLogger("Throwing") {}
        void logMessage(const DDLogMessage& message) override
        {
            if (message.logMsg == "odd")
                throw 5;
            throw std::runtime_error("disk on fire");
        }
        void flush() override { throw std::runtime_error("no"); }
    };
    std::vector<std::string> console;
    platform::setConsoleLogSink([&](std::string_view line) { console.emplace_back(line); });
    DDLog::addLogger(std::make_shared<Throwing>());
    const auto healthy = addedLogger();
    DDLog::addLogger(std::make_shared<Throwing>());
    logText("one", false);
    logText("odd", false);
    DDLog::flushLog();
    EXPECT_EQ(healthy->count(), 2U);
    EXPECT_EQ(console.at(0), "The logger Throwing failed: disk on fire");
    EXPECT_NE(std::find(console.begin(), console.end(), "The logger Throwing failed."),
              console.end());
    platform::setConsoleLogSink({});
}

TEST(DDLog, ALoggerMayLogAndFlushWithoutWaitingForItself)
{
    class Chatty final : public DDAbstractLogger {
    public:
        void logMessage(const DDLogMessage& message) override
        {
            if (message.logMsg != "x")
                return;
            for (int i = 0; i < 1200; ++i)
                logText("echo", false);
            DDLog::flushLog();
        }
    };
    DDLog::addLogger(std::make_shared<Chatty>());
    const auto counting = addedLogger(Keep::nothing);
    DDLog::addLogger(std::make_shared<DDAbstractLogger>());
    logText("x", false);
    DDLog::flushLog();
    EXPECT_EQ(counting->count(), 1201U);
    for (int i = 0; i < 2000; ++i) // the bound is whole again
        logText("y");
    DDLog::flushLog();
    EXPECT_EQ(counting->count(), 3201U);
}

/// Logs on its own queue, apart from any message, as timers do.
TEST(DDLog, WhatElseRunsOnALoggersQueueMayLogDuringABurst)
{
    const auto logger = std::make_shared<DDAbstractLogger>();
    DDLog::addLogger(logger);
    const auto counting = addedLogger(Keep::nothing);
    std::promise<void> done;
    logger->loggerQueue()->async([&] {
        for (int i = 0; i < 1500; ++i)
            logText("from the queue", i % 2 == 0);
        DDLog::flushLog();
        done.set_value();
    });
    for (int i = 0; i < 1500; ++i)
        logText("x");
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    DDLog::flushLog();
    EXPECT_EQ(counting->count(), 3000U);
}

TEST(DDLog, ALoggerMayAskAnotherForItsSettings)
{
    class Asking final : public DDAbstractLogger {
    public:
        explicit Asking(std::shared_ptr<DDLogger> other) : other_(std::move(other)) {}
        void logMessage(const DDLogMessage&) override { (void)other_->logFormatter(); }

    private:
        std::shared_ptr<DDLogger> other_;
    };
    const auto counting = addedLogger(Keep::nothing);
    DDLog::addLogger(std::make_shared<Asking>(counting));
    logText("x", false);
    EXPECT_EQ(counting->count(), 1U);
    DDLog::removeAllLoggers();
    DDLog::flushLog();
}

TEST(DDLog, FlushesFromSeveralThreads)
{
    const auto first = addedLogger(Keep::nothing);
    const auto second = addedLogger(Keep::nothing);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                logText("x");
                DDLog::flushLog();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(first->flushCount(), 800U);
    EXPECT_EQ(second->count(), 800U);
}

TEST(DDLog, FlushesWhenTheApplicationTerminates)
{
    const auto logger = addedLogger();
    logText("x");
    platform::NotificationCenter::shared().post({"NSApplicationWillTerminateNotification", "", {}});
    EXPECT_EQ(logger->flushCount(), 1U);
    EXPECT_EQ(logger->count(), 1U);
}

TEST(DDLog, FlushesWhenTheProcessExits)
{
    const pid_t child = ::fork();
    if (child == 0) {
        class Telling final : public DDAbstractLogger {
        public:
            void flush() override { ::_exit(42); }
        };
        DDLog::addLogger(std::make_shared<Telling>());
        std::exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

} // namespace
} // namespace stowline
