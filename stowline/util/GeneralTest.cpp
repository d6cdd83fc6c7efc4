#include "stowline/util/General.h"

#include "tests/support/Program.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

TEST(General, UuidsAreAlwaysNew)
{
    ASSERT_TRUE(General::uuid());
    EXPECT_EQ(General::uuid()->size(), 36U);
    EXPECT_NE(General::uuid(), General::uuid());
}

TEST(General, UserAgentIsMacAndTheVersion)
{
    const test::TestBundle bundle({}, {{"CFBundleName", "Stow"}});
    EXPECT_EQ(General::userAgent(), "Mac/5.2.1");
    EXPECT_EQ(General::productVersion(), "5.2.1");
    EXPECT_EQ(General::productName(), "Stow");
}

TEST(General, UserAgentWithoutVersionSaysNull)
{
    const test::TemporaryFolder folder;
    platform::Bundle::useFolder(folder.path());
    EXPECT_EQ(General::userAgent(), "Mac/(null)");
    EXPECT_FALSE(General::productName());
    EXPECT_FALSE(General::productVersion());
}

TEST(General, LaunchTimeIsTheFirstUseAndNeverChanges)
{
    const auto before = std::chrono::system_clock::now();
    (void)General::uuid();
    const auto after = std::chrono::system_clock::now();
    const Date first = General::launchTime();
    EXPECT_GE(first, std::chrono::floor<std::chrono::microseconds>(before));
    EXPECT_LE(first, after);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(General::launchTime(), first);
}

TEST(General, HardwareIdIsStable)
{
    ASSERT_TRUE(General::hardwareId());
    EXPECT_EQ(General::hardwareId()->size(), 36U);
    EXPECT_EQ(General::hardwareId(), General::hardwareId());
}

TEST(General, LocalHostNameIsNeverAbsent)
{
    EXPECT_FALSE(General::localHostName().empty());
    EXPECT_EQ(General::localHostName().find('.'), std::string::npos);
    EXPECT_TRUE(General::computerName());
}

TEST(General, AHostWithoutNameIsAnUntitledSystem)
{
    if (::unshare(CLONE_NEWUTS) != 0)
        GTEST_SKIP() << "This user may not make a host-name namespace.";
    ASSERT_EQ(::sethostname("", 0), 0);
    EXPECT_EQ(General::localHostName(), "Untitled System");
    ASSERT_EQ(::sethostname("box.example.org", 15), 0);
    EXPECT_EQ(General::localHostName(), "box");
    ASSERT_EQ(::sethostname("localhost", 9), 0);
    EXPECT_EQ(General::localHostName(), "Untitled System");
}

TEST(General, Base64BreaksLongTextsOnly)
{
    EXPECT_EQ(General::base64EncodeString("/Users/ann/letter.txt"), "L1VzZXJzL2Fubi9sZXR0ZXIudHh0");
    EXPECT_EQ(General::base64EncodeString(std::string(24576, 'x')).back(), '\n');
    EXPECT_EQ(General::base64EncodeString(std::string(24573, 'x')).find('\n'), std::string::npos);
}

/// Starts the sample host with an argument and asks what isScheduledLaunch() says there.
bool isScheduledWith(const std::string& argument)
{
    const auto result = test::runProgram({{test::builtProgram("sample-identity"), argument}});
    EXPECT_EQ(result.status, 0);
    return result.output.find("started by a schedule: yes") != std::string::npos;
}

TEST(General, ScheduledLaunchIsAWholeArgument)
{
    EXPECT_TRUE(isScheduledWith("scheduled_launch"));
    EXPECT_FALSE(isScheduledWith("--scheduled_launch"));
    EXPECT_FALSE(isScheduledWith("scheduled_launch=1"));
    EXPECT_FALSE(isScheduledWith("Scheduled_Launch"));
    EXPECT_FALSE(General::isScheduledLaunch());
}

} // namespace
} // namespace stowline
