// Getting back through the command: whose runs, and what is said of them.
#include "tests/endtoend/Records.h"
#include "tests/endtoend/Relayed.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

TEST(WhatWasRead, IsToldByTheDigestThatTheBackupTold)
{
    const BackedUp account;
    account.write({{"a", "first"}});
    const std::string digest = field(account.backup(), "record");
    const std::string target = account.command.home().path() / "back";
    const Words words{"restore", account.folder.path(), "--machine", "iMac", "--to", target};
    const auto told = account.run(words);
    EXPECT_NE(told.errors.find("Run 1 (record " + digest.substr(0, 12) + ")"), std::string::npos)
        << told.errors;
    Words asJson = words;
    asJson.emplace_back("--json");
    EXPECT_EQ(field(account.run(asJson), "record"), digest);
    EXPECT_EQ(field(account.run({"verify", "--machine", "iMac", "--json"}), "record"), digest);
}

class Profiles : public testing::Test {
protected:
    Profiles()
    {
        account_.write({{"a", "default's"}});
        EXPECT_EQ(account_.backup().status, 0);
        account_.write({{"a", "work's"}});
        EXPECT_EQ(account_.backup({"--profile", "work"}).status, 0);
    }

    [[nodiscard]] test::ProgramResult cat(Words more = {}) const
    {
        Words words{"cat", account_.folder.path() / "a", "--machine", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    const BackedUp account_;
};

TEST_F(Profiles, AreReadAsTheyWereBackedUpAndTheOthersAreNamed)
{
    const auto plain = cat();
    EXPECT_EQ(plain.output, "default's");
    EXPECT_NE(plain.errors.find("profile work"), std::string::npos) << plain.errors;
    EXPECT_EQ(cat({"--profile", "work"}).output, "work's");
    const auto none = cat({"--profile", "home"});
    EXPECT_EQ(none.status, 4);
    EXPECT_NE(none.errors.find("no runs of the profile home"), std::string::npos) << none.errors;
    const std::string chain =
        field(account_.run({"runs", "--machine", "iMac", "--profile", "work", "--json"}), "chain");
    EXPECT_EQ(cat({"--chain", chain}).output, "work's");
    EXPECT_EQ(cat({"--chain", "none"}).status, 4);
    EXPECT_EQ(cat({"--chain", chain, "--profile", "work"}).status, 2);
}

TEST(Restore, OfALinkThatWasNamedSaysWhereItsContentIs)
{
    const BackedUp account;
    account.write({{"real/file", "content"}});
    const fs::path link = account.folder.path() / "link";
    fs::create_directory_symlink("real", link);
    ASSERT_EQ(account.run({"backup", link, "--system", "iMac"}).status, 0);
    const fs::path target = account.command.home().path() / "back";
    const auto restored =
        account.run({"restore", link, "--machine", "iMac", "--to", target.string()});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_EQ(fs::read_symlink(target / "link"), "real");
    const std::string real = account.folder.path() / "real";
    EXPECT_NE(restored.errors.find("is stored as " + real), std::string::npos) << restored.errors;
    const auto through =
        account.run({"restore", link / "file", "--machine", "iMac", "--to", target.string()});
    EXPECT_EQ(through.status, 4);
    EXPECT_NE(through.errors.find("is stored as " + real + "/file"), std::string::npos)
        << through.errors;
    EXPECT_EQ(account.run({"cat", link / "file", "--machine", "iMac"}).output, "content");
    // Both of them: all is there, and nothing is left to be said.
    const auto both =
        account.run({"restore", link, real, "--machine", "iMac", "--to", target.string()});
    EXPECT_EQ(both.errors.find("is a link"), std::string::npos) << both.errors;
    EXPECT_EQ(platform::readFile(target / "link/file"), "content");
}

TEST(Cat, OfALinkThatLeadsNowhereSaysThatTheLinkIsThere)
{
    const BackedUp account;
    const fs::path folder = account.folder.path();
    fs::create_symlink("/no/such/place", folder / "out");
    fs::create_symlink("circle", folder / "circle");
    fs::create_directory_symlink("gone", folder / "through");
    ASSERT_EQ(account.backup().status, 0);
    const auto errorsOf = [&](const std::string& name) {
        const auto result = account.run({"cat", folder / name, "--machine", "iMac"});
        EXPECT_EQ(result.status, 4) << result.errors;
        EXPECT_EQ(result.output, "");
        return result.errors;
    };
    const std::string top = folder.string() + "/";
    const std::string told = "stowline: " + top;
    EXPECT_EQ(errorsOf("out"), told +
                                   "out is a link in run 1. What it leads to, /no/such/place, is "
                                   "not in that run.\n");
    EXPECT_EQ(errorsOf("circle"), told + "circle leads through a circle of links in run 1.\n");
    EXPECT_EQ(errorsOf("through/a"),
              told + "through/a leads to " + top + "gone/a, which is not in run 1.\n");
    EXPECT_EQ(errorsOf("nothing"), told + "nothing was not found in run 1.\n");
}

TEST(Restore, GivesAFolderThatItsOwnerMayNotSearchItsAttributes)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can act as another user";
    const BackedUp account;
    account.write({{"closed/inside", "1"}});
    const fs::path closed = account.folder.path() / "closed";
    constexpr const char* attribute = "user.note";
    if (setxattr(closed.c_str(), attribute, "kept", 4, 0) != 0)
        GTEST_SKIP() << "the file system of the tests keeps no extended attributes";
    // version 2; user::rwx, group::r-x, other::r-x
    const std::string acl("\x02\0\0\0\x01\0\x07\0\xff\xff\xff\xff\x04\0\x05\0\xff\xff\xff\xff"
                          "\x20\0\x05\0\xff\xff\xff\xff",
                          28);
    constexpr const char* defaults = "system.posix_acl_default";
    const bool hasAcl = setxattr(closed.c_str(), defaults, acl.data(), acl.size(), 0) == 0;
    // Also an access ACL, which closes the folder before its other attributes are there.
    const std::string shut("\x02\0\0\0\x01\0\x06\0\xff\xff\xff\xff\x02\0\x04\0\x01\0\0\0"
                           "\x04\0\x04\0\xff\xff\xff\xff\x10\0\x04\0\xff\xff\xff\xff"
                           "\x20\0\0\0\xff\xff\xff\xff",
                           44);
    if (hasAcl) {
        ASSERT_EQ(setxattr(closed.c_str(), "system.posix_acl_access", shut.data(), shut.size(), 0),
                  0);
    }
    ASSERT_EQ(chmod(closed.c_str(), 0640), 0);
    ASSERT_EQ(account.backup().status, 0);
    const fs::path home = account.command.home().path() / "nobody";
    fs::create_directories(home);
    ASSERT_EQ(chown(home.c_str(), 65534, 65534), 0);
    const fs::path bundle = account.server.bundle();
    for (const fs::path& folder : {account.command.home().path(), bundle.parent_path(), bundle})
        fs::permissions(folder, fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(bundle))
        fs::permissions(entry, fs::perms::all);
    auto run = account.command.run(
        {"restore", account.folder.path(), "--machine", "iMac", "--to", home / "back", "--json"},
        account.environment());
    run.environment["HOME"] = home;
    run.words.insert(run.words.begin(),
                     {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "incomplete"), 0) << result.errors;
    const fs::path back = home / "back" / account.folder.path().filename() / "closed";
    std::string value(100, '\0');
    EXPECT_EQ(getxattr(back.c_str(), attribute, value.data(), value.size()), 4);
    if (hasAcl) {
        ASSERT_EQ(getxattr(back.c_str(), defaults, value.data(), value.size()), 28);
        EXPECT_EQ(value.substr(0, 28), acl);
    } else {
        std::cout << "ACLs are not looked at: the file system of the tests keeps none\n";
    }
}

/// A chain of folders, as deep as given, with a file at its end; made and read step by step.
class DeepTree {
public:
    explicit DeepTree(const fs::path& top, bool makes) : at_(open(top.c_str(), O_PATH))
    {
        for (int depth = 0; depth < kDepth && at_ >= 0; ++depth) {
            if (makes)
                (void)mkdirat(at_, kName.c_str(), 0755);
            const int next = openat(at_, kName.c_str(), O_PATH | O_NOFOLLOW);
            close(at_);
            at_ = next;
        }
        if (makes)
            close(openat(at_, "file", O_WRONLY | O_CREAT, 0644));
    }
    ~DeepTree() { close(at_); }
    DeepTree(const DeepTree&) = delete;
    DeepTree& operator=(const DeepTree&) = delete;

    [[nodiscard]] bool hasFile() const { return faccessat(at_, "file", F_OK, 0) == 0; }

private:
    static constexpr int kDepth = 40;
    inline static const std::string kName = std::string(200, 'd');
    int at_ = -1;
};

TEST(Restore, OfPathsThatAreLongerThanTheSystemTakesAtOnce)
{
    const BackedUp account;
    ASSERT_TRUE(DeepTree(account.folder.path(), true).hasFile());
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "back";
    const Words words{"restore", account.folder.path(), "--machine", "iMac", "--to", target,
                      "--json"};
    const auto restored = account.run(words);
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_TRUE(DeepTree(target / account.folder.path().filename(), false).hasFile());
    const auto again = account.run(words);
    EXPECT_EQ(again.status, 0) << again.errors;
    EXPECT_EQ(field(again, "restored"), 0);
}

TEST(Restore, ByAnotherUserIsASuccessAndSaysOnceThatOwnersStayAway)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can act as another user";
    const BackedUp account;
    account.write({{"a", "1"}, {"b", "2"}, {"c/d", "3"}});
    ASSERT_EQ(chmod((account.folder.path() / "a").c_str(), 04755), 0);
    ASSERT_EQ(account.backup().status, 0);
    const fs::path home = account.command.home().path() / "nobody";
    fs::create_directories(home);
    ASSERT_EQ(chown(home.c_str(), 65534, 65534), 0);
    const fs::path bundle = account.server.bundle();
    for (const fs::path& folder : {account.command.home().path(), bundle.parent_path(), bundle})
        fs::permissions(folder, fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(bundle))
        fs::permissions(entry, fs::perms::all);
    auto run = account.command.run(
        {"restore", account.folder.path(), "--machine", "iMac", "--to", home / "back", "--json"},
        account.environment());
    run.environment["HOME"] = home;
    run.words.insert(run.words.begin(),
                     {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    const auto result = test::runProgram(run);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "failed"), 0);
    EXPECT_EQ(field(result, "incomplete"), 0);
    EXPECT_EQ(field(result, "withheld"), field(result, "found")) << result.output;
    // One sentence for owners, one for groups, one for the set-id bit, one for whose runs they are.
    const fs::path back = home / "back" / account.folder.path().filename();
    EXPECT_EQ(platform::readFile(back / "c/d"), "3");
    struct stat status {};
    ASSERT_EQ(stat((back / "a").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 65534U);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    std::size_t owners = 0;
    for (auto at = result.errors.find("owner"); at != std::string::npos;
         at = result.errors.find("\n", at) == std::string::npos
                  ? std::string::npos
                  : result.errors.find("owner", result.errors.find("\n", at)))
        ++owners;
    EXPECT_LE(owners, 2U) << result.errors; // that of the set-id bit says why
    EXPECT_NE(result.errors.find("since only root may do that"), std::string::npos)
        << result.errors;
}

/// The settings of a provider that gives nothing back, and is not asked about versions either.
void takeOutRestoring(const BackedUp& account)
{
    const auto settings = account.server.bundle() / "Resources" / "WebServicesSettings.plist";
    const auto edited =
        test::runProgram({{"/usr/bin/python3", "-c",
                           "import plistlib, sys\n"
                           "tables = plistlib.load(open(sys.argv[1], 'rb'))\n"
                           "assert tables['WebRequests'].pop('DownloadFilePart')\n"
                           "assert tables['WebServices'].pop('GetRestoreTicket')\n"
                           "assert tables['WebServices'].pop('getMetaDataAboutFilesToRecover')\n"
                           "plistlib.dump(tables, open(sys.argv[1], 'wb'))",
                           settings.string()}});
    ASSERT_EQ(edited.status, 0) << edited.errors;
}

TEST(Restore, ThatIsNotConfiguredKeepsNothingFromBeingBackedUp)
{
    const BackedUp account;
    account.write({{"a", "a"}, {"b/c", "c"}});
    takeOutRestoring(account);
    EXPECT_EQ(account.backup().status, 0);
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
    const auto anew = account.backup();
    EXPECT_EQ(anew.status, 0) << anew.errors;
    EXPECT_EQ(field(anew, "failed"), 0) << anew.output;
}

TEST(Restore, SaysWhereItIsNotConfigured)
{
    const BackedUp account;
    account.write({{"a", "a"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto settings = account.server.bundle() / "Resources" / "WebServicesSettings.plist";
    const auto edited = test::runProgram({{"/usr/bin/python3", "-c",
                                           "import plistlib, sys\n"
                                           "tables = plistlib.load(open(sys.argv[1], 'rb'))\n"
                                           "assert tables['WebRequests'].pop('DownloadFilePart')\n"
                                           "assert tables['WebServices'].pop('GetRestoreTicket')\n"
                                           "plistlib.dump(tables, open(sys.argv[1], 'wb'))",
                                           settings.string()}});
    ASSERT_EQ(edited.status, 0) << edited.errors;
    for (const Words& words : {Words{"restore", "/", "--to", "/nowhere"}, Words{"verify"},
                               Words{"runs"}, Words{"cat", "/a"}}) {
        const auto result = account.run(words);
        EXPECT_EQ(result.status, 10) << words[0];
        EXPECT_NE(result.errors.find("estoring is not configured"), std::string::npos)
            << result.errors;
    }
    const auto doctor = account.run({"doctor"});
    EXPECT_NE(doctor.output.find("restoring is not configured"), std::string::npos)
        << doctor.output;
    const auto check = account.run({"settings", "check"});
    EXPECT_NE((check.output + check.errors).find("estoring is not configured"), std::string::npos)
        << check.errors;
}

TEST(StoredItems, AreListedAndFoundAsARunFoundThem)
{
    const BackedUp account;
    account.write({{"old", "12345"}, {"sub/Deep.TXT", "d"}, {"z", "z"}});
    fs::create_directory_symlink("sub", account.folder.path() / "way");
    ASSERT_EQ(account.backup().status, 0);
    fs::remove(account.folder.path() / "old");
    account.write({{"new", "n"}});
    ASSERT_EQ(account.backup().status, 0);
    const std::string folder = account.folder.path();
    const auto names = [](const test::ProgramResult& result) {
        std::string text;
        for (const auto& line : test::jsonLines(result.output)) {
            if (line.contains("path"))
                text += fs::path(line.value("path", "")).filename().string() + " ";
        }
        return text;
    };
    const auto list = [&](const std::string& path, Words more) {
        Words words{"ls", path, "--system", "iMac", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return account.run(words);
    };
    EXPECT_EQ(names(list(folder, {"--at", "1"})), "old sub way z ");
    EXPECT_EQ(names(list(folder, {"--at", "2"})), "new sub way z ");
    EXPECT_EQ(names(list(folder, {"--at", "1", "--sort", "Size", "-r", "--limit", "1"})), "old ");
    EXPECT_EQ(names(list(folder + "/way", {"--at", "1"})), "Deep.TXT ");
    EXPECT_EQ(names(list(folder + "/z", {"--at", "1"})), "z ");
    EXPECT_EQ(list(folder + "/old", {"--at", "2"}).status, 4);
    EXPECT_EQ(list(folder, {"--at", "9"}).status, 4);
    EXPECT_EQ(list(folder, {"--at", "soon"}).status, 2);
    EXPECT_EQ(names(list(folder, {})), "new old sub z ") << "what is stored now";
    const auto search = [&](const std::string& text, Words more) {
        Words words{"search", text, "--system", "iMac", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return account.run(words);
    };
    EXPECT_EQ(names(search("deep", {"--at", "1"})), "Deep.TXT ");
    EXPECT_EQ(names(search("*.txt", {"--at", "1", "--in", folder})), "Deep.TXT ");
    EXPECT_EQ(search("old", {"--at", "2"}).status, 4);
    EXPECT_EQ(names(search("old", {"--at", "1"})), "old ");
}

TEST(Runs, SayHowManyItemsFailed)
{
    const BackedUp account;
    account.write({{"a", "a"}});
    ASSERT_EQ(account.backup({(account.folder.path() / "none").string()}).status, 3);
    ASSERT_EQ(account.backup().status, 0);
    const auto runs = account.run({"runs", "--machine", "iMac", "--json"});
    EXPECT_EQ(test::jsonLines(runs.output).at(0).value("failed", 0), 1) << runs.output;
    EXPECT_EQ(test::jsonLines(runs.output).at(1).value("failed", 7), 0) << runs.output;
    const auto shown = account.run({"runs", "--machine", "iMac"});
    EXPECT_NE(shown.output.find("; 1 failed"), std::string::npos) << shown.output;
}

TEST(Versions, OfAnUnknownFileAreNotFound)
{
    const BackedUp account;
    EXPECT_EQ(account.run({"versions", "4711"}).status, 4);
}

TEST(RestoreFaults, APartThatIsNotHandedOutIsAskedForAgain)
{
    const BackedUp account({"--fault", "DownloadFilePart:2:fault", "--fault",
                            "DownloadFilePart:3:fault", "--fault", "DownloadFilePart:4:fault",
                            "--fault", "DownloadFilePart:5:fault"});
    account.write({{"a", "content"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto result = account.run({"cat", account.folder.path() / "a", "--machine", "iMac"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "content");
}

TEST(RestoreFaults, APartThatNeverFitsItsChecksumIsContentThatIsLost)
{
    const BackedUp account;
    account.write({{"a", "content of a"}, {"b", "content of b"}});
    ASSERT_EQ(account.backup().status, 0);
    test::Relayed relayed(account);
    std::atomic<int> asked = 0;
    relayed.relay.setChange([&](const std::string&, test::RelayedAnswer& answer) {
        if (answer.body != "content of a")
            return;
        answer.body[3] ^= 1; // its checksum stays
        ++asked;
    });
    const auto target = account.command.home().path() / "back";
    const auto result = account.run(
        {"restore", account.folder.path(), "--machine", "iMac", "--to", target.string(), "--json"});
    EXPECT_EQ(result.status, 7) << result.errors;
    EXPECT_EQ(field(result, "damaged"), 1) << result.output;
    EXPECT_EQ(field(result, "failed"), 1);
    EXPECT_GT(asked, 1);
    EXPECT_LT(asked, 10);
    const auto back = target / account.folder.path().filename();
    EXPECT_FALSE(fs::exists(back / "a"));
    EXPECT_EQ(platform::readFile(back / "b"), "content of b");
}

TEST(RestoreFaults, PartsThatAreNeverHandedOutAreATemporaryFailure)
{
    // The backup may read its own note again; nothing after that is handed out.
    std::vector<std::string> faults;
    for (int call = 2; call <= 60; ++call)
        faults.insert(faults.end(),
                      {"--fault", "DownloadFilePart:" + std::to_string(call) + ":fault"});
    const BackedUp account(faults);
    account.write({{"a", "content"}});
    ASSERT_EQ(account.backup({"--retry-time", "1"}).status, 0);
    const auto result =
        account.run({"cat", account.folder.path() / "a", "--machine", "iMac", "--retry-time", "1"});
    EXPECT_EQ(result.status, 5) << result.errors;
}

TEST(RestoreFaults, ACutUploadPathIsAskedForAgain)
{
    const BackedUp account({"--fault", "GetPhyPath:1:cut", "--fault", "GetPhyPath:2:cut", "--fault",
                            "GetPhyPath:3:cut", "--fault", "GetPhyPath:4:cut"});
    account.write({{"a", "content"}});
    const auto result = account.backup({"--retry-time", "60"});
    EXPECT_EQ(result.status, 0) << result.errors;
}

TEST(RestoreFaults, ARecordThatCannotBeStoredIsNotToldAsAFileOfTheSpool)
{
    const BackedUp account({"--fault", "UploadFilePart:*:500"});
    account.write({{"a", "content"}});
    const auto result = account.backup({"--retry-time", "1"});
    EXPECT_EQ(result.status, 6) << result.errors;
    EXPECT_NE(result.errors.find("The record of the run is not stored"), std::string::npos)
        << result.errors;
    EXPECT_EQ(result.errors.find("record.part"), std::string::npos) << result.errors;
}

TEST(Samples, BackUpAndRestoreThroughThePublicEngine)
{
    const BackedUp account;
    account.write({{"a", "content"}, {"sub/b", "more"}});
    const std::string bundle = account.server.bundle();
    const std::string state = account.command.home().path() / "state";
    const std::string target = account.command.home().path() / "back";
    const std::string folder = account.folder.path();
    const test::Environment environment{{"STOWLINE_PASSWORD", account.password},
                                        {"HOME", account.command.home().path()}};
    const auto stored = test::runProgram(
        {{test::builtProgram("sample-backup"), bundle, "ann", state, folder}, environment});
    ASSERT_EQ(stored.status, 0) << stored.errors;
    const auto restored = test::runProgram(
        {{test::builtProgram("sample-restore"), bundle, "ann", state, folder, target},
         environment});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_NE(restored.output.find("Run 1: "), std::string::npos) << restored.output;
    EXPECT_EQ(platform::readFile(fs::path(target) / account.folder.path().filename() / "sub/b"),
              "more");
    test::hideRecord(account, "00000001-finished");
    const auto older = test::runProgram(
        {{test::builtProgram("sample-restore"), bundle, "ann", state, folder, target},
         environment});
    EXPECT_EQ(older.status, 1) << older.output;
}

} // namespace
} // namespace stowline
