// A process that forks at any moment of its logging.
#include "stowline/logging/DDASLLogger.h"
#include "stowline/logging/DDFileLoggerTest.h"
#include "stowline/logging/DDLogTest.h"
#include "stowline/logging/LogServiceTest.h"

#include <sys/wait.h>
#include <unistd.h>

namespace stowline {
namespace {

/// Threads that log until they are stopped.
class Load {
public:
    Load()
    {
        for (int t = 0; t < 3; ++t) {
            threads_.emplace_back([this] {
                for (int i = 0; !stop_; ++i)
                    logText("of the parent", i % 10 != 0);
            });
        }
    }
    ~Load()
    {
        stop_ = true;
        for (auto& thread : threads_)
            thread.join();
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> stop_ = false;
    std::vector<std::thread> threads_;
};

/// Runs a function in the child of a fork. @return its result, or -1 when it did not come to it
template <class Function> int inChild(Function function)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20); // a child that hangs fails the test instead of hanging it
        ::_exit(function());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(FileLogger, AForkAtAnyMomentLeavesTheLoggersAndNoneOfTheLines)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                    "threads that allocate. The other builds run this test.";
#endif
#ifdef __SANITIZE_THREAD__
    constexpr int forks = 200;
#else
    constexpr int forks = 2000;
#endif
    auto files = start();
    files->setMaximumFileSize(20000); // finishes files all the time, with timers for each
    const auto counting = addedLogger(CountingLogger::Keep::nothing);
    DDLog::flushLog();
    const Load load;
    for (int i = 0; i < forks; ++i) {
        const auto added = addedLogger(CountingLogger::Keep::nothing);
        const int outcome = inChild([&] {
            const auto before = counting->count();
            const auto addedBefore = added->count();
            logText("of the child", i % 2 == 0);
            DDLog::flushLog();
            if (counting->count() != before + 1)
                return 1;
            if (added->count() != addedBefore + 1 || added->addCount() != 1)
                return 2;
            files->setRollingFrequency(100);
            return files->rollingFrequency() == 100.0 ? 0 : 3;
        });
        ASSERT_EQ(outcome, 0) << "fork " << i;
        DDLog::removeLogger(added);
    }
}

TEST(SystemLog, TakesLinesInAChildOfAForkAtAnyMoment)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                    "threads that allocate. The other builds run this test.";
#endif
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const LogService service;
    std::atomic<int> ofChildren = 0;
    std::thread reader([&] {
        for (std::string line; !line.ends_with(": the end"); line = service.next())
            ofChildren += line.ends_with(": of the child") ? 1 : 0;
    });
    DDLog::addLogger(DDASLLogger::sharedInstance());
    constexpr int forks = 200;
    {
        const Load load;
        for (int i = 0; i < forks && !HasFailure(); ++i) {
            EXPECT_EQ(inChild([i] {
                          logText("of the child", i % 2 == 0);
                          DDLog::flushLog();
                          return 0;
                      }),
                      0)
                << "fork " << i;
        }
    }
    logText("the end", false);
    reader.join();
    EXPECT_EQ(ofChildren, forks);
}

TEST_F(FileLogger, AFileOfTheParentIsFinishedByItsAgeInTheChild)
{
    const auto manager = std::make_shared<DDLogFileManagerDefault>(logs());
    const auto logger = std::make_shared<DDFileLogger>(manager); // by the clock of the process
    DDLog::addLogger(logger);
    logger->setRollingFrequency(3600);
    log("parent");
    EXPECT_EQ(inChild([&] {
                  log("child");
                  logger->setRollingFrequency(0.01);
                  log("child");
                  for (int i = 0; i < 2000 && logger->currentLogFileInfo(); ++i)
                      std::this_thread::sleep_for(std::chrono::milliseconds(1));
                  return logger->currentLogFileInfo() ? 1 : 0;
              }),
              0);
}

} // namespace
} // namespace stowline
