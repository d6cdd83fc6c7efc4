#include "stowline/service/Operation.h"

#include "stowline/logging/CountingLogger.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

namespace stowline {
namespace {

template <class Exception> FailureKind kindOf(const Exception& exception)
{
    std::optional<Error> error;
    const int result = runOperation(
        "n:", &error, -1, [&](const Operation& /*operation*/) -> int { throw exception; });
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(error && error->domain == kServiceErrorDomain && error->code == 250);
    return error ? error->kind : FailureKind::unspecified;
}

TEST(Operation, EveryExceptionEndsAsItsFailure)
{
    using enum FailureKind;
    EXPECT_EQ(kindOf(std::bad_alloc()), noMemory);
    EXPECT_EQ(
        kindOf(std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again))),
        noThread);
    EXPECT_EQ(kindOf(std::system_error(std::make_error_code(std::errc::io_error))), unexpected);
    EXPECT_EQ(kindOf(std::runtime_error("odd")), unexpected);
    EXPECT_EQ(kindOf(7), unexpected);
}

TEST(Operation, AnExceptionNobodyForesawIsLoggedUnderTheOperationsName)
{
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    runOperation("doIt:", nullptr,
                 [](const Operation& /*operation*/) { throw std::runtime_error("odd"); });
    DDLog::flushLog();
    ASSERT_EQ(logger->lines().size(), 1U);
    EXPECT_NE(logger->lines()[0].text.find("odd"), std::string::npos);
    EXPECT_EQ(logger->lines()[0].flag, kLogFlagError);
    EXPECT_EQ(logger->lines()[0].function, "doIt:");
    EXPECT_EQ(logger->lines()[0].file, "WebServiceBroker");
    DDLog::removeLogger(logger);
    DDLog::flushLog();
}

TEST(FailureWatch, LearnsTheFirstReasonOfTheLastOperation)
{
    const FailureWatch watch;
    EXPECT_EQ(watch.kind(), FailureKind::unspecified);
    std::optional<Error> slot;
    runOperation("outer:", &slot, [](const Operation& outer) {
        runOperation("inner:", nullptr, [](const Operation& inner) {
            inner.failUntold(FailureKind::timeOut, "first");
        });
        EXPECT_TRUE(outer.hasFailed());
        outer.fail(FailureKind::refusedByService, "second");
    });
    EXPECT_EQ(watch.kind(), FailureKind::timeOut);
    EXPECT_EQ(watch.failure()->localizedDescription(), "first");
    ASSERT_TRUE(slot);
    EXPECT_EQ(slot->localizedDescription(), "second");
    runOperation("next:", nullptr, [](const Operation& /*operation*/) {});
    EXPECT_FALSE(watch.failure());
}

TEST(FailureWatch, NestsAndIsOfOneThread)
{
    const FailureWatch outer;
    {
        const FailureWatch inner;
        runOperation("n:", nullptr, [](const Operation& operation) {
            operation.failUntold(FailureKind::connection, "why");
        });
        EXPECT_EQ(inner.kind(), FailureKind::connection);
    }
    EXPECT_EQ(outer.kind(), FailureKind::connection);
    runOperation("n:", nullptr, [](const Operation& /*operation*/) {});
    EXPECT_FALSE(outer.failure());
}

} // namespace
} // namespace stowline
