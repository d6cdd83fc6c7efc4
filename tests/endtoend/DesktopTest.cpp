// What the desktop has to do with a backup: notices of what is overdue, and lines that are paid for
// by volume. The buses are real, the services on them stand in for those of a desktop.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace stowline {
namespace {

using test::Environment;
using test::Words;

class Desktop : public testing::Test {
protected:
    void SetUp() override
    {
        if (!test::PrivateBus::isInstalled())
            GTEST_SKIP() << "dbus-daemon is not installed; see packaging/apt-packages.txt.";
        bus_.emplace();
        account_.write({{"a", "1"}});
    }
    [[nodiscard]] test::ProgramResult run(const Words& words) const
    {
        Environment environment = account_.environment();
        environment["DBUS_SESSION_BUS_ADDRESS"] = bus_->address();
        environment["DBUS_SYSTEM_BUS_ADDRESS"] = bus_->address();
        return account_.command(words, environment);
    }
    [[nodiscard]] Words backup(const Words& more) const
    {
        Words words{"backup", account_.folder.path().string(), "--system", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    std::optional<test::PrivateBus> bus_;
    test::BackedUp account_;
};

TEST_F(Desktop, IsToldWhatIsOverdue)
{
    const auto notices = test::notificationService(*bus_);
    EXPECT_EQ(run({"doctor", "--alert-after", "3"}).status, 9);
    ASSERT_EQ(notices->calls().size(), 1U);
    EXPECT_NE(notices->calls()[0].find("'No good backup for too long', 'no run without failures is "
                                       "known on this machine; there should be one within 3 "
                                       "days'"),
              std::string::npos)
        << notices->calls()[0];
    EXPECT_EQ(run(backup({"--alert-after", "3", "/nonexistent"})).status, 3);
    ASSERT_EQ(notices->calls().size(), 2U);
    EXPECT_NE(notices->calls()[1].find("'No run of these paths without failures is known"),
              std::string::npos)
        << notices->calls()[1];
    EXPECT_EQ(run(backup({"--alert-after", "3", "--before", "/bin/false"})).status, 1);
    EXPECT_EQ(notices->calls().size(), 3U);
    EXPECT_EQ(run({"runs", "--machine", "iMac", "--alert-after", "3"}).status, 9);
    EXPECT_EQ(notices->calls().size(), 4U);
    EXPECT_EQ(run(backup({"--alert-after", "3"})).status, 0);
    EXPECT_EQ(run({"doctor", "--alert-after", "3"}).status, 0);
    EXPECT_EQ(run({"runs", "--machine", "iMac", "--alert-after", "3"}).status, 0);
    EXPECT_EQ(notices->calls().size(), 4U) << "nothing is overdue any more";
}

TEST_F(Desktop, ChangesNothingWhereItIsNotThereOrSaysNothing)
{
    const auto withBus = [&](const std::string& address) {
        Environment environment = account_.environment();
        environment["DBUS_SESSION_BUS_ADDRESS"] = address;
        return account_.command(backup({"--alert-after", "3", "/nonexistent"}), environment);
    };
    sockaddr_un place{.sun_family = AF_UNIX, .sun_path = {}};
    const std::string path = account_.command.home().path() / "bus";
    path.copy(place.sun_path, sizeof place.sun_path - 1);
    const int silent = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(silent, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(silent, 8), 0); // nobody takes what comes
    for (const std::string& address :
         {bus_->address(), std::string("unix:path=/nonexistent/bus"), "unix:path=" + path}) {
        const auto result = withBus(address);
        EXPECT_EQ(result.status, 3) << address;
        EXPECT_EQ(result.errors.find("otif"), std::string::npos) << result.errors;
        EXPECT_EQ(result.errors.find("ession"), std::string::npos) << result.errors;
    }
    ::close(silent);
}

TEST_F(Desktop, ALineThatIsPaidForByVolumeLeavesTheRunOut)
{
    const Words words = backup({"--not-metered", "--after", "/bin/false"});
    {
        const auto manager = test::networkManager(*bus_, 1);
        const auto result = run(words);
        EXPECT_EQ(result.status, 5);
        EXPECT_NE(result.errors.find("Nothing was backed up: the line is paid for by volume"),
                  std::string::npos)
            << result.errors;
        EXPECT_EQ(result.errors.find("--after"), std::string::npos) << "nothing was to be done";
        EXPECT_TRUE(account_.stored().empty());
        const auto notices = test::notificationService(*bus_);
        EXPECT_EQ(run(backup({"--not-metered", "--alert-after", "3"})).status, 9);
        EXPECT_EQ(notices->calls().size(), 1U) << "who is on the road for long hears of it";
        EXPECT_EQ(run(backup({"--not-metered", "--dry-run"})).status, 0);
        EXPECT_EQ(run(backup({})).status, 0) << "nobody asked";
    }
    account_.write({{"b", "2"}});
    const auto manager = test::networkManager(*bus_, 2);
    const auto result = run(backup({"--not-metered"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors.find("not known"), std::string::npos) << result.errors;
    EXPECT_EQ(account_.stored().size(), 2U);
}

TEST_F(Desktop, SaysWhereNobodyKnowsWhatTheLineCosts)
{
    const auto result = run(backup({"--not-metered"}));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("It is not known whether the line is paid for by volume"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(account_.stored().size(), 1U);
}

} // namespace
} // namespace stowline
