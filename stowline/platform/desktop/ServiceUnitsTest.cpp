#include "stowline/platform/desktop/ServiceUnits.h"

#include "stowline/platform/processes/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace stowline::platform {
namespace {

TEST(UnitWord, IsQuotedSoThatNothingIsExpanded)
{
    EXPECT_EQ(unitWord("plain"), "\"plain\"");
    EXPECT_EQ(unitWord(""), "\"\"");
    EXPECT_EQ(unitWord("two words"), "\"two words\"");
    EXPECT_EQ(unitWord("50%h"), "\"50%%h\"");
    EXPECT_EQ(unitWord("$HOME ${X}"), "\"$$HOME $${X}\"");
    EXPECT_EQ(unitWord("a\"b'c\\d"), "\"a\\\"b'c\\\\d\"");
    EXPECT_EQ(unitWord("line\nbreak\ttab"), "\"line\\x0abreak\\x09tab\"");
    EXPECT_EQ(unitWord("sm\xc3\xb8r"), "\"sm\xc3\xb8r\"");
    EXPECT_EQ(unitWord("\xff"), std::nullopt);
    EXPECT_EQ(unitWord(std::string_view("a\0b", 3)), std::nullopt);
}

TEST(UnitName, IsEscapedAsTheServiceManagerDoes)
{
    EXPECT_EQ(unitName("backup-", "work_1.x"), "backup-work_1.x");
    EXPECT_EQ(unitName("backup-", "my docs/ä"), "backup-my\\x20docs\\x2f\\xc3\\xa4");
    EXPECT_EQ(unitName("backup-", std::string(300, 'a')), std::nullopt);
    EXPECT_EQ(unitName("backup-", std::string(100, '/')), std::nullopt);
}

TEST(UnitTexts, AreThoseOfARunEachDay)
{
    const auto texts = unitTexts({.description = "Backup\nof 5%",
                                  .command = {"/bin/true", "a b"},
                                  .variables = {{"XDG_STATE_HOME", "/s $x%"}},
                                  .hour = 2,
                                  .minute = 5,
                                  .onMainsOnly = true});
    ASSERT_TRUE(texts);
    EXPECT_NE(texts->service.find("\nDescription=Backup?of 5%%\n"), std::string::npos);
    EXPECT_NE(texts->service.find("\nConditionACPower=true\n"), std::string::npos);
    EXPECT_NE(texts->service.find("\nEnvironment=\"XDG_STATE_HOME=/s $x%%\"\n"), std::string::npos);
    EXPECT_NE(texts->service.find("\nExecStart=\"/bin/true\" \"a b\"\n"), std::string::npos);
    EXPECT_NE(texts->service.find("\nNice=10\nIOSchedulingClass=idle\n"), std::string::npos);
    EXPECT_NE(texts->timer.find("\nOnCalendar=*-*-* 02:05:00\n"), std::string::npos);
    EXPECT_NE(texts->timer.find("\nRandomizedDelaySec=5min\nPersistent=true\n"), std::string::npos);
    const auto always = unitTexts({.description = "x", .command = {"/bin/true"}});
    EXPECT_EQ(always->service.find("ConditionACPower"), std::string::npos);
    EXPECT_EQ(unitTexts({.description = "x", .command = {"/bin/true", "\xff"}}), std::nullopt);
    EXPECT_EQ(
        unitTexts({.description = "x", .command = {"/bin/true"}, .variables = {{"A", "\xff"}}}),
        std::nullopt);
}

TEST(UnitTexts, PassTheServiceManagersOwnCheck)
{
    if (!std::filesystem::exists("/usr/bin/systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    const auto texts = unitTexts(
        {.description = "Backup 50%",
         .command = {"/bin/true", "50% \"x\" 'y' $HOME ${X} \\ \n %h", ";", "@x", "--", "-x"},
         .variables = {{"XDG_STATE_HOME", "/a b/50%"}},
         .onMainsOnly = true});
    ASSERT_TRUE(texts);
    const test::TemporaryFolder folder;
    const auto check = [&](const std::string& service) {
        const auto file = folder.write("backup.service", service).string();
        const auto timer = folder.write("backup.timer", texts->timer).string();
        const auto answer = captureOutput({"env", "XDG_RUNTIME_DIR=" + folder.path().string(),
                                           "systemd-analyze", "--user", "verify", file, timer},
                                          std::chrono::minutes(1));
        return answer && answer->exit.isSuccess();
    };
    EXPECT_TRUE(check(texts->service));
    EXPECT_FALSE(
        check("[Service]\nType=oneshot\nExecStart=\"/bin/true\" \"open\n")); // it does look
}

} // namespace
} // namespace stowline::platform
