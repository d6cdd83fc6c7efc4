// The stowline command: exit statuses, JSON, secrets, and what people read.
#include "tests/endtoend/Command.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Helpers.h"
#include "tests/support/PseudoTerminal.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <csignal>

namespace stowline {
namespace {

using test::Command;
using test::Environment;
using test::jsonLines;
using test::Words;

class CommandWithService : public testing::Test {
protected:
    test::DevServerProcess server_;
    Command stowline_{server_.bundle()};

    void openAccount()
    {
        ASSERT_EQ(stowline_(Words{"signup", "-u", "ann", "--email", "a@b.c"},
                            Environment{{"STOWLINE_PASSWORD", "pw 1"}})
                      .status,
                  0);
    }
};

TEST_F(CommandWithService, OpensAnAccountAndSignsIn)
{
    const auto opened = stowline_(Words{"signup", "-u", "ann", "--email", "a@b.c"},
                                  Environment{{"STOWLINE_PASSWORD", "pw"}});
    EXPECT_EQ(opened.status, 0);
    EXPECT_EQ(opened.output, "opened  ann\n");
    EXPECT_EQ(opened.errors, "");
    const auto in = stowline_(
        Words{"signin"}, Environment{{"STOWLINE_PASSWORD", "pw"}, {"STOWLINE_USERNAME", "ann"}});
    EXPECT_EQ(in.status, 0);
    EXPECT_EQ(in.output, "account  ann\nstate    Active\nserver   " +
                             server_.address().substr(sizeof "http://" - 1) + "\n");
}

TEST_F(CommandWithService, JsonEndsWithOneResultLine)
{
    openAccount();
    const auto good = stowline_(Words{"--json", "signin", "-u", "ann"},
                                Environment{{"STOWLINE_PASSWORD", "pw 1"}});
    EXPECT_TRUE(good.output.starts_with("{\"v\":1,\"type\":\"result\",")) << good.output;
    ASSERT_EQ(jsonLines(good.output).size(), 1U);
    EXPECT_EQ(jsonLines(good.output)[0]["state"], "Active");

    const auto refused = stowline_(Words{"signin", "-u", "ann", "--json"},
                                   Environment{{"STOWLINE_PASSWORD", "wrong"}});
    EXPECT_EQ(refused.status, 12);
    ASSERT_EQ(jsonLines(refused.output).size(), 1U);
    EXPECT_EQ(jsonLines(refused.output)[0]["exit"], 12);

    const auto usage = stowline_(Words{"signin", "--json", "--nonsense"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(jsonLines(usage.output).at(0)["type"], "result");
}

TEST_F(CommandWithService, AWrongWordIsNamedWithWhatWouldBeRight)
{
    const std::map<Words, std::string> sentences{
        {{"bakcup"},
         "\"bakcup\" is not a command. Did you mean \"backup\"? \"stowline --help\" tells more."},
        {{"sync"}, "\"sync\" is not a command. \"stowline --help\" tells more."},
        {{"versions", "--jsn", "-u", "ann", "1"},
         "\"--jsn\" is not an option of \"stowline versions\". Did you mean \"--json\"? \"stowline "
         "versions --help\" tells more."},
        {{"-q", "uploads", "stop"},
         "\"stop\" is not a command. \"stowline uploads --help\" tells more."},
        {{"uploads"},
         "Please name one of its commands: list, resume, abandon. \"stowline uploads --help\" "
         "tells "
         "more."},
        {{"diff", "0", "1"},
         "RUN: This must be a number greater than 0, not \"0\". \"stowline diff --help\" tells "
         "more."},
        {{"versions", "-u", "ann", "abc"},
         "FILE-ID: This must be a whole number, not \"abc\". \"stowline versions --help\" tells "
         "more."},
        {{"settings", "check", "a", "b"},
         "The following argument was not expected: b. \"stowline settings check --help\" tells "
         "more."},
    };
    for (const auto& [words, sentence] : sentences) {
        const auto result = stowline_(words);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errors, "stowline: " + sentence + "\n");
    }
}

TEST_F(CommandWithService, NothingThatANameHoldsReachesTheTerminal)
{
    const auto file = stowline_.home().write("red \033[31m\nfile", "123456789");
    const auto sums = stowline_(Words{"checksum", file.string()});
    EXPECT_TRUE(sums.output.ends_with("/red ?[31m?file\n")) << sums.output;
    const auto missing = stowline_(Words{"copy", file.string() + "2", "x"});
    EXPECT_EQ(missing.errors.find('\033'), std::string::npos) << missing.errors;
    for (const Words& words :
         {Words{"paths", file.string()}, {"settings", "check", file.string()}}) {
        const std::string shown = stowline_(words).output;
        EXPECT_NE(shown.find("red ?[31m"), std::string::npos) << shown;
        EXPECT_EQ(shown.find('\033'), std::string::npos) << shown;
    }
}

TEST_F(CommandWithService, RefusedSignUpsExitWithSix)
{
    openAccount();
    const Environment password{{"STOWLINE_PASSWORD", "x"}};
    const auto taken = stowline_(Words{"signup", "-u", "ann", "--email", "a@b.c"}, password);
    EXPECT_EQ(taken.status, 6);
    const auto trial = stowline_(
        Words{"signup", "-u", "t", "--email", "nowhere", "--customer-type", "T1"}, password);
    EXPECT_EQ(trial.status, 6);
    EXPECT_NE(trial.errors.find("Please give an e-mail address like name@example.com."),
              std::string::npos);
}

TEST_F(CommandWithService, ADryRunOpensNothing)
{
    const Environment password{{"STOWLINE_PASSWORD", "x"}};
    EXPECT_EQ(stowline_(Words{"signup", "-n", "-u", "dry", "--email", "a@b"}, password).status, 0);
    EXPECT_EQ(stowline_(Words{"signin", "-u", "dry"}, password).status, 12);
}

TEST_F(CommandWithService, TakesThePasswordFromEverySource)
{
    openAccount();
    const auto file = stowline_.home().write("password", "pw 1\n");
    const auto signIn = [&](Words words, const std::string& input = {}) {
        words.insert(words.begin(), {"signin", "-u", "ann"});
        return stowline_(words, Environment{}, input).status;
    };
    EXPECT_EQ(signIn({"--password-file", file.string()}), 0);
    EXPECT_EQ(signIn({"--password-stdin"}, "pw 1\n"), 0);
    EXPECT_EQ(signIn({"--password-command", "printf '%s' 'pw 1'"}), 0);
    EXPECT_EQ(signIn({"--password-command", "cat \"" + file.string() + "\""}), 0);
}

TEST_F(CommandWithService, TwoNamedSourcesAreAUsageError)
{
    EXPECT_EQ(
        stowline_(Words{"signin", "-u", "ann", "--password-stdin", "--password-file", "x"}).status,
        2);
}

TEST_F(CommandWithService, UnreadableAndEmptySecretsAreNamed)
{
    const auto missing = stowline_(Words{"signin", "-u", "ann", "--password-file", "/nonexistent"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "stowline: The password cannot be read from /nonexistent.\n");
    EXPECT_EQ(stowline_(Words{"signin", "-u", "ann", "--password-stdin"}).errors,
              "stowline: The password is empty.\n");
    EXPECT_NE(stowline_(Words{"signin", "-u", "ann", "--password-command", "false"})
                  .errors.find("The command for the password failed: false"),
              std::string::npos);
}

TEST_F(CommandWithService, AsksForThePasswordWithoutShowingIt)
{
    openAccount();
    const auto talk = test::talkOnTerminal(stowline_.run({"signin", "-u", "ann"}),
                                           "Password for ann: ", "pw 1\n");
    EXPECT_EQ(talk.status, 0);
    EXPECT_NE(talk.screen.find("Password for ann: "), std::string::npos);
    EXPECT_NE(talk.screen.find("state    Active"), std::string::npos) << talk.screen;
    EXPECT_EQ(talk.screen.find("pw 1"), std::string::npos);
}

TEST_F(CommandWithService, AsksForANewPasswordTwice)
{
    const auto signUp = [&](const std::string& second) {
        return test::talkOnTerminal(
            stowline_.run({"signup", "-u", "ann", "--email", "a@b.c"}),
            {{"New password for ann: ", "pw 1\n"}, {"The same password again: ", second}});
    };
    const auto mistyped = signUp("pw 2\n");
    EXPECT_EQ(mistyped.status, 2);
    EXPECT_NE(mistyped.screen.find("The two passwords differ. Nothing was changed."),
              std::string::npos)
        << mistyped.screen;
    const auto signIn = [&] {
        return stowline_(Words{"signin", "-u", "ann"}, Environment{{"STOWLINE_PASSWORD", "pw 1"}})
            .status;
    };
    EXPECT_EQ(signIn(), 12);
    const auto opened = signUp("pw 1\n");
    EXPECT_EQ(opened.status, 0) << opened.screen;
    EXPECT_EQ(opened.screen.find("pw 1"), std::string::npos);
    EXPECT_EQ(signIn(), 0);
}

TEST_F(CommandWithService, EncryptsAndDecryptsTheTextOnStandardInput)
{
    const auto box = stowline_(Words{"encrypt"}, Environment{}, "a <secret>\n");
    EXPECT_EQ(box.status, 0);
    EXPECT_EQ(stowline_(Words{"decrypt"}, Environment{}, box.output).output, "a <secret>\n");
    EXPECT_EQ(stowline_(Words{"decrypt"}, Environment{}, "00").status, 5);
}

TEST_F(CommandWithService, FlagComesBeforeEnvironmentBeforeConfiguration)
{
    openAccount();
    const Environment password{{"STOWLINE_PASSWORD", "pw 1"}};
    stowline_.home().write(".config/stowline/config.toml", "[signin]\nusername = \"ann\"\n");
    EXPECT_EQ(stowline_(Words{"signin"}, password).status, 0);
    Environment other = password;
    other.emplace("STOWLINE_USERNAME", "nobody");
    EXPECT_EQ(stowline_(Words{"signin"}, other).status, 12);
    EXPECT_EQ(stowline_(Words{"signin", "-u", "ann"}, other).status, 0);
}

TEST_F(CommandWithService, VerboseShowsTheLogWithoutThePassword)
{
    openAccount();
    const auto result =
        stowline_(Words{"-v", "signin", "-u", "ann"}, Environment{{"STOWLINE_PASSWORD", "pw 1"}});
    EXPECT_NE(result.errors.find("accountStatus. Value = Active"), std::string::npos);
    EXPECT_EQ(result.errors.find("pw 1"), std::string::npos);
    EXPECT_EQ(result.output.find("Value"), std::string::npos);
}

TEST_F(CommandWithService, DoctorFindsEverythingWell)
{
    const auto result = stowline_(Words{"doctor"});
    EXPECT_EQ(result.status, 0) << result.output << result.errors;
    for (const char* subject : {"bundle", "settings", "helper", "network", "http", "clock", "proxy",
                                "configuration", "state", "disk", "schedule", "last-run"})
        EXPECT_NE(result.output.find("ok    " + std::string(subject)), std::string::npos);
    const auto lines = jsonLines(stowline_(Words{"--json", "doctor"}).output);
    EXPECT_EQ(lines.size(), 13U);
    EXPECT_EQ(lines.front()["type"], "finding");
    EXPECT_EQ(lines.back()["type"], "result");
}

TEST_F(CommandWithService, DoctorLooksAtTheAccountAndTheLastRun)
{
    const Environment ann{{"STOWLINE_USERNAME", "ann"}, {"STOWLINE_PASSWORD", "pw"}};
    const auto refused = stowline_(Words{"doctor"}, ann);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.output.find("FAULT account"), std::string::npos) << refused.output;
    EXPECT_EQ(stowline_(Words{"signup", "--email", "a@b.c"}, ann).status, 0);
    const auto overdue = stowline_(Words{"doctor", "--alert-after", "3"}, ann);
    EXPECT_EQ(overdue.status, 9);
    EXPECT_NE(overdue.output.find("ok    account"), std::string::npos) << overdue.output;
    EXPECT_NE(overdue.output.find("FAULT last-run      no run without failures is known"),
              std::string::npos)
        << overdue.output;
    const test::TemporaryFolder folder;
    folder.write("a", "1");
    // A run in which something failed is none that counts.
    EXPECT_EQ(stowline_(Words{"backup", folder.path(), "/nonexistent"}, ann).status, 3);
    EXPECT_EQ(stowline_(Words{"doctor", "--alert-after", "3"}, ann).status, 9);
    EXPECT_EQ(stowline_(Words{"backup", folder.path()}, ann).status, 0);
    EXPECT_EQ(stowline_(Words{"doctor", "--alert-after", "3"}, ann).status, 0);
    EXPECT_EQ(stowline_(Words{"doctor", "--alert-after", "3", "--profile", "x"}, ann).status, 9);
    const auto kept = stowline_.home().path() / ".local/state/stowline/last-good-run";
    EXPECT_TRUE(platform::writeFileAtomically(kept, "2020-01-01T00:00:00Z\n"));
    EXPECT_EQ(stowline_(Words{"doctor", "--alert-after", "3"}, ann).status, 9);
}

TEST(Doctor, TriesTheWaysToStoreAndToRestore)
{
    const test::DevServerProcess server(
        {"--fault", "GetPhyPath:3:fault", "--fault", "GetRestoreTicket:2:fault"});
    const Command stowline(server.bundle());
    const Environment ann{{"STOWLINE_USERNAME", "ann"}, {"STOWLINE_PASSWORD", "pw"}};
    ASSERT_EQ(stowline(Words{"signup", "--email", "a@b.c"}, ann).status, 0);
    const auto well = stowline(Words{"doctor"}, ann);
    EXPECT_EQ(well.status, 0) << well.output;
    EXPECT_NE(well.output.find("ok    upload"), std::string::npos) << well.output;
    EXPECT_NE(well.output.find("ok    restoring"), std::string::npos) << well.output;
    const auto restoring = stowline(Words{"doctor"}, ann);
    EXPECT_EQ(restoring.status, 1);
    EXPECT_NE(restoring.output.find("ok    upload"), std::string::npos) << restoring.output;
    EXPECT_NE(restoring.output.find("FAULT restoring     The service gives no leave to read what "
                                    "is stored. "),
              std::string::npos)
        << restoring.output;
    const auto upload = stowline(Words{"doctor"}, ann);
    EXPECT_EQ(upload.status, 1);
    EXPECT_NE(upload.output.find("does not say where uploads go. "), std::string::npos)
        << upload.output;
    EXPECT_NE(upload.output.find("ok    restoring"), std::string::npos) << upload.output;
    // Nothing of it without a password.
    EXPECT_EQ(stowline(Words{"doctor"}).output.find("restoring"), std::string::npos);
}

TEST(DevServerLog, TellsOfCallsWithoutTheirSecrets)
{
    const test::TemporaryFolder logs;
    test::DevServerProcess server({"--log-folder", logs.path().string()});
    const Command stowline(server.bundle());
    EXPECT_EQ(
        stowline(Words{"signin", "-u", "nobody"}, Environment{{"STOWLINE_PASSWORD", "s3cret"}})
            .status,
        12);
    server.process().signal(SIGTERM);
    EXPECT_EQ(server.process().wait().status, 0);
    std::string text;
    for (const auto& file : std::filesystem::directory_iterator(logs.path()))
        text += platform::readFile(file.path()).value_or("");
    EXPECT_NE(text.find("(Authenticate, "), std::string::npos) << text;
    EXPECT_NE(text.find("answered with 200\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("s3cret"), std::string::npos);
}

/// A helper that a nursery forks, and one that is started for its call.
class CommandWithHelper : public testing::TestWithParam<test::HelperForm> {
protected:
    [[nodiscard]] static Environment environment()
    {
        Environment words = test::environmentFor(GetParam());
        words["STOWLINE_PASSWORD"] = "x";
        return words;
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, CommandWithHelper, testing::ValuesIn(test::kHelperForms),
                         test::nameOfForm);

TEST_P(CommandWithHelper, InterruptedEndsWithAResultLineAnd130)
{
    const test::DevServerProcess server({"--fault", "Authenticate:*:stall"});
    const Command stowline(server.bundle());
    for (const auto& [signal, status] :
         {std::pair{SIGINT, 130}, std::pair{SIGTERM, 143}, std::pair{SIGHUP, 143}}) {
        test::BackgroundProgram running(
            stowline.run({"--json", "-v", "signin", "-u", "ann"}, environment()));
        const int helper = running.awaitHelper();
        EXPECT_EQ(test::nurseriesOf(running.processId()).size(), test::nurseriesIn(GetParam()));
        running.signal(signal);
        const auto result = running.wait();
        EXPECT_EQ(result.status, status);
        ASSERT_EQ(jsonLines(result.output).size(), 1U);
        EXPECT_EQ(jsonLines(result.output)[0]["status"], "interrupted");
        test::awaitEnd(helper);
    }
}

TEST(CommandInterrupted, IsNotByAHangUpThatIsIgnored)
{
    const test::DevServerProcess server({"--fault", "Authenticate:*:stall"});
    auto run = Command(server.bundle())
                   .run({"--json", "signin", "-u", "ann"}, {{"STOWLINE_PASSWORD", "x"}});
    run.words.insert(run.words.begin(), "/usr/bin/nohup");
    test::BackgroundProgram running(run);
    (void)running.awaitHelper();
    running.signal(SIGHUP);
    running.signal(SIGINT); // comes after it, and is what ends it
    EXPECT_EQ(running.wait().status, 130);
}

TEST_P(CommandWithHelper, KilledLeavesNoHelperBehind)
{
    const test::DevServerProcess server({"--fault", "Authenticate:*:stall"});
    const Command stowline(server.bundle());
    test::BackgroundProgram running(stowline.run({"signin", "-u", "ann"}, environment()));
    const int helper = running.awaitHelper();
    const auto nurseries = test::nurseriesOf(running.processId());
    running.signal(SIGKILL);
    test::awaitEnd(helper); // the call itself would go on for a minute
    for (const int nursery : nurseries)
        test::awaitEnd(nursery);
    EXPECT_EQ(running.wait().status, 1000 + SIGKILL);
}

TEST(CommandWithoutService, TellsAnUnreachableHost)
{
    const test::TestBundle bundle(
        test::settingsWith("Authenticate", {{"URL", "http://h/"}}, "no-such-host.invalid"));
    const Command stowline(bundle.folder().path());
    const auto result =
        stowline(Words{"signin", "-u", "a"}, Environment{{"STOWLINE_PASSWORD", "x"}});
    EXPECT_EQ(result.status, 8);
    EXPECT_NE(result.errors.find("Please check the Internet connection"), std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("no-such-host.invalid"), std::string::npos);
}

TEST(CommandWithoutService, TellsAServiceThatDoesNotAnswer)
{
    const test::TestBundle bundle(test::settingsWith(
        "Authenticate", {{"URL", "http://127.0.0.1:" + std::to_string(test::closedPort()) + "/"}}));
    const Command stowline(bundle.folder().path());
    EXPECT_EQ(stowline(Words{"signin", "-u", "a"}, Environment{{"STOWLINE_PASSWORD", "x"}}).status,
              8);
}

TEST(CommandWithoutService, TellsAPasswordThatCannotBeSent)
{
    const test::TestBundle bundle(test::settingsWith("Authenticate", {{"URL", "http://h/"}}));
    const Command stowline(bundle.folder().path());
    const auto result = stowline(Words{"signin", "-u", "a", "--password-stdin"}, Environment{},
                                 std::string("a\x01z"));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("The value for <<PASSWORD>> holds the control character U+0001"),
              std::string::npos);
    EXPECT_EQ(result.errors.find("\x01"), std::string::npos);
}

TEST(CommandWithoutService, NamesTheFileAndTheKeyThatAreWrong)
{
    const auto messageFor = [](const std::filesystem::path& bundle) {
        const Command stowline(bundle);
        const auto result =
            stowline(Words{"signin", "-u", "a"}, Environment{{"STOWLINE_PASSWORD", "x"}});
        EXPECT_EQ(result.status, 10);
        return result.errors;
    };
    const test::TemporaryFolder folder;
    const auto says = [&](const std::string& text) {
        const std::string errors = messageFor(folder.path());
        EXPECT_NE(errors.find(text), std::string::npos) << errors;
    };
    says("Info.plist is missing.");
    std::filesystem::create_directory(folder.path() / "Info.plist");
    says("Info.plist cannot be read.");
    std::filesystem::remove(folder.path() / "Info.plist");
    folder.write("Info.plist", "<plist><dict>\n<key>a</dict></plist>");
    says("Info.plist is not a property list: line 2:");
    folder.write("Info.plist", "<plist><array/></plist>");
    says("Info.plist is not a dictionary.");
    folder.write("Info.plist", "<plist><dict/></plist>");
    says("Info.plist does not name the settings file (TW_WebServicesSettingsFilename).");
    folder.write("Info.plist", "<plist><dict><key>TW_WebServicesSettingsFilename</key>"
                               "<string>S.plist</string></dict></plist>");
    EXPECT_NE(messageFor(folder.path()).find("Resources/S.plist cannot be read."),
              std::string::npos);
    folder.write("Resources/S.plist", "<plist><dict/></plist>");
    EXPECT_NE(messageFor(folder.path())
                  .find("have no entry \"Authenticate\" under "
                        "\"WebServices\". Please add it."),
              std::string::npos);
}

TEST(CommandWithoutService, SettingsCheckListsFaultsWithTheirLines)
{
    const test::TemporaryFolder folder;
    const Command stowline(folder.path());
    const auto broken =
        folder.write("broken.plist", "<plist>\n<dict>\n<key>a</key>\n</dict></plist>");
    const auto result = stowline(Words{"settings", "check", broken.string()});
    EXPECT_EQ(result.status, 10);
    EXPECT_EQ(result.output, broken.string() + ":4: line 4: The key \"a\" has no value.\n");
    const std::string good = test::sourceFile("resources/WebServicesSettings.plist");
    EXPECT_EQ(stowline(Words{"settings", "check", good}).status, 0);
    EXPECT_EQ(stowline(Words{"settings", "check", good}).errors, good + " is in order.\n");
    EXPECT_EQ(stowline(Words{"-q", "settings", "check", good}).errors, "");
    EXPECT_EQ(stowline(Words{"settings", "check", "/nonexistent"}).status, 4);
}

TEST(CommandWithoutService, DoctorSaysWhatToDo)
{
    const test::TemporaryFolder folder;
    const Command stowline(folder.path());
    const auto result = stowline(Words{"doctor"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("FAULT bundle"), std::string::npos);
    EXPECT_NE(result.output.find("name the folder with --bundle"), std::string::npos);
    EXPECT_NE(result.output.find("FAULT settings"), std::string::npos);
    EXPECT_NE(result.output.find("FAULT network       The settings name no ReachabilityHost."),
              std::string::npos);
}

TEST(CommandWithoutService, HelpAndVersionAreResults)
{
    const test::TestBundle bundle({});
    const Command stowline(bundle.folder().path());
    const auto help = stowline(Words{"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("signin"), std::string::npos);
    EXPECT_EQ(stowline(Words{}).status, 2);
    EXPECT_EQ(stowline(Words{"--version"}).status, 0);
}

} // namespace
} // namespace stowline
