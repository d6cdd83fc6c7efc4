// What the service loses is noticed, and sent again; two states of one machine do not break the
// chain.
#include "stowline/backup/BackupRun.h"
#include "stowline/util/Crc32.h"
#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/Relayed.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::Relayed;
using test::Words;

/// Where the service keeps the newest version of what lies at a path of the machine.
fs::path contentOf(const BackedUp& account, const std::string& folder, const std::string& name)
{
    devserver::Storage storage(account.server.data());
    const auto page =
        storage.search({.userName = "ann", .folder = folder, .pageSize = 100}, name, "").value();
    const auto versions = storage.versions("ann", page.items.at(0).id);
    return account.server.data() / versions.at(0).serverFile.substr(1);
}

fs::path recordOf(const BackedUp& account, const std::string& name)
{
    return contentOf(account, "/=stowline=/records", name);
}

void damage(const fs::path& file)
{
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(12);
    stream << "damage";
}

test::ProgramResult restored(const BackedUp& account, const std::string& name)
{
    return account.run({"restore", account.folder.path().string(), "--machine", "iMac", "--to",
                        (account.command.home().path() / name).string()});
}

class LostContent : public testing::Test {
protected:
    LostContent()
    {
        account_.write({{"a", "content that is long enough"}, {"b", "and some more of it"}});
        EXPECT_EQ(account_.backup().status, 0);
    }
    const BackedUp account_;
};

TEST_F(LostContent, IsSentAgainWhenNothingIsTrusted)
{
    fs::remove(contentOf(account_, account_.folder.path(), "a"));
    damage(contentOf(account_, account_.folder.path(), "b"));
    const auto result = account_.backup({"--trust-nothing"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 2) << result.output;
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, OfAPathThatIsNotBackedUpNowIsNoSuccessAndStaysTold)
{
    account_.write({{"other/x", "of another path"}});
    ASSERT_EQ(account_.backup().status, 0);
    const auto run = [this](const std::string& name, const Words& more) {
        Words words{"backup", account_.folder.path() / name, "--system", "iMac", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    };
    fs::remove(contentOf(account_, account_.folder.path(), "a"));
    const std::string told =
        "The service does not have what was stored of 1 file any more, and this "
        "run did not look at it: " +
        (account_.folder.path() / "a").string() + ".";
    const auto first = run("other", {"--trust-nothing"});
    EXPECT_EQ(first.status, 3) << first.errors;
    EXPECT_NE(first.errors.find(told), std::string::npos) << first.errors;
    const auto second = run("other", {});
    EXPECT_EQ(second.status, 3) << second.errors;
    EXPECT_NE(second.errors.find(told), std::string::npos) << second.errors;
    const auto checked = account_.run({"verify", "--machine", "iMac", "--json"});
    EXPECT_EQ(checked.status, 7) << checked.errors;
    EXPECT_EQ(field(checked, "missing"), 1) << checked.output;
    const auto whole = account_.backup();
    EXPECT_EQ(whole.status, 0) << whole.errors;
    EXPECT_EQ(field(whole, "stored"), 1);
    EXPECT_EQ(whole.errors.find("did not send again"), std::string::npos) << whole.errors;
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
}

TEST_F(LostContent, ThatThisMachineDeletedIsSentAgainByTheNextRun)
{
    for (int i = 0; i < 60; ++i)
        account_.write({{"more/" + std::to_string(i), "content " + std::to_string(i)}});
    ASSERT_EQ(account_.backup().status, 0);
    std::string list;
    {
        devserver::Storage storage(account_.server.data());
        const auto page = storage.search(
            {.userName = "ann", .folder = account_.folder.path(), .pageSize = 100}, "37", "");
        list = storage.versions("ann", page.value().items.at(0).id).at(0).listId;
    }
    ASSERT_EQ(account_.run({"rm", "--version", list, "--yes"}).status, 0);
    const auto result = account_.backup();
    EXPECT_EQ(field(result, "stored"), 1) << result.output << result.errors;
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
    ASSERT_EQ(
        account_.run({"rm", account_.folder.path() / "more", "--system", "iMac", "--yes"}).status,
        0);
    EXPECT_EQ(field(account_.backup(), "stored"), 60);
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
}

TEST_F(LostContent, ThatThisMachineWasToldOfIsSentAgainByTheNextRun)
{
    Files files;
    for (int i = 10; i < 90; ++i)
        files.emplace("many/" + std::to_string(i), "content " + std::to_string(i));
    account_.write(files);
    ASSERT_EQ(account_.backup().status, 0);
    const auto lose = [&](const char* name) {
        fs::remove(contentOf(account_, account_.folder.path() / "many", name));
    };
    lose("77");
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 7);
    const auto dry = account_.backup({"--dry-run"});
    EXPECT_EQ(field(dry, "stored"), 0);
    EXPECT_EQ(field(dry, "would_store"), 1) << dry.output;
    EXPECT_EQ(field(account_.backup(), "stored"), 1);
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
    lose("66");
    EXPECT_EQ(restored(account_, "back").status, 7);
    EXPECT_EQ(field(account_.backup(), "stored"), 1);
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, IsWhatWasReadToBeOtherBytesWhateverTheServiceSays)
{
    std::string version;
    {
        devserver::Storage storage(account_.server.data());
        const auto page = storage.search(
            {.userName = "ann", .folder = account_.folder.path(), .pageSize = 100}, "a", "");
        version = std::to_string(storage.versions("ann", page.value().items.at(0).id).at(0).id);
    }
    const std::string other = "4711";
    backup::noteDeletedVersions(account_.command.home().path() / ".local/state/stowline",
                                std::vector{version, other});
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(field(account_.backup(), "stored"), 0);
}

/// What is read of a file are other bytes, with their own checksum, though the service says that it
/// holds what was stored.
class OtherBytes : public LostContent, public testing::WithParamInterface<const char*> {
protected:
    [[nodiscard]] Words reading() const
    {
        const std::string command = GetParam();
        const std::string file = account_.folder.path() / "a";
        if (command == "restore")
            return {command, file, "--machine", "iMac", "--to", account_.command.home().path()};
        if (command == "cat")
            return {command, file, "--machine", "iMac"};
        return {command, "--machine", "iMac", "--read"};
    }
};

TEST_P(OtherBytes, AreNotTakenForUnchangedByTheNextBackup)
{
    {
        Relayed relayed(account_);
        relayed.relay.setChange([](const std::string& request, test::RelayedAnswer& answer) {
            if (Relayed::callOf(request) != "/DownloadFilePart" ||
                answer.body.find("content that is") == std::string::npos)
                return;
            answer.body.front() = 'C';
            const auto sum = Crc32::TW_crc32(Data(answer.body.begin(), answer.body.end()));
            answer.setHeader("X-Checksum", fmt::format("{:08x}", sum));
        });
        const auto read = account_.run(reading());
        EXPECT_EQ(read.status, 7) << read.output << read.errors;
    }
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(account_.run(reading()).status, 0);
}

INSTANTIATE_TEST_SUITE_P(ThatAreRead, OtherBytes, testing::Values("restore", "cat", "verify"),
                         [](const auto& test) { return std::string(test.param); });

/// A backup of the folders "a" and "b", of which the service loses "b/two".
class LostElsewhere : public testing::Test {
protected:
    LostElsewhere()
    {
        account_.write({{"a/one", "content"}, {"b/two", "some more"}, {"b/three", "the rest"}});
        EXPECT_EQ(backup({"a", "b"}).status, 0);
        lost_ = contentOf(account_, account_.folder.path() / "b", "two");
        fs::rename(lost_, kept());
    }

    [[nodiscard]] fs::path kept() const { return account_.server.data() / "kept"; }
    [[nodiscard]] test::ProgramResult backup(const Words& folders) const
    {
        Words words{"backup", "--json", "--system", "iMac"};
        for (const std::string& folder : folders)
            words.push_back(account_.folder.path() / folder);
        return account_.run(words);
    }
    [[nodiscard]] int verified() const
    {
        return account_.run({"verify", "--machine", "iMac", "--read"}).status;
    }

    const BackedUp account_;
    fs::path lost_;
};

TEST(DeletedFolder, IsNoLossForRunsThatDoNotLookAtIt)
{
    const BackedUp account;
    account.write({{"a/one", "content"}, {"b/two", "some more"}});
    const auto backup = [&account](const std::string& name) {
        return account.run({"backup", "--json", "--system", "iMac", account.folder.path() / name});
    };
    ASSERT_EQ(account.backup().status, 0);
    ASSERT_EQ(account.run({"rm", account.folder.path() / "b", "--system", "iMac", "--yes"}).status,
              0);
    const auto first = backup("a");
    EXPECT_EQ(first.status, 0) << first.errors;
    EXPECT_NE(first.errors.find("it was deleted on the service: " +
                                (account.folder.path() / "b/two").string() + "."),
              std::string::npos)
        << first.errors;
    const auto second = backup("a");
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.errors, "");
    EXPECT_EQ(account.run({"verify", "--machine", "iMac"}).status, 0);
    // As long as it is here it is backed up again.
    EXPECT_EQ(field(backup("b"), "stored"), 1);
    EXPECT_EQ(account.stored().size(), 2U);
    // What the service lost by itself is a loss, whatever was deleted once.
    fs::remove(contentOf(account, account.folder.path() / "b", "two"));
    const auto lost = account.run(
        {"backup", "--json", "--system", "iMac", "--trust-nothing", account.folder.path() / "a"});
    EXPECT_EQ(lost.status, 3) << lost.errors;
}

TEST_F(LostElsewhere, EndsEveryRunThatDoesNotLookAtItAndStaysInTheRecord)
{
    EXPECT_EQ(verified(), 7);
    for (int run = 2; run < 4; ++run) {
        const auto result = backup({"a"});
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_NE(
            result.errors.find("not have what was stored of 1 file any more, and this run did not "
                               "look at it: " +
                               (account_.folder.path() / "b/two").string() + "."),
            std::string::npos)
            << result.errors;
        EXPECT_EQ(field(result, "stored"), 0) << result.output;
        EXPECT_EQ(verified(), 7);
    }
    const auto runs = test::jsonLines(account_.run({"runs", "--machine", "iMac", "--json"}).output);
    ASSERT_EQ(runs.size(), 4U); // the last line is the result
    EXPECT_EQ(runs[0]["failed"], 0);
    EXPECT_EQ(runs[2]["failed"], 1);
    const auto result = backup({"a", "b"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(verified(), 0);
}

TEST_F(LostElsewhere, IsGivenBackWhenTheServiceFindsItAgain)
{
    EXPECT_EQ(verified(), 7);
    EXPECT_EQ(backup({"a"}).status, 3);
    fs::rename(kept(), lost_);
    EXPECT_EQ(verified(), 0);
    fs::remove_all(account_.folder.path() / "b");
    const auto result = backup({"a"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(restored(account_, "back").status, 0);
    EXPECT_TRUE(fs::exists(account_.command.home().path() / "back" /
                           account_.folder.path().filename() / "b/two"));
}

TEST_F(LostElsewhere, IsNoLossOfWhatIsNoMoreOnTheMachine)
{
    EXPECT_EQ(verified(), 7);
    fs::remove(account_.folder.path() / "b/two");
    const auto result = backup({"b"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(verified(), 0);
}

TEST_F(LostElsewhere, StaysKnownAsDamagedUntilItIsSentAgain)
{
    fs::rename(kept(), lost_);
    std::string version;
    {
        devserver::Storage storage(account_.server.data());
        const auto page = storage.search(
            {.userName = "ann", .folder = account_.folder.path() / "b", .pageSize = 9}, "two", "");
        version = std::to_string(storage.versions("ann", page.value().items.at(0).id).at(0).id);
    }
    backup::noteDeletedVersions(account_.command.home().path() / ".local/state/stowline",
                                std::vector{version});
    EXPECT_EQ(backup({"a"}).status, 3);
    EXPECT_EQ(backup({"a"}).status, 3);
    const auto result = backup({"a", "b"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(backup({"a"}).status, 0);
}

TEST_F(LostContent, IsNoticedWithinThePromisedRuns)
{
    fs::remove(contentOf(account_, account_.folder.path(), "a"));
    unsigned stored = 0;
    for (int run = 0; run < 4; ++run) // one of some four versions each
        stored += field(account_.backup(), "stored").get<unsigned>();
    EXPECT_EQ(stored, 1U);
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, OfOneFileMakesTheRunAskAfterAll)
{
    Files files;
    for (int i = 10; i < 50; ++i)
        files.emplace("many/" + std::to_string(i), "content " + std::to_string(i));
    account_.write(files);
    ASSERT_EQ(account_.backup().status, 0);
    for (const auto& [name, content] : files)
        fs::remove(contentOf(account_, account_.folder.path() / "many", name.substr(5)));
    fs::remove(contentOf(account_, account_.folder.path(), "a"));
    // Of those that were stored first, one is among the first that are asked about.
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 41) << result.output;
    EXPECT_NE(result.errors.find("asked about all of it"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("has lost what was stored of 41 files"), std::string::npos)
        << result.errors;
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, ANumberThatWasGivenAgainToAnotherFileIsALoss)
{
    {
        // As after the service's data of an earlier day were put back, and others stored files.
        SQLite::Database files(account_.server.data() / "files.sqlite", SQLite::OPEN_READWRITE);
        const auto numberOf = [&files](const std::string& name) {
            SQLite::Statement query(files, "SELECT versions.id FROM versions JOIN items ON items.id"
                                           " = versions.item_id WHERE items.name = ?");
            query.bind(1, name);
            EXPECT_TRUE(query.executeStep());
            return std::to_string(query.getColumn(0).getInt64());
        };
        const std::string a = numberOf("a");
        const std::string b = numberOf("b");
        files.exec("UPDATE versions SET id = -1 WHERE id = " + a);
        files.exec("UPDATE versions SET id = " + a + " WHERE id = " + b);
        files.exec("UPDATE versions SET id = " + b + " WHERE id = -1");
    }
    const auto verified = account_.run({"verify", "--machine", "iMac"});
    EXPECT_NE(verified.status, 0) << verified.output;
    const auto result = account_.backup({"--trust-nothing"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 2) << result.output;
    EXPECT_EQ(restored(account_, "back").status, 0);
    EXPECT_EQ(account_.run({"verify", "--machine", "iMac"}).status, 0);
}

TEST_F(LostContent, IsNotSeenWhereOnlyTheNamesAreOdd)
{
    for (const char* method : {"protect2", "ProtectFile"}) {
        const std::string folder = std::string(method) + "/";
        for (const char* name :
             {" before", "behind ", "line\nline", "tab\t", "return\r", "back\\slash/file",
              "not utf-8 \xff", "umlaut \xc3\xa4", "two  spaces/ \xc2\xa0 ", "<&>\"'", "=b64=x"})
            account_.write({{folder + name, name}});
        ASSERT_EQ(account_.backup({"--register-with", method}).status, 0);
    }
    const auto result = account_.backup({"--trust-nothing"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output << result.errors;
}

TEST_F(LostContent, OfTheNewestRecordMakesTheNextOneWhole)
{
    damage(recordOf(account_, "00000001-finished"));
    account_.write({{"c", "new"}});
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("stores a full record"), std::string::npos) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1);
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, OfAnIndexAndARecordLeavesNothingThatCannotBeGivenBack)
{
    damage(recordOf(account_, "00000001-finished"));
    fs::remove_all(account_.command.home().path() / ".local/state/stowline");
    const auto result = account_.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(restored(account_, "back").status, 0);
}

TEST_F(LostContent, AnotherStateOfThisMachineIsNotBuiltOn)
{
    const fs::path state = account_.command.home().path() / ".local/state/stowline";
    const fs::path copy = account_.command.home().path() / "copy";
    fs::copy(state, copy, fs::copy_options::recursive);
    account_.write({{"c", "one"}});
    ASSERT_EQ(account_.backup().status, 0); // run 2 of this state
    account_.write({{"d", "two"}});
    // The other state does not know of it, and the index that it holds is at run 1.
    fs::rename(state, account_.command.home().path() / "first");
    fs::rename(copy, state);
    ASSERT_EQ(account_.backup().status, 0);
    fs::rename(state, copy);
    fs::rename(account_.command.home().path() / "first", state);
    account_.write({{"e", "three"}});
    ASSERT_EQ(account_.backup().status, 0);
    EXPECT_EQ(restored(account_, "back").status, 0);
    EXPECT_TRUE(fs::exists(account_.command.home().path() / "back" /
                           account_.folder.path().filename() / "d"));
}

TEST(LostContentThatIsNotTakenAgain, IsMissingInTheRunThatCouldNotSendIt)
{
    // Of the first run two records and a file; of the second one a record, then the file.
    const BackedUp account({"--fault", "protect2:5:fault"});
    account.write({{"a", "content"}});
    ASSERT_EQ(account.backup().status, 0);
    fs::remove(contentOf(account, account.folder.path(), "a"));
    EXPECT_EQ(account.run({"verify", "--machine", "iMac"}).status, 7);
    const auto result = account.backup({"--retry-time", "0"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "failed"), 1) << result.output << result.errors;
    EXPECT_EQ(account.run({"verify", "--machine", "iMac"}).status, 7);
    EXPECT_EQ(account.backup().status, 0);
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

TEST(ServiceFromAnEarlierDay, IsSentAgainWhatARunStoredThatItKnowsNothingOf)
{
    BackedUp account;
    for (int i = 10; i < 50; ++i)
        account.write({{std::to_string(i), "content"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path data = account.server.data();
    const fs::path image = account.command.home().path() / "image";
    fs::copy(data, image, fs::copy_options::recursive);
    for (int i = 30; i < 40; ++i)
        account.write({{std::to_string(i), "other content"}});
    account.write({{"large", test::noise(1280000, 1)}});
    test::BackgroundProgram run(
        account.backupRun({"--jobs", "1", "--part-size", "64k", "--bwlimit", "128k"}));
    account.awaitSent(65536); // it comes last: what was before it is stored
    run.signal(SIGINT);
    ASSERT_EQ(run.wait().status, 130);
    fs::remove(account.folder.path() / "large");
    fs::rename(data, account.command.home().path() / "later");
    fs::rename(image, data);
    account.server.killAndRestart();
    const auto dry = account.backup({"--dry-run"});
    EXPECT_EQ(field(dry, "would_store"), 10) << dry.output << dry.errors;
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("seems to be back at an earlier state"), std::string::npos)
        << result.errors;
    EXPECT_EQ(field(result, "stored"), 10) << result.output;
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
    const auto next = account.backup();
    EXPECT_EQ(next.errors.find("earlier state"), std::string::npos) << next.errors;
}

/// What another profile has stored counts as stored, but not what the service has no more.
TEST_F(LostContent, IsNotTakenForStoredByARunThatKnowsNothing)
{
    fs::remove(contentOf(account_, account_.folder.path(), "a"));
    for (const char* more : {"", "--trust-nothing"}) {
        const std::string profile = std::string("other") + more;
        Words words{"--profile", profile};
        if (*more != '\0')
            words.emplace_back(more);
        const auto result = account_.backup(words);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "stored"), 1) << result.output;
        EXPECT_EQ(field(result, "unchanged"), 1) << result.output;
        EXPECT_EQ(account_.run({"verify", "--machine", "iMac", "--profile", profile}).status, 0);
        fs::remove(contentOf(account_, account_.folder.path(), "a"));
    }
}

TEST_F(LostContent, OtherContentOfTheSameSizeAndChecksumIsSent)
{
    // Two contents whose difference is a multiple of the polynomial have the same CRC-32.
    const std::string first = "the first content";
    const std::string other = "5n\x14\xfb"
                              "girst content";
    ASSERT_EQ(Crc32::TW_crc32(Data(first.begin(), first.end())),
              Crc32::TW_crc32(Data(other.begin(), other.end())));
    account_.write({{"c", first}});
    ASSERT_EQ(account_.backup().status, 0);
    account_.write({{"c", other}});
    const auto result = account_.backup({"--profile", "other"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(account_.stored().at("c"), other);
}

TEST(UntoldVersion, IsLearntFromTheListingsOrSentAgain)
{
    const BackedUp account({"--fault", "GetServerPartInfo:*:fault"});
    account.write({{"a", "content"}, {"b", "more of it"}});
    ASSERT_EQ(account.backup().status, 0);
    {
        devserver::Storage storage(account.server.data());
        const auto page = storage.search({.userName = "ann", .pageSize = 9}, "b", "").value();
        for (const auto& item : page.items) {
            if (item.name != "b")
                continue;
            const auto versions = storage.versions("ann", item.id);
            ASSERT_TRUE(storage.deleteVersion("ann", versions.at(0).listId));
        }
    }
    const auto result = account.backup({"--trust-nothing"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_EQ(field(result, "unchanged"), 1) << result.output;
    EXPECT_EQ(restored(account, "back").status, 0);
}

TEST(RegistrationThatIsNone, OfARecordLeavesNoRunThatNobodyFinds)
{
    // The record of the beginning is the first, the file the second, that of the end the third.
    const BackedUp account(
        {"--fault", "protect2:3:lie", "--fault", "protect2:4:lie", "--fault", "protect2:5:lie"});
    account.write({{"a", "content"}});
    const auto result = account.backup();
    EXPECT_NE(result.status, 0) << result.output;
    EXPECT_NE(result.errors.find("The record of the run is not stored"), std::string::npos)
        << result.errors;
    const auto next = account.backup();
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(restored(account, "back").status, 0);
}

TEST(RegistrationThatIsNone, OfAFileIsRepeated)
{
    const BackedUp account({"--fault", "protect2:2:lie"});
    account.write({{"a", "content"}});
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), (Files{{"a", "content"}}));
}

} // namespace
} // namespace stowline
