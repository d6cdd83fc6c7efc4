#include "stowline/util/General.h"
#include "stowline/platform/files/Files.h"

#include "tests/support/Program.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <sched.h>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

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

/// The names of all that the header declares.
std::set<std::string> operationsOfGeneral()
{
    const std::string header =
        platform::readFile(test::sourceFile("stowline/util/General.h")).value();
    const std::regex declaration(R"(\bstatic\s+[\w:<> ]+?\s+(\w+)\()");
    std::set<std::string> names;
    for (std::sregex_iterator found(header.begin(), header.end(), declaration), end; found != end;
         ++found)
        names.insert((*found)[1]);
    return names;
}

/// Every operation, first in a process of its own: the launch time is that of its call.
TEST(General, WhicheverOperationComesFirstSetsTheLaunchTime)
{
    const std::vector<std::pair<const char*, std::function<void()>>> operations{
        {"uuid", [] { (void)General::uuid(); }},
        {"computerName", [] { (void)General::computerName(); }},
        {"localHostName", [] { (void)General::localHostName(); }},
        {"hardwareId", [] { (void)General::hardwareId(); }},
        {"productName", [] { (void)General::productName(); }},
        {"productVersion", [] { (void)General::productVersion(); }},
        {"userAgent", [] { (void)General::userAgent(); }},
        {"isScheduledLaunch", [] { (void)General::isScheduledLaunch(); }},
        {"progressSizeForSize", [] { (void)General::progressSizeForSize(1); }},
        {"copyFileAt", [] { (void)General::copyFileAt("", ""); }},
        {"pathRepresentedByDirectoryString",
         [] { (void)General::pathRepresentedByDirectoryString("trash"); }},
        {"path", [] { (void)General::path("", ""); }},
        {"volumeRefNumFromPath", [] { (void)General::volumeRefNumFromPath(""); }},
        {"volumeNameFromPath", [] { (void)General::volumeNameFromPath(""); }},
        {"volumePathFromItemPath", [] { (void)General::volumePathFromItemPath(""); }},
        {"isSystemVolumePath", [] { (void)General::isSystemVolumePath(""); }},
        {"isPathPackage", [] { (void)General::isPathPackage(""); }},
        {"isItemHidden", [] { (void)General::isItemHidden(""); }},
        {"isItemInPackage", [] { (void)General::isItemInPackage(""); }},
        {"isItemPlainFile", [] { (void)General::isItemPlainFile(""); }},
        {"string", [] { (void)General::string("", ""); }},
        {"isEmailValid", [] { (void)General::isEmailValid(""); }},
        {"isPasswordValid", [] { (void)General::isPasswordValid(""); }},
        {"isFullnameValid", [] { (void)General::isFullnameValid(""); }},
        {"isSecretAnswerValid", [] { (void)General::isSecretAnswerValid(""); }},
        {"emailReportDateFormatter", [] { (void)General::emailReportDateFormatter(); }},
        {"createEmailReportSubjectWithAppName",
         [] { (void)General::createEmailReportSubjectWithAppName("", {}); }},
        {"createEmailReportHTMLBodyWithAppName",
         [] {
             (void)General::createEmailReportHTMLBodyWithAppName("", {}, "", "", {}, 0, 0, 0, 0, 0);
         }},
        {"sizeString", [] { (void)General::sizeString(1); }},
        {"base64EncodeString", [] { (void)General::base64EncodeString(""); }},
    };
    std::set<std::string> tried{"launchTime"}; // which the others are compared with
    for (const auto& operation : operations)
        tried.insert(operation.first);
    EXPECT_EQ(tried, operationsOfGeneral());
    for (const auto& [name, operation] : operations) {
        const pid_t child = ::fork();
        if (child == 0) {
            operation();
            const Date after = platform::currentDate();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            ::_exit(General::launchTime() <= after ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << name;
    }
}

} // namespace
} // namespace stowline
