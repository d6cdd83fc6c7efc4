#include "stowline/logging/DDLogMessage.h"

#include "stowline/platform/threads/SerialQueue.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace stowline {
namespace {

TEST(DDLogMessage, FileNameIsTheLastComponentWithoutExtension)
{
    const auto fileName = [](const char* path) {
        return std::string(DDLogMessage("", 7, 4, 0, path, nullptr, 1).fileName());
    };
    EXPECT_EQ(fileName("service/sub/WebServiceBroker.cpp"), "WebServiceBroker");
    EXPECT_EQ(fileName("a.b.cpp"), "a.b");
    EXPECT_EQ(fileName("bare"), "bare");
}

TEST(DDLogMessage, FileNameRefersToTheCallersBytes)
{
    static const char path[] = "dir/Name.cpp";
    const DDLogMessage message("", 7, 4, 0, path, nullptr, 1);
    EXPECT_EQ(message.fileName().data(), path + 4);
}

TEST(DDLogMessage, NotesThreadAndQueueOfTheCaller)
{
    const DDLogMessage message("text", 7, 1, 3, "f.cpp", "function", 9);
    char expected[16];
    std::snprintf(expected, sizeof expected, "%x", static_cast<unsigned>(::gettid()));
    EXPECT_EQ(message.threadID(), expected);
    EXPECT_EQ(message.methodName(), "function");
    EXPECT_FALSE(message.queueLabel);
    EXPECT_FALSE(DDLogMessage("", 7, 1, 0, "f.cpp", nullptr, 1).methodName());

    platform::SerialQueue queue("worker queue");
    queue.sync(
        [] { EXPECT_EQ(DDLogMessage("", 7, 1, 0, "f", nullptr, 1).queueLabel, "worker queue"); });
}

} // namespace
} // namespace stowline
