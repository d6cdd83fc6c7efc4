// The alert as a person meets it: a real dialogue on a real display, and a terminal.
#include "stowline/platform/values/PropertyList.h"
#include "tests/support/Program.h"
#include "tests/support/PseudoTerminal.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace stowline {
namespace {

/// A copy of the sample host whose configured address is invalid.
class MisconfiguredHost {
public:
    MisconfiguredHost()
    {
        folder_.write("Info.plist", platform::writeXmlPropertyList(
                                        Dictionary{{"TW_ForgotUsrPwdUrl", "not an address"}})
                                        .value());
        std::filesystem::copy(test::builtProgram("sample-branding"), program());
    }
    [[nodiscard]] std::filesystem::path program() const
    {
        return folder_.path() / "sample-branding";
    }

private:
    test::TemporaryFolder folder_;
};

bool isInstalled(const std::string& program)
{
    return test::runProgram({{"/bin/sh", "-c", "command -v " + program}}).status == 0;
}

TEST(Alert, IsADialogueWhereThereIsADisplay)
{
    for (const char* program : {"Xvfb", "zenity", "xdotool"}) {
        if (!isInstalled(program))
            GTEST_SKIP() << program << " is not installed; see packaging/apt-packages.txt.";
    }
    test::BackgroundProgram screen({{"/usr/bin/Xvfb", "-displayfd", "1", "-noreset", "-nolisten",
                                     "tcp", "-screen", "0", "640x400x24"}});
    const auto number = screen.readLine();
    ASSERT_TRUE(number);
    const std::map<std::string, std::string> display{{"DISPLAY", ":" + *number},
                                                     {"WAYLAND_DISPLAY", ""}};
    const MisconfiguredHost host;
    test::BackgroundProgram program({{host.program().string()}, display});

    const std::string title = "Invalid URL in configuration";
    const auto found = test::runProgram(
        {{"/usr/bin/xdotool", "search", "--sync", "--onlyvisible", "--name", title}, display});
    ASSERT_EQ(found.status, 0);
    EXPECT_TRUE(program.isRunning()) << "it must wait for the person";
    if (const char* pictures = std::getenv("STOWLINE_PICTURES")) {
        const std::string take =
            "sleep 1; import -window root '" + std::string(pictures) + "/alert.png'";
        EXPECT_EQ(test::runProgram({{"/bin/sh", "-c", take}, display}).status, 0);
    }
    // The key reaches whichever window has the focus, which comes a moment after the window; one
    // that finds the window gone already fails, and is one too many.
    while (program.isRunning())
        (void)test::runProgram({{"/usr/bin/xdotool", "key", "Return"}, display});
    const auto result = program.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("forgot:  {}\n"), std::string::npos) << result.output;
    screen.signal(SIGTERM);
}

TEST(Alert, IsTextOnTheTerminalWhereThereIsNoDisplay)
{
    const MisconfiguredHost host;
    const auto talk = test::talkOnTerminal(
        {{host.program().string()}, {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}}}, "[OK] ", "\n");
    EXPECT_EQ(talk.status, 0);
    EXPECT_NE(talk.screen.find("Invalid URL in configuration\r\n\r\n"
                               "Invalid URL stored in TW_ForgotUsrPwdURL\r\n[OK] "),
              std::string::npos)
        << talk.screen;
}

TEST(Alert, DoesNotWaitOnTheTerminalForADisplayThatCannotBeReached)
{
    if (!isInstalled("zenity"))
        GTEST_SKIP() << "zenity is not installed; see packaging/apt-packages.txt.";
    const MisconfiguredHost host;
    const auto talk = test::talkOnTerminal(
        {{host.program().string()}, {{"DISPLAY", ":9999"}, {"WAYLAND_DISPLAY", ""}}}, "no prompt",
        "");
    EXPECT_EQ(talk.status, 0);
    EXPECT_NE(talk.screen.find("Invalid URL stored in TW_ForgotUsrPwdURL\r\n"), std::string::npos);
    EXPECT_EQ(talk.screen.find("[OK]"), std::string::npos);
}

} // namespace
} // namespace stowline
