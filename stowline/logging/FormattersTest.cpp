// The formatters: queue names and context lists.
#include "stowline/logging/ContextFilters.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/DispatchQueueLogFormatter.h"
#include "stowline/platform/time/LocalClock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

DDLogMessage messageWith(const std::string& text, std::int32_t context = 0)
{
    return {text, kSystemLogLevel, kLogFlagInfo, context, "a/Upload.cpp", "upload", 7};
}

/// The line for a message logged on a queue, without its time.
std::string lineOn(const std::string& label, DispatchQueueLogFormatter& formatter)
{
    platform::SerialQueue queue(label);
    std::string line;
    queue.sync([&] { line = formatter.formatLogMessage(messageWith("Upload started."))->view(); });
    return line.substr(sizeof "2013-06-01 09:30:00:125");
}

TEST(LocalClock, WritesMillisecondsAfterAColon)
{
    ::setenv("TZ", "Asia/Kolkata", 1);
    const Date moment(std::chrono::milliseconds(1370059200125));
    EXPECT_EQ(platform::localClockText(moment), "2013-06-01 09:30:00:125");
    EXPECT_EQ(platform::localClockText(moment, '/'), "2013/06/01 09:30:00:125");
    EXPECT_EQ(platform::localClockText(moment + std::chrono::microseconds(875999)),
              "2013-06-01 09:30:01:000");
    EXPECT_EQ(platform::localClockText(Date(std::chrono::milliseconds(-1))),
              "1970-01-01 05:29:59:999");
}

TEST(LocalClock, AChangeOfTheZoneShowsWithinAMinute)
{
    ::setenv("TZ", "UTC", 1);
    const Date moment(std::chrono::seconds(0));
    EXPECT_EQ(platform::localClockText(moment), "1970-01-01 00:00:00:000");
    ::setenv("TZ", "Asia/Kolkata", 1);
    EXPECT_EQ(platform::localClockText(moment + std::chrono::minutes(1)),
              "1970-01-01 05:31:00:000");
}

TEST(QueueNames, ArePaddedToSixCharacters)
{
    DispatchQueueLogFormatter formatter;
    EXPECT_EQ(lineOn("com.apple.main-thread", formatter), "[main  ] Upload started.");
    EXPECT_EQ(lineOn("upload", formatter), "[upload] Upload started.");
    formatter.setRightAlign(true);
    EXPECT_EQ(lineOn("com.apple.main-thread", formatter), "[  main] Upload started.");
}

TEST(QueueNames, AreCutAtTheirEndOrBeginning)
{
    DispatchQueueLogFormatter formatter;
    EXPECT_EQ(lineOn("backup.upload.worker", formatter), "[backup] Upload started.");
    formatter.setRightAlign(true);
    EXPECT_TRUE(formatter.rightAlign());
    EXPECT_EQ(lineOn("backup.upload.worker", formatter), "[worker] Upload started.");
}

TEST(QueueNames, AreCountedInCharacters)
{
    DispatchQueueLogFormatter formatter;
    EXPECT_EQ(lineOn("äöü", formatter), "[äöü   ] Upload started.");
    EXPECT_EQ(lineOn("äöüßéñx", formatter), "[äöüßéñ] Upload started.");
    formatter.setRightAlign(true);
    EXPECT_EQ(lineOn("x😀äöüßé", formatter), "[😀äöüßé] Upload started.");
}

TEST(QueueNames, WithoutLabelAreTheThreadsNumber)
{
    DispatchQueueLogFormatter formatter;
    formatter.setQueueLength(35);
    const auto message = messageWith("text");
    const std::string line(formatter.formatLogMessage(message)->view());
    EXPECT_NE(line.find("[" + message.threadID() + " "), std::string::npos) << line;
}

TEST(QueueNames, TheirLengthStaysWithinFourAndThirtyFive)
{
    DispatchQueueLogFormatter formatter;
    EXPECT_EQ(formatter.queueLength(), 6);
    for (const auto& [set, kept] : {std::pair{2, 4},
                                    {3, 4},
                                    {4, 4},
                                    {12, 12},
                                    {35, 35},
                                    {36, 35},
                                    {100, 35},
                                    {INT32_MIN, 4},
                                    {INT32_MAX, 35}}) {
        formatter.setQueueLength(set);
        EXPECT_EQ(formatter.queueLength(), kept);
    }
}

TEST(QueueNames, MayBeReplaced)
{
    DispatchQueueLogFormatter formatter;
    EXPECT_EQ(formatter.replacementStringForQueueLabel("com.apple.main-thread"), "main");
    EXPECT_FALSE(formatter.replacementStringForQueueLabel("other"));
    formatter.setReplacementString("short", "a.very.long.label");
    EXPECT_EQ(lineOn("a.very.long.label", formatter), "[short ] Upload started.");
    formatter.setReplacementString(std::nullopt, "a.very.long.label");
    formatter.setReplacementString(std::nullopt, "never set");
    EXPECT_EQ(lineOn("a.very.long.label", formatter), "[a.very] Upload started.");
}

TEST(Whitelist, PassesWhatIsOnItAndNothingElse)
{
    ContextWhitelistFilterLogFormatter filter;
    const auto library = messageWith("library", 0);
    const auto other = messageWith("other", 7);
    EXPECT_FALSE(filter.formatLogMessage(library));
    filter.addToWhitelist(0);
    ASSERT_TRUE(filter.formatLogMessage(library));
    EXPECT_TRUE(filter.formatLogMessage(library)->isMessagesOwn());
    EXPECT_EQ(filter.formatLogMessage(library)->view(), "library");
    EXPECT_FALSE(filter.formatLogMessage(other));
    filter.addToWhitelist(7);
    EXPECT_TRUE(filter.isOnWhitelist(7));
    filter.removeFromWhitelist(7);
    filter.removeFromWhitelist(8);
    EXPECT_EQ(filter.whitelist(), std::vector<std::int32_t>{0});
}

TEST(Blacklist, DropsWhatIsOnItAndNothingElse)
{
    ContextBlacklistFilterLogFormatter filter;
    const auto message = messageWith("text", -5);
    EXPECT_TRUE(filter.formatLogMessage(message)->isMessagesOwn());
    filter.addToBlacklist(-5);
    EXPECT_TRUE(filter.isOnBlacklist(-5));
    EXPECT_FALSE(filter.formatLogMessage(message));
    filter.removeFromBlacklist(-5);
    EXPECT_TRUE(filter.blacklist().empty());
    EXPECT_TRUE(filter.formatLogMessage(message));
}

TEST(Formatters, AreChangedByThreadsWhileOthersUseThem)
{
    ContextWhitelistFilterLogFormatter filter;
    DispatchQueueLogFormatter names;
    std::atomic<bool> done = false;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                filter.addToWhitelist(t);
                filter.removeFromWhitelist(t);
                names.setQueueLength(i % 40);
                names.setRightAlign(i % 2 == 0);
                names.setReplacementString(
                    i % 2 == 0 ? std::optional<std::string>("x") : std::nullopt, "label");
            }
            done = true;
        });
    }
    const auto message = messageWith("text", 1);
    while (!done) {
        (void)filter.formatLogMessage(message);
        (void)filter.whitelist();
        EXPECT_TRUE(names.formatLogMessage(message)->view().ends_with("] text"));
    }
    threads.clear();
    EXPECT_TRUE(filter.whitelist().empty());
}

} // namespace
} // namespace stowline
