// Deleting folders, monitoring, reports and e-mail, through the command and every process below it.
#include "devserver/Journal.h"
#include "stowline/platform/values/PropertyList.h"
#include "tests/endtoend/BackedUp.h"
#include "tests/support/RawServer.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>
#include <thread>

namespace stowline {
namespace {

using test::BackedUp;
using test::Environment;
using test::field;
using test::Files;
using test::Words;

constexpr const char* kToken = "token-4711";

/// A service that takes the token.
struct TokenFile {
    test::TemporaryFolder folder;
    std::string path = folder.write("tokens", std::string(kToken) + "\n").string();
};

Environment withToken(const BackedUp& account, const std::string& token = kToken)
{
    Environment environment = account.environment();
    environment.emplace("STOWLINE_MONITOR_TOKEN", token);
    return environment;
}

std::vector<std::filesystem::path> mails(const BackedUp& account)
{
    std::vector<std::filesystem::path> found;
    std::error_code none;
    for (const auto& file :
         std::filesystem::directory_iterator(account.server.data() / "mail", none))
        found.push_back(file.path());
    return found;
}

Words removal(const BackedUp& account, Words more = {})
{
    Words words{"rm",       account.folder.path().string() + "/d",
                "--system", "iMac",
                "--json",   "--yes",
                "--poll",   "0.05"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST(RemoveFolder, DeletesWhatIsStoredAndNothingElse)
{
    const BackedUp account;
    account.write({{"d/a", "1"}, {"d/e/b", "2"}, {"other", "3"}});
    ASSERT_EQ(account.backup().status, 0);
    EXPECT_EQ(account.run({"rm", account.folder.path().string(), "--system", "iMac"}).status, 2);
    EXPECT_EQ(account.run(removal(account, {"--dry-run"})).status, 0);
    const auto result = account.run(removal(account));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"other", "3"}}));
    const auto again = account.run(removal(account));
    EXPECT_EQ(again.status, 4);
    EXPECT_NE(again.errors.find("Nothing is stored below "), std::string::npos) << again.errors;
    EXPECT_EQ(account.run(removal(account, {"--dry-run"})).status, 4);
    EXPECT_EQ(account.run({"rm"}).status, 2);
}

/// A deletion that is on its way, with its command.
class SlowDeletion {
public:
    SlowDeletion() : account({"--deletion-pause", "60000"})
    {
        account.write({{"d/a", "1"}, {"d/b", "2"}, {"d/c", "3"}});
        EXPECT_EQ(account.backup().status, 0);
        run.emplace(account.command.run(removal(account), account.environment()));
        while (account.statusPage().find("1 of 3") == std::string::npos)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    BackedUp account;
    std::optional<test::BackgroundProgram> run;
};

TEST(RemoveFolder, ShowsOnThePageAndIsCancelledByCtrlC)
{
    SlowDeletion deletion;
    EXPECT_NE(deletion.account.statusPage().find("in progress"), std::string::npos);
    deletion.run->signal(SIGINT);
    const auto result = deletion.run->wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_NE(result.errors.find("The deletion was cancelled. Some of "), std::string::npos)
        << result.errors;
    EXPECT_NE(deletion.account.statusPage().find("cancelled"), std::string::npos);
    EXPECT_EQ(deletion.account.stored().size(), 2U);
}

TEST(RemoveFolder, ASecondCtrlCLeavesAtOnceAndSaysSo)
{
    // A service that takes the request to cancel but never ends the deletion.
    const std::string running = "<Code>Success</Code><ProcessGuid>G</ProcessGuid>"
                                "<ProcessIsCompleted>false</ProcessIsCompleted>"
                                "<ProcessIsCancelled>false</ProcessIsCancelled>";
    const test::RawServer endless(test::httpAnswer(running));
    const BackedUp account;
    account.write({{"d/a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto file = account.server.bundle() / "Resources" / "WebServicesSettings.plist";
    std::string settings = platform::readFile(file).value();
    const auto templates = settings.find("<key>Templates</key>");
    for (auto at = settings.find("http://%@/BackupService.asmx", templates);
         at != std::string::npos && at < settings.find("<key>WebRequests</key>");
         at = settings.find("http://%@/BackupService.asmx", at))
        settings.replace(at, 28, endless.url("/%@"));
    ASSERT_TRUE(platform::writeFileAtomically(file, settings));

    const auto given = account.run(removal(account, {"--follow-time", "0.2"}));
    EXPECT_EQ(given.status, 5);
    EXPECT_NE(given.errors.find("The deletion has not finished."), std::string::npos)
        << given.errors;

    test::BackgroundProgram run(account.command.run(removal(account), account.environment()));
    while (endless.requests().size() < 8)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    run.signal(SIGINT);
    const auto hasCancelled = [&endless] {
        for (const auto& request : endless.requests()) {
            if (request.find("BeginCancelDeleteFolders") != std::string::npos)
                return true;
        }
        return false;
    };
    while (!hasCancelled())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    run.signal(SIGINT);
    const auto result = run.wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_NE(result.errors.find("Ended at once. The deletion may still be going on."),
              std::string::npos)
        << result.errors;
}

TEST(Monitor, ShowsSettingsAndTakesEvents)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path, "--token-seconds", "3600"});
    const auto settings = account.command(
        Words{"monitor", "settings", "--json", "--system", "iMac"}, withToken(account));
    EXPECT_EQ(settings.status, 0) << settings.errors;
    EXPECT_EQ(field(settings, "IsEnabled"), "true");
    EXPECT_EQ(field(settings, "SystemName"), "iMac");
    const auto event = account.command(
        Words{"monitor", "event", "Back<up>Started", "--system", "iMac"}, withToken(account));
    EXPECT_EQ(event.status, 0) << event.errors;
    EXPECT_NE(account.statusPage().find("Back&lt;up&gt;Started"), std::string::npos);
    for (const char* command : {"settings", "event"}) {
        Words words{"monitor", command};
        if (std::string(command) == "event")
            words.emplace_back("X");
        const auto refused = account.command(words, withToken(account, "wrong"));
        // For settings the service answers with a fault, which has other causes too.
        EXPECT_EQ(refused.status, words.back() == "X" ? 6 : 5) << refused.errors;
        EXPECT_NE(refused.errors.find("Is the token still valid?"), std::string::npos);
    }
}

TEST(Monitor, TellsWhetherTheScheduleStartedTheProgram)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path});
    for (const char* word : {"scheduled_launch", "by_hand"})
        EXPECT_EQ(account.command(Words{"monitor", "event", word}, withToken(account)).status, 0);
    devserver::Journal journal(account.server.data());
    const auto events = journal.events(2);
    EXPECT_EQ(platform::findText(events.at(0).fields, "isScheduled"), "false");
    EXPECT_EQ(platform::findText(events.at(1).fields, "isScheduled"), "true");
}

TEST(Monitor, TokensExpire)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path, "--token-seconds", "0"});
    EXPECT_EQ(account.command(Words{"monitor", "event", "X"}, withToken(account)).status, 6);
}

TEST(Report, TellsOfTheLastBackup)
{
    const BackedUp account;
    EXPECT_EQ(account.run({"report"}).status, 4); // there was none
    account.write({{"a", "1"}, {"b", std::string(1536, 'x')}});
    ASSERT_EQ(account.backup().status, 0);
    const auto result = account.run({"report"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::string shown = account.statusPage();
    EXPECT_NE(shown.find("<bdi>iMac</bdi>"), std::string::npos);
    EXPECT_NE(shown.find("1.50 KB"), std::string::npos) << shown;
}

TEST(Email, SendsReportsAndTexts)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    EXPECT_EQ(account.run({"email", "ann@b.example"}).status, 0);
    const auto text =
        account.command(Words{"email", "bob@b.example", "--subject", "Grüße", "--text", "-"},
                        account.environment(), std::string("hello"));
    EXPECT_EQ(text.status, 0) << text.errors;
    EXPECT_EQ(mails(account).size(), 2U);
    EXPECT_EQ(account.run({"email", "no address"}).status, 6);
    EXPECT_EQ(account.run({"email"}).status, 2);
    const auto saved = account.folder.path() / "report.html";
    EXPECT_EQ(account.run({"email", "--save", saved.string()}).status, 0);
    EXPECT_NE(platform::readFile(saved)->find(">ann</strong>"), std::string::npos);
}

TEST(BackupReports, AreAllSentAfterARun)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path});
    account.write({{"a", "1"}});
    auto run = account.backupRun({"--report", "--email", "ann@b.example", "--monitor"});
    run.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", kToken);
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(mails(account).size(), 1U);
    const std::string shown = account.statusPage();
    EXPECT_NE(shown.find("BackupEnded"), std::string::npos);
    EXPECT_EQ(shown.find("No summary has come in."), std::string::npos);
}

TEST(Email, IsSavedToNothingButAFile)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto folder = account.command.home().path();
    const auto pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_symlink("elsewhere", folder / "link");
    for (const auto& place : {pipe, folder / "link", folder}) {
        const auto result = account.run({"email", "--save", place});
        EXPECT_EQ(result.status, 2) << place;
        EXPECT_TRUE(says(result, " exists already and is not a file.")) << result.errors;
    }
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
}

TEST(Email, HasATextPartOrIsText)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup({"/nonexistent/<x>", "--email", "a@b.c", "--email-plain"}).status, 3);
    ASSERT_EQ(mails(account).size(), 1U);
    const std::string sent = platform::readFile(mails(account)[0]).value_or("");
    EXPECT_NE(sent.find("\r\nContent-Type: text/plain; "), std::string::npos) << sent;
    EXPECT_NE(sent.find(": 1 item could not be backed up\r\n"), std::string::npos) << sent;
    EXPECT_EQ(account.run({"email", "a@b.c", "--plain"}).status, 0);
    EXPECT_EQ(mails(account).size(), 2U);
    for (const auto& mail : mails(account))
        EXPECT_EQ(platform::readFile(mail)->find("text/html"), std::string::npos);
    const auto folder = account.command.home().path();
    ASSERT_EQ(account.run({"email", "--save", folder / "report.txt"}).status, 0);
    const std::string text = platform::readFile(folder / "report.txt").value_or("");
    EXPECT_NE(
        text.find("\n1 item could not be backed up.\n- Nothing was found at /nonexistent/<x>.\n"),
        std::string::npos)
        << text;
    ASSERT_EQ(account.run({"email", "ann@b.c", "--save", folder / "report.eml"}).status, 0);
    // By a mail program's own reading of it.
    const auto parts = test::runProgram(
        {{"/usr/bin/python3", "-c",
          "import email, email.policy, sys\n"
          "m = email.message_from_binary_file(open(sys.argv[1], 'rb'), "
          "policy=email.policy.default)\n"
          "print(m['subject'].rpartition(': ')[2], '|', m['to'], '|', m.defects)\n"
          "print(m.get_content_type(), [part.get_content_type() for part in m.iter_parts()])\n"
          "print(m.get_body(('plain',)).get_content() == open(sys.argv[2]).read())\n"
          "print('class=\"bad\"' in m.get_body(('html',)).get_content())\n",
          folder / "report.eml", folder / "report.txt"}});
    EXPECT_EQ(parts.output, "1 item could not be backed up | ann@b.c | []\n"
                            "multipart/alternative ['text/plain', 'text/html']\nTrue\nTrue\n")
        << parts.errors;
}

TEST(BackupReports, TellWhoseRunTheyAreOf)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto page = account.command.home().path() / "report.html";
    ASSERT_EQ(account.backup({"--profile", "docs", "/nonexistent"}).status, 3);
    ASSERT_EQ(account.backup().status, 0);
    const auto saved = [&](Words more) {
        Words words{"email", "--save", page};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_EQ(account.run(words).status, 0);
        return platform::readFile(page).value_or("");
    };
    EXPECT_EQ(saved({}).find("docs"), std::string::npos) << "the last run of any profile";
    const std::string docs = saved({"--profile", "docs"});
    EXPECT_NE(docs.find("iMac (profile docs)"), std::string::npos) << docs;
    EXPECT_NE(docs.find("class=\"bad\""), std::string::npos);
    EXPECT_NE(saved({"--profile", "default"}).find("class=\"good\""), std::string::npos);
    EXPECT_EQ(account.run({"email", "--save", page, "--profile", "other"}).status, 4);
}

TEST(BackupReports, AreSentWhateverBytesThePathsAreOf)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result = account.backup({"/nonexistent\xff", "--email", "ann@b.example"});
    EXPECT_EQ(result.status, 3) << result.errors;
    ASSERT_EQ(mails(account).size(), 1U) << result.errors;
    const auto saved = account.command.home().path() / "report.html";
    ASSERT_EQ(account.run({"email", "--save", saved.string()}).status, 0);
    EXPECT_NE(platform::readFile(saved)->find("/nonexistent?"), std::string::npos);
}

TEST(BackupReports, NameWhatFailedAndAreGreenOnlyWhenAllIsWell)
{
    const BackedUp account;
    const auto page = account.command.home().path() / "report.html";
    const auto reportOf = [&](Words paths) {
        Words words{"backup", "--system", "iMac", "--email", "ann@b.example"};
        words.insert(words.end(), paths.begin(), paths.end());
        (void)account.run(words);
        EXPECT_EQ(account.run({"email", "--save", page.string()}).status, 0);
        return platform::readFile(page).value_or("");
    };
    const std::string empty = reportOf({account.folder.path().string()});
    EXPECT_NE(empty.find("<strong>Nothing was backed up.</strong>"), std::string::npos) << empty;
    const std::string nowhere = reportOf({"/nonexistent"});
    EXPECT_NE(nowhere.find("Nothing was found at the paths that were to be backed up."),
              std::string::npos)
        << nowhere;
    EXPECT_EQ(empty.find("class=\"good\""), std::string::npos);
    account.write({{"a", "1"}});
    const std::string good = reportOf({account.folder.path().string()});
    EXPECT_NE(good.find("class=\"good\""), std::string::npos);
    EXPECT_EQ(good.find("class=\"bad\""), std::string::npos);
    Words absent{account.folder.path().string()};
    for (int i = 0; i < 23; ++i)
        absent.push_back("/nonexistent/<" + std::to_string(i) + ">||username||");
    const std::string bad = reportOf(absent);
    EXPECT_NE(bad.find("<strong>23 items could not be backed up.</strong>"), std::string::npos);
    EXPECT_EQ(bad.find("class=\"good\""), std::string::npos);
    EXPECT_NE(bad.find("/nonexistent/&lt;0&gt;&#124;&#124;username"), std::string::npos) << bad;
    EXPECT_NE(bad.find("… and 3 more."), std::string::npos);
    std::size_t named = 0;
    for (auto at = bad.find("<li "); at != std::string::npos; at = bad.find("<li ", at + 1))
        ++named;
    EXPECT_EQ(named, 20U);
    const auto all = mails(account);
    ASSERT_EQ(all.size(), 4U);
    std::string subjects;
    for (const auto& mail : all)
        subjects += platform::readFile(mail).value_or("");
    EXPECT_NE(subjects.find(": nothing was backed up"), std::string::npos) << subjects;
    EXPECT_NE(subjects.find(": 23 items could not be backed up"), std::string::npos) << subjects;
}

TEST(BackupReports, WhatCannotBeSentIsKeptAndSentWithTheNext)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path, "--fault",
                            "SendBackupSummaryReport:1:fault", "--fault", "sendEmail:1:fault",
                            "--fault", "LogEvent:1:reset"});
    account.write({{"a", "1"}});
    const auto run = [&account] {
        auto words = account.backupRun({"--report", "--email", "ann@b.example", "--monitor"});
        words.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", kToken);
        return test::runProgram(words);
    };
    const auto first = run();
    EXPECT_EQ(first.status, 0);
    for (const char* kind : {"summary", "email", "event"})
        EXPECT_NE(first.errors.find(std::string("The ") + kind + " could not be sent: "),
                  std::string::npos)
            << first.errors;
    const auto outbox = account.command.home().path() / ".local/state/stowline/outbox";
    std::size_t kept = 0;
    for (const auto& file : std::filesystem::directory_iterator(outbox)) {
        ++kept;
        const std::string bytes = platform::readFile(file.path()).value();
        EXPECT_EQ(bytes.find(kToken), std::string::npos);
        EXPECT_EQ(bytes.find(account.password), std::string::npos);
    }
    EXPECT_EQ(kept, 3U);
    // A kind that a later version knows is sent as no other one.
    const auto one = std::filesystem::directory_iterator(outbox)->path();
    const auto entry = platform::readPropertyList(platform::readFile(one).value()).value;
    ASSERT_TRUE(entry && entry->dictionary());
    Dictionary unknown = *entry->dictionary();
    unknown.insert_or_assign("kind", "telegram");
    const auto later = outbox / "0-telegram.plist";
    ASSERT_TRUE(platform::writeFileAtomically(later, *platform::writeBinaryPropertyList(unknown)));
    const auto second = run();
    EXPECT_EQ(second.errors, "");
    EXPECT_TRUE(std::filesystem::remove(later));
    EXPECT_TRUE(std::filesystem::is_empty(outbox));
    EXPECT_EQ(devserver::Journal(account.server.data()).events(9).size(), 2U);
    EXPECT_EQ(mails(account).size(), 2U);
}

TEST(BackupReports, AFailedSignInIsToldOfLater)
{
    BackedUp account;
    account.write({{"a", "1"}});
    const std::string right = account.password;
    account.password = "wrong";
    const auto failed = account.backup({"--report"});
    EXPECT_EQ(failed.status, 12);
    EXPECT_NE(failed.errors.find("The summary could not be sent: nobody is signed in. It is kept"),
              std::string::npos)
        << failed.errors;
    EXPECT_EQ(test::jsonLines(failed.output).size(), 1U);
    const auto savedReport = [&account] {
        const auto file = account.folder.path() / "report.html";
        EXPECT_EQ(account.run({"email", "--save", file.string()}).status, 0);
        return platform::readFile(file).value_or("");
    };
    EXPECT_NE(savedReport().find("It ended before it began. The service refused the sign-in."),
              std::string::npos)
        << savedReport();
    account.password = right;
    EXPECT_EQ(account.backup({"--report"}).status, 0);
    EXPECT_EQ(savedReport().find("The backup failed"), std::string::npos);
    const std::string page = account.statusPage();
    const std::string shown = page.substr(page.find("<section id=\"reports\""));
    std::size_t rows = 0;
    for (auto at = shown.find("data-label=\"Machine\"><div><bdi>iMac"); at < shown.find("</table>");
         at = shown.find("data-label=\"Machine\"><div><bdi>iMac", at + 1))
        ++rows;
    EXPECT_EQ(rows, 2U) << shown;
    // Nor does a command that fails before it leave the report of an earlier one.
    EXPECT_EQ(account.backup({"--before", "/bin/false"}).status, 1);
    EXPECT_NE(savedReport().find("The backup failed"), std::string::npos);
    EXPECT_NE(savedReport().find("the command of --before failed"), std::string::npos);
}

std::string oneMail(const BackedUp& account)
{
    const auto all = mails(account);
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? std::string() : platform::readFile(all.front()).value_or("");
}

TEST(BackupReports, AFirstCommandThatFailsIsToldAtOnce)
{
    const TokenFile tokens;
    const BackedUp account({"--monitoring-tokens", tokens.path});
    account.write({{"a", "1"}});
    auto words = account.backupRun(
        {"--before", "/bin/false", "--report", "--email", "ann@b.example", "--monitor"});
    words.environment.insert_or_assign("STOWLINE_MONITOR_TOKEN", kToken);
    const auto result = test::runProgram(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors.find("could not be sent"), std::string::npos) << result.errors;
    const std::string mail = oneMail(account);
    EXPECT_NE(mail.find(": the backup failed"), std::string::npos) << mail;
    const auto events = devserver::Journal(account.server.data()).events(9);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(platform::findText(events.front().fields, "eventType"), "BackupEndedWithErrors");
    const std::string page = account.statusPage();
    const std::string shown = page.substr(page.find("<section id=\"reports\""));
    EXPECT_NE(shown.find("data-label=\"Machine\"><div><bdi>iMac"), std::string::npos) << shown;
    EXPECT_FALSE(
        std::filesystem::exists(account.command.home().path() / ".local/state/stowline/outbox"));
}

TEST(BackupReports, ARefusedSignInKeepsNoEmailBack)
{
    BackedUp account;
    account.write({{"a", "1"}});
    account.password = "wrong";
    const auto failed = account.backup({"--report", "--email", "ann@b.example"});
    EXPECT_EQ(failed.status, 12);
    EXPECT_EQ(failed.errors.find("The email could not be sent"), std::string::npos)
        << failed.errors;
    EXPECT_NE(oneMail(account).find(": the backup failed"), std::string::npos);
}

TEST(BackupReports, AServiceThatIsAwayIsNamedAsTheCause)
{
    BackedUp account;
    account.write({{"a", "1"}});
    account.server.process().signal(SIGKILL);
    (void)account.server.process().wait();
    for (const Words& more : {Words{}, Words{"--before", "/bin/false"}}) {
        Words words{"--report", "--email", "ann@b.example", "--retry-time", "0"};
        words.insert(words.end(), more.begin(), more.end());
        const auto failed = account.backup(words);
        EXPECT_NE(failed.status, 0);
        for (const char* kind : {"summary", "email"})
            EXPECT_NE(failed.errors.find(std::string("The ") + kind +
                                         " could not be sent: the service could not be reached. "
                                         "It is kept"),
                      std::string::npos)
                << failed.errors;
        if (!more.empty())
            continue;
        const std::string cause = field(failed, "message").get<std::string>();
        EXPECT_NE(cause, "");
        const auto file = account.folder.path() / "report.txt";
        EXPECT_EQ(account.run({"email", "--save", file.string()}).status, 0);
        const std::string report = platform::readFile(file).value_or("");
        EXPECT_NE(report.find("It ended before it began. " + cause), std::string::npos) << report;
    }
}

TEST(BackupReports, ASecondCommandThatFailsIsNotAFailedBackup)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    const auto result =
        account.backup({"--after", "sh -c 'exit 5'", "--email", "ann@b.example", "--email-plain"});
    EXPECT_EQ(result.status, 3);
    const std::string mail = oneMail(account);
    EXPECT_EQ(mail.find("backup failed"), std::string::npos) << mail;
    EXPECT_NE(mail.find(": the command of --after failed"), std::string::npos) << mail;
    const auto text = account.folder.path() / "report.txt";
    EXPECT_EQ(account.run({"email", "--save", text.string()}).status, 0);
    EXPECT_NE(platform::readFile(text).value_or("").find(
                  "\nEverything that was found is backed up; the command of --after failed.\nThe "
                  "command of --after failed with status 5 (sh -c 'exit 5').\n"),
              std::string::npos);
    const auto html = account.folder.path() / "report.html";
    EXPECT_EQ(account.run({"email", "--save", html.string()}).status, 0);
    const std::string report = platform::readFile(html).value_or("");
    EXPECT_NE(report.find("class=\"bad\""), std::string::npos) << report;
    EXPECT_NE(report.find("The command of --after failed with status 5 (sh"), std::string::npos);
    // All is stored, so the run counts as a good one here as it does on the service.
    EXPECT_EQ(account.run({"runs", "--machine", "iMac", "--alert-after", "1h"}).status, 0);
    EXPECT_EQ(account.run({"doctor", "--alert-after", "1h"}).output.find("FAULT last-run"),
              std::string::npos);
}

} // namespace
} // namespace stowline
