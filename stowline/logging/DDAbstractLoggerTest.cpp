// What every logger has: a formatter, a queue, a name.
#include "stowline/logging/DDLogTest.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

class Shouting final : public DDLogFormatter {
public:
    std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
    {
        return message.logMsg == "drop" ? std::nullopt : std::optional(message.logMsg + "!");
    }
};

TEST(DDAbstractLogger, FormatterRewritesAndDrops)
{
    const auto logger = addedLogger();
    logText("plain");
    logger->setLogFormatter(std::make_shared<Shouting>());
    logText("loud");
    logText("drop");
    DDLog::flushLog();
    const auto lines = logger->lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "plain");
    EXPECT_EQ(lines[1].text, "loud!");
}

TEST(DDAbstractLogger, FormatterIsReadInTurnWithMessages)
{
    const auto logger = std::make_shared<CountingLogger>();
    const auto formatter = std::make_shared<Shouting>();
    EXPECT_EQ(logger->logFormatter(), nullptr);
    logger->setLogFormatter(formatter);
    EXPECT_EQ(logger->logFormatter(), formatter);
    logger->setLogFormatter(formatter);
    EXPECT_EQ(logger->logFormatter(), formatter);
    logger->setLogFormatter(nullptr);
    EXPECT_EQ(logger->logFormatter(), nullptr);
}

TEST(DDAbstractLogger, OnItsOwnQueueTheFormatterChangesAtOnce)
{
    const auto logger = std::make_shared<CountingLogger>();
    const auto formatter = std::make_shared<Shouting>();
    logger->loggerQueue()->sync([&] {
        logger->setLogFormatter(formatter);
        EXPECT_EQ(logger->logFormatter(), formatter);
    });
}

TEST(DDAbstractLogger, BaseLogsNothingAndIsNamedAfterItsClass)
{
    DDAbstractLogger logger;
    logger.logMessage(DDLogMessage("x", 7, 4, 0, "f.cpp", "f", 1));
    EXPECT_EQ(logger.loggerName(), "DDAbstractLogger");
    EXPECT_EQ(logger.loggerQueue()->label(), "DDAbstractLogger");
}

} // namespace
} // namespace stowline
