// The console on a real terminal and the system log with a real listener.
#include "stowline/logging/ContextFilters.h"
#include "stowline/logging/DDASLLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/DDTTYLogger.h"
#include "stowline/logging/LogServiceTest.h"
#include "stowline/platform/text/Text.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

namespace stowline {
namespace {

DDLogMessage messageWith(const std::string& text, std::int32_t level = 7)
{
    return {text, level, kLogFlagInfo, 0, "a/Upload.cpp", "upload", 7};
}

/// Standard error is a pseudo-terminal of the test's own as long as this lives.
class TerminalScreen {
public:
    TerminalScreen() : kept_(::dup(STDERR_FILENO))
    {
        int terminal = -1;
        if (::openpty(&screen_, &terminal, nullptr, nullptr, nullptr) != 0)
            throw std::runtime_error("no pseudo-terminal");
        ::dup2(terminal, STDERR_FILENO);
        ::close(terminal);
    }
    ~TerminalScreen()
    {
        ::dup2(kept_, STDERR_FILENO);
        ::close(kept_);
        ::close(screen_);
    }
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    /// What was written, up to and with an end mark that this writes.
    std::string text()
    {
        (void)!::write(STDERR_FILENO, "<end>", 5);
        std::string shown;
        std::array<char, 4096> piece{};
        while (!shown.ends_with("<end>")) {
            const ssize_t count = ::read(screen_, piece.data(), piece.size());
            if (count <= 0)
                break;
            shown.append(piece.data(), static_cast<std::size_t>(count));
        }
        return shown.substr(0, shown.size() - 5);
    }

private:
    int kept_;
    int screen_ = -1;
};

class CopyingFormatter final : public DDLogFormatter {
public:
    std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
    {
        if (message.logMsg == "drop")
            return std::nullopt;
        return LogText(std::string(message.logMsg));
    }
};

TEST(Console, WritesTheWholeLine)
{
    ::setenv("TZ", "UTC", 1);
    TerminalScreen screen;
    const auto logger = DDTTYLogger::sharedInstance();
    EXPECT_EQ(logger->loggerName(), "com.Stowline.logging.ttyLogger");
    const auto message = messageWith("Upload started.");
    logger->logMessage(message);
    const std::string line = screen.text();
    const std::string ending = " logging_tests[" + std::to_string(::getpid()) + ":" +
                               message.threadID() + "] Upload started.\r\n";
    ASSERT_EQ(line.size(), sizeof "2013-06-01 09:30:00:125" - 1 + ending.size()) << line;
    EXPECT_TRUE(line.ends_with(ending)) << line;
    EXPECT_EQ(line[19], ':');
}

TEST(Console, ALineFeedAlwaysFollows)
{
    TerminalScreen screen;
    DDTTYLogger::sharedInstance()->logMessage(messageWith("text\n"));
    EXPECT_TRUE(screen.text().ends_with("] text\r\n\r\n"));
}

TEST(Console, ATextOfAFormatterStandsAlone)
{
    TerminalScreen screen;
    const auto logger = DDTTYLogger::sharedInstance();
    logger->loggerQueue()->sync([&] {
        logger->setLogFormatter(std::make_shared<CopyingFormatter>());
        logger->logMessage(messageWith("equal but another"));
        logger->logMessage(messageWith("drop"));
    });
    EXPECT_EQ(screen.text(), "equal but another\r\n");
}

TEST(Console, TheMessagesOwnTextHasTheWholeLineAlsoFromAFormatter)
{
    TerminalScreen screen;
    const auto logger = DDTTYLogger::sharedInstance();
    logger->loggerQueue()->sync([&] {
        logger->setLogFormatter(std::make_shared<ContextBlacklistFilterLogFormatter>());
        logger->logMessage(messageWith("its own"));
    });
    EXPECT_TRUE(screen.text().ends_with("] its own\r\n"));
}

TEST(Console, CommandsForTheTerminalAreNotPassedOn)
{
    TerminalScreen screen;
    DDTTYLogger::sharedInstance()->logMessage(messageWith(std::string("a\x1b[2Jb\0c\rd\x7f", 11) +
                                                          "\xc2\x9b"
                                                          "e\tf\xff"));
    const std::string line = screen.text();
    EXPECT_NE(line.find("] a?[2Jb?c?d??e"), std::string::npos) << line;
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
}

TEST(Console, IsSilentWithoutTerminalAlsoWhenOneComesLater)
{
    const test::TemporaryFolder folder;
    const int kept = ::dup(STDERR_FILENO);
    const int file = ::open((folder.path() / "errors").c_str(), O_RDWR | O_CREAT, 0600);
    ::dup2(file, STDERR_FILENO);
    const auto logger = DDTTYLogger::sharedInstance();
    logger->logMessage(messageWith("nobody reads this"));
    ::dup2(kept, STDERR_FILENO);
    EXPECT_EQ(std::filesystem::file_size(folder.path() / "errors"), 0U);
    TerminalScreen screen;
    logger->logMessage(messageWith("nor this"));
    EXPECT_EQ(screen.text(), "");
    ::close(kept);
    ::close(file);
}

TEST(Console, ThereIsOneInstance)
{
    EXPECT_EQ(DDTTYLogger::sharedInstance(), DDTTYLogger::sharedInstance());
    EXPECT_FALSE(DDTTYLogger::init());
    EXPECT_EQ(DDASLLogger::sharedInstance(), DDASLLogger::sharedInstance());
    EXPECT_FALSE(DDASLLogger::init());
}

TEST(SystemLog, ThePriorityFollowsTheLevel)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const LogService service;
    const auto logger = DDASLLogger::sharedInstance();
    EXPECT_EQ(logger->loggerName(), "com.Stowline.logging.aslLogger");
    constexpr int userFacility = 8;
    for (const auto& [level, priority] :
         {std::pair{1, 2}, {2, 3}, {3, 4}, {4, 5}, {7, 5}, {0, 5}, {-1, 5}}) {
        logger->logMessage(messageWith("level text", level));
        const std::string received = service.next();
        EXPECT_TRUE(received.starts_with("<" + std::to_string(userFacility + priority) + ">"))
            << level << received;
        EXPECT_TRUE(received.ends_with(": level text")) << received;
    }
}

TEST(SystemLog, TextIsNeverAFormatAndHoldsNoControls)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const LogService service;
    const auto logger = DDASLLogger::sharedInstance();
    logger->logMessage(messageWith(std::string("%s%n %d\0\x1b after", 15)));
    EXPECT_TRUE(service.next().ends_with(": %s%n %d?? after"));
    logger->logMessage(messageWith("grüße"));
    EXPECT_TRUE(service.next().ends_with(": grüße"));
}

TEST(SystemLog, TakesWhatAFormatterMakes)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const LogService service;
    const auto logger = DDASLLogger::sharedInstance();
    logger->loggerQueue()->sync([&] {
        logger->setLogFormatter(std::make_shared<CopyingFormatter>());
        logger->logMessage(messageWith("drop"));
        logger->logMessage(messageWith("kept"));
    });
    EXPECT_TRUE(service.next().ends_with(": kept"));
}

} // namespace
} // namespace stowline
