// The subcommands that need no service: checksum, copy, paths, links.
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"
#include "tests/endtoend/Command.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/PseudoTerminal.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Environment;
using test::jsonLines;
using test::Words;

class LocalCommand : public testing::Test {
protected:
    [[nodiscard]] std::string in(const std::string& name) const { return folder_.path() / name; }
    std::string bigFile() const
    {
        const auto file = folder_.write("big", "");
        fs::resize_file(file, std::uintmax_t(64) << 30); // sparse; nothing reads it to its end
        return file;
    }

    test::TemporaryFolder folder_;
    const test::Command stowline_{test::builtPrograms()};
};

TEST_F(LocalCommand, ChecksumPrintsHexadecimal)
{
    const std::string file = folder_.write("nine", "123456789");
    const auto result = stowline_(Words{"checksum", file});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "cbf43926  " + file + "\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(LocalCommand, ChecksumGivesJson)
{
    const std::string file = folder_.write("nine", "123456789");
    const auto lines = jsonLines(stowline_(Words{"--json", "checksum", file}).output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["type"], "checksum");
    EXPECT_EQ(lines[0]["path"], file);
    EXPECT_EQ(lines[0]["crc32"], "cbf43926");
    EXPECT_EQ(lines[0]["value"], 3421780262U);
    EXPECT_EQ(lines[0]["bytes"], 9);
    EXPECT_EQ(lines[1]["type"], "result");
    EXPECT_EQ(lines[1]["status"], "done");
}

TEST_F(LocalCommand, ChecksumGivesNamesThatAreNoTextInBase64)
{
    const std::string file = folder_.write("\xff", "");
    const auto lines = jsonLines(stowline_(Words{"--json", "checksum", file}).output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_FALSE(lines[0].contains("path"));
    EXPECT_TRUE(lines[0].contains("path_b64"));
}

TEST_F(LocalCommand, ChecksumReadsStandardInput)
{
    EXPECT_EQ(stowline_(Words{"checksum", "-"}, Environment{}, "123456789").output,
              "cbf43926  -\n");
    EXPECT_EQ(stowline_(Words{"checksum", "-"}, Environment{}, "").output, "00000000  -\n");
}

TEST_F(LocalCommand, ChecksumTellsWhatItExpected)
{
    const std::string file = folder_.write("nine", "123456789");
    EXPECT_EQ(stowline_(Words{"checksum", "--expect", "CBF43926", file}).status, 0);
    const auto wrong = stowline_(Words{"checksum", "--expect", "12345678", file});
    EXPECT_EQ(wrong.status, 7);
    EXPECT_EQ(wrong.errors, "stowline: The checksum of " + file + " is cbf43926, not 12345678.\n");
    EXPECT_EQ(stowline_(Words{"checksum", "--expect", "nonsense", file}).status, 2);
    EXPECT_EQ(stowline_(Words{"checksum", "--expect", "cbf43926", file, file}).status, 2);
}

TEST_F(LocalCommand, ChecksumGoesOnAfterAFileItCannotRead)
{
    const std::string file = folder_.write("nine", "123456789");
    const auto result = stowline_(Words{"checksum", in("missing"), file, folder_.path().string()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "cbf43926  " + file + "\n");
    EXPECT_EQ(result.errors, "stowline: Cannot open " + in("missing") +
                                 ": No such file or directory.\nstowline: Cannot read " +
                                 folder_.path().string() +
                                 ": it is not a regular file.\nstowline: 2 of 3 files could not be "
                                 "read.\n");
    EXPECT_EQ(stowline_(Words{"checksum", in("missing")}).status, 4);
    EXPECT_EQ(stowline_(Words{"checksum", "/dev/zero"}).status, 1);
}

TEST_F(LocalCommand, AFullStandardOutputIsAFailure)
{
    const std::string file = folder_.write("nine", "123456789");
    const std::string stowline = test::builtProgram("stowline");
    const auto result = test::runProgram(
        {{"/bin/sh", "-c", "'" + stowline + "' checksum '" + file + "' >/dev/full"}});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "stowline: The results cannot be written to standard output: No space "
                             "left on device.\n");
}

TEST_F(LocalCommand, CtrlCEndsAChecksumAndLeavesNoBar)
{
    const auto talk =
        test::talkOnTerminal(stowline_.run({"checksum", bigFile()}), "of 68.7 GB", "\x03");
    EXPECT_EQ(talk.status, 130);
    EXPECT_NE(talk.screen.find("\r\x1b[Kstowline: Interrupted.\r\n"), std::string::npos)
        << talk.screen;
}

TEST_F(LocalCommand, TheBarFollowsATerminalThatIsMadeNarrower)
{
    const std::string bar = "\x1b[K"; // the end of each
    // What was drawn before may still come once after the change.
    const auto talk = test::talkOnTerminal(
        stowline_.run({"checksum", bigFile()}),
        {{"of 68.7 GB", "", 0}, {bar, "", 30}, {bar, ""}, {bar, ""}, {bar, "\x03"}});
    EXPECT_EQ(talk.status, 130);
    std::vector<std::size_t> widths;
    std::size_t from = 0;
    for (std::size_t at = talk.screen.find(bar); at != std::string::npos;
         at = talk.screen.find(bar, from)) {
        const auto begin = talk.screen.rfind('\r', at) + 1;
        if (at > begin)
            widths.push_back(at - begin);
        from = at + bar.size();
    }
    ASSERT_GE(widths.size(), 2U) << talk.screen;
    EXPECT_GT(widths.front(), 30U);
    EXPECT_LT(widths.back(), 30U);
}

TEST_F(LocalCommand, CopyCopiesAndTellsWhat)
{
    const std::string file = folder_.write("source", "letter");
    const auto result = stowline_(Words{"copy", "--verify", file, in("copy")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "copied  " + file + "\nto      " + in("copy") + "\nbytes   6\n");
    EXPECT_EQ(platform::readFile(in("copy")), "letter");
}

TEST_F(LocalCommand, CopyIntoAFolderKeepsTheName)
{
    const std::string file = folder_.write("source", "letter");
    fs::create_directory(in("folder"));
    const auto lines = jsonLines(stowline_(Words{"--json", "copy", file, in("folder")}).output);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0]["to"], in("folder/source"));
    EXPECT_EQ(platform::readFile(in("folder/source")), "letter");
}

TEST_F(LocalCommand, CopyNeverOverwrites)
{
    const std::string file = folder_.write("source", "letter");
    const std::string other = folder_.write("other", "old");
    const auto result = stowline_(Words{"copy", file, other});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors,
              "stowline: " + other + " exists already. Please choose another name or remove it.\n");
    EXPECT_EQ(platform::readFile(other), "old");
}

TEST_F(LocalCommand, CopySaysWhyItCannot)
{
    EXPECT_EQ(stowline_(Words{"copy", in("missing"), in("copy")}).status, 4);
    EXPECT_EQ(stowline_(Words{"copy", folder_.path().string(), in("copy")}).errors,
              "stowline: " + folder_.path().string() + " is a folder. Please name a file in it.\n");
    const std::string file = folder_.write("source", "letter");
    const auto nowhere = stowline_(Words{"copy", file, in("no/copy")});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.errors, "stowline: Cannot create " + in("no/copy") +
                                  ": No such file or directory. Nothing is left of the copy.\n");
}

TEST_F(LocalCommand, ADryCopyCopiesNothing)
{
    const std::string file = folder_.write("source", "letter");
    const auto result = stowline_(Words{"copy", "-n", file, in("copy")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "Would copy " + file + " to " + in("copy") + ".\n");
    EXPECT_FALSE(fs::exists(in("copy")));
}

TEST_F(LocalCommand, CopyTellsOfAFullDisk)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = test::Mount::memory(in("disk"), "size=1m");
    const std::string file = folder_.write("source", std::string(3000000, 'x'));
    const auto result = stowline_(Words{"copy", file, in("disk")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "stowline: Cannot write to " + in("disk/source") +
                                 ": No space left on device. Nothing is left of the copy.\n");
    EXPECT_TRUE(fs::is_empty(in("disk")));
}

TEST_F(LocalCommand, CtrlCLeavesNothingOfACopy)
{
    const auto talk =
        test::talkOnTerminal(stowline_.run({"copy", bigFile(), in("copy")}), "of 68.7 GB", "\x03");
    EXPECT_EQ(talk.status, 130);
    EXPECT_NE(talk.screen.find("[K"), std::string::npos);
    EXPECT_TRUE(
        talk.screen.ends_with("\r\x1b[Kstowline: Interrupted. Nothing is left of the copy.\r\n"))
        << talk.screen;
    EXPECT_FALSE(fs::exists(in("copy")));
}

TEST_F(LocalCommand, ShowsNoProgressWhenNotAskedTo)
{
    const std::string file = folder_.write("source", std::string(1000000, 'x'));
    for (const char* option : {"--no-progress", "-q"}) {
        const auto talk =
            test::talkOnTerminal(stowline_.run({option, "checksum", file}), "no prompt", "");
        EXPECT_EQ(talk.screen.find('\x1b'), std::string::npos) << option;
    }
}

TEST_F(LocalCommand, PathsListsTheFoldersOfASelection)
{
    const auto result = stowline_(Words{"paths"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(
        result.output.find("documents       " + stowline_.home().path().string() + "/Documents\n"),
        std::string::npos)
        << result.output;
    const auto lines = jsonLines(stowline_(Words{"--json", "paths"}).output);
    EXPECT_EQ(lines.size(), 11U);
    EXPECT_EQ(lines[0]["name"], "home directory");
    EXPECT_EQ(lines[0]["path"], stowline_.home().path().string());
}

TEST_F(LocalCommand, PathsLooksAtItems)
{
    folder_.write("Some.app/Contents/Info.plist", "x");
    const auto lines = jsonLines(
        stowline_(Words{"--json", "paths", in("Some.app"), in("Some.app/Contents/Info.plist")})
            .output);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0]["package"], true);
    EXPECT_EQ(lines[0]["plain_file"], false);
    EXPECT_EQ(lines[1]["in_package"], true);
    EXPECT_EQ(lines[1]["plain_file"], true);
    EXPECT_NE(lines[1]["volume_number"], 0);
    EXPECT_NE(stowline_(Words{"paths", "/proc/version"}).output.find("volume  proc at /proc"),
              std::string::npos);
    const auto missing = stowline_(Words{"paths", in("missing")});
    EXPECT_EQ(missing.status, 4);
    EXPECT_EQ(missing.errors, "stowline: " + in("missing") + " was not found.\n");
    EXPECT_EQ(stowline_(Words{"paths", in("missing"), "/"}).status, 3);
}

TEST_F(LocalCommand, LinksShowsTheBrand)
{
    const auto result = stowline_(Words{"links"});
    EXPECT_EQ(result.status, 0);
    for (const char* line : {"CompanyShortName        Stowline\n",
                             "ForgotUnamePwdURL       https://account.example.com/forgotten\n",
                             "KnowledgebaseName       KnowledgeBase\n",
                             "error domain            com.Stowline.Stowline.ErrorDomain\n"})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << result.output;
}

TEST_F(LocalCommand, LinksTellsOfAnInvalidAddress)
{
    folder_.write("Info.plist", platform::writeXmlPropertyList(
                                    Dictionary{{"TW_ForgotUsrPwdUrl", "not an address"}})
                                    .value());
    const test::Command stowline(folder_.path());
    const auto result = stowline(Words{"--json", "links"});
    EXPECT_EQ(result.status, 10);
    EXPECT_EQ(result.errors, "stowline: Invalid URL in configuration: Invalid URL stored in "
                             "TW_ForgotUsrPwdURL.\n");
    EXPECT_EQ(jsonLines(result.output).back()["status"], "settings-invalid");
}

/// What the log files of the command's state folder hold.
std::string logFilesOf(const test::Command& stowline)
{
    std::string text;
    const fs::path logs = stowline.home().path() / ".local/state/stowline/logs";
    for (const auto& entry : fs::directory_iterator(logs))
        text += platform::readFile(entry.path()).value_or("");
    return text;
}

TEST_F(LocalCommand, KeepsItsLogInFilesWhenAskedTo)
{
    EXPECT_EQ(stowline_(Words{"--log-file", "links"}).status, 0);
    const fs::path state = stowline_.home().path() / ".local/state/stowline";
    EXPECT_EQ(fs::status(state / "logs").permissions(), fs::perms::owner_all);
    EXPECT_NE(logFilesOf(stowline_).find("in getProductName, retrieved value: Stowline"),
              std::string::npos);
    const auto before = logFilesOf(stowline_).size();
    EXPECT_EQ(stowline_(Words{"--log-file", "--log-level", "error", "links"}).status, 0);
    EXPECT_EQ(logFilesOf(stowline_).size(), before) << "nothing that happened was an error";
    EXPECT_EQ(stowline_(Words{"--log-file", "links"}).status, 0);
    EXPECT_GT(logFilesOf(stowline_).size(), before) << "the same file is continued";
}

TEST_F(LocalCommand, LogsErrorsAtEveryLevel)
{
    const std::string file = folder_.write("source", "letter");
    EXPECT_EQ(
        stowline_(Words{"--log-file", "--log-level=error", "copy", file, in("no/copy")}).status, 1);
    EXPECT_NE(logFilesOf(stowline_).find("  Cannot create " + in("no/copy")), std::string::npos);
}

TEST_F(LocalCommand, TellsALogFolderThatCannotBeMadeAndGoesOn)
{
    const auto result =
        stowline_(Words{"--log-file", "paths"}, Environment{{"XDG_STATE_HOME", "/proc/self"}});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "stowline: No log file is kept: the folder /proc/self/stowline/logs "
                             "cannot be created. Please check its owner and mode.\n");
}

TEST_F(LocalCommand, RefusesALevelThatIsNone)
{
    EXPECT_EQ(stowline_(Words{"--log-level", "loud", "links"}).status, 2);
}

TEST_F(LocalCommand, VerboseOnATerminalShowsWholeLines)
{
    const auto talk = test::talkOnTerminal(stowline_.run({"-v", "links"}), "no prompt", "");
    EXPECT_EQ(talk.status, 0);
    EXPECT_NE(talk.screen.find(" stowline["), std::string::npos) << talk.screen;
    EXPECT_NE(talk.screen.find("in getProductName, retrieved value: Stowline"), std::string::npos);
}

} // namespace
} // namespace stowline
