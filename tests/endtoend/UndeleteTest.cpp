// Getting back what was deleted, through the command.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/BackedUp.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::BackedUp;
using test::field;
using test::Files;
using test::jsonLines;
using test::Words;

Words removal(const std::string& path)
{
    return {"rm", path, "--system", "iMac", "--yes", "--poll", "0.05"};
}

Words undeletion(Words more = {})
{
    Words words{"undelete", "--system", "iMac", "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

const Files kFiles{{"d/a", "1"}, {"d/e/b", "22"}, {"other", "333"}};

TEST(Undelete, AfterEverythingWasRemovedRunsAndRestoreWorkAgain)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    account.write({{"d/a", "one"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto removed = account.run(removal("/"));
    ASSERT_EQ(removed.status, 0) << removed.errors;
    EXPECT_NE(
        removed.errors.find(
            "For 7 days \"stowline undelete\" brings it back; its space is freed after that."),
        std::string::npos)
        << removed.errors;
    EXPECT_EQ(account.stored(), Files{});
    EXPECT_TRUE(says(removed, "The records of its runs are deleted too.")) << removed.errors;
    const auto none = account.run({"runs", "--machine", "iMac"});
    EXPECT_EQ(none.status, 7) << "this machine has seen some";
    EXPECT_TRUE(says(none, "but run 2 was seen here. If runs were deleted, \"stowline undelete\" "
                           "may bring them back"))
        << none.errors;

    const auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 0) << back.errors;
    EXPECT_EQ(field(back, "undeleted"), 8); // four versions, two runs with a note each
    EXPECT_EQ(field(back, "left"), 0);
    EXPECT_EQ(account.stored(), (Files{{"d/a", "one"}, {"d/e/b", "22"}, {"other", "333"}}));
    const auto runs = account.run({"runs", "--machine", "iMac", "--json"});
    EXPECT_EQ(runs.status, 0) << runs.errors;
    EXPECT_EQ(jsonLines(runs.output).size(), 3U);
    for (const char* run : {"1", "2"}) {
        const auto verified =
            account.run({"verify", "--read", "--at", run, "--machine", "iMac", "--json"});
        EXPECT_EQ(verified.status, 0) << verified.errors;
        EXPECT_EQ(field(verified, "checked"), 3);
    }
    const auto next = account.backup();
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "stored"), 0);
    EXPECT_EQ(field(next, "run"), 3);
}

TEST(Undelete, TakesPathsAndAMomentAndShowsFirst)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    const std::string folder = account.folder.path().string();
    ASSERT_EQ(account.run(removal(folder)).status, 0);

    const auto shown = account.run(undeletion({"-n", folder + "/d"}));
    EXPECT_EQ(shown.status, 0) << shown.errors;
    EXPECT_EQ(field(shown, "would_undelete"), 2);
    EXPECT_EQ(field(shown, "bytes"), 3);
    std::map<std::string, int> sizes; // of what was stored at the same time, in any order
    for (const auto& line : jsonLines(shown.output)) {
        if (line["type"] == "deleted") {
            sizes[line.value("path", "")] = line.value("size", 0);
            EXPECT_NE(line.value("kept_until", ""), "");
        }
    }
    EXPECT_EQ(sizes, (std::map<std::string, int>{{folder + "/d/a", 1}, {folder + "/d/e/b", 2}}));
    EXPECT_EQ(account.stored(), Files{});

    EXPECT_EQ(account.run(undeletion({"--since", "2099-01-01"})).status, 4);
    EXPECT_EQ(account.run(undeletion({"--since", "soon"})).status, 2);
    EXPECT_EQ(account.run(undeletion({"--since", "7"})).status, 2);
    EXPECT_EQ(account.run(undeletion({folder + "/nothing"})).status, 4);
    EXPECT_EQ(account.stored(), Files{});
    EXPECT_EQ(account.run(undeletion({folder + "/d/a", folder + "/other"})).status, 0);
    EXPECT_EQ(account.stored(), (Files{{"d/a", "1"}, {"other", "333"}}));
    EXPECT_EQ(account.run(undeletion({"--since", "2020-01-01"})).status, 0);
    EXPECT_EQ(account.stored(), kFiles);
}

TEST(Undelete, AChainThatWasBegunAnewKeepsItsPlaceUntilItIsRemoved)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    ASSERT_EQ(account.run(removal("/")).status, 0);
    std::filesystem::remove_all(account.command.home().path() / ".local/state/stowline");
    account.write({{"d/a", "new"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto shown = account.run(undeletion({"-n"}));
    EXPECT_EQ(shown.status, 3) << shown.errors;
    EXPECT_EQ(field(shown, "would_undelete"), 3);
    EXPECT_EQ(field(shown, "left"), 2);
    auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 3) << back.errors;
    EXPECT_EQ(field(back, "undeleted"), 3);
    EXPECT_EQ(field(back, "left"), 2);
    EXPECT_NE(back.errors.find("other records of runs stand in the place of theirs"),
              std::string::npos)
        << back.errors;
    EXPECT_EQ(account.run({"verify", "--read", "--machine", "iMac"}).status, 0);
    EXPECT_EQ(account.stored().at("d/a"), "new");

    // Without it the run that was removed first is there again, to the last byte.
    ASSERT_EQ(account.run(removal("/")).status, 0);
    back = account.run(undeletion());
    EXPECT_EQ(back.status, 3) << back.errors;
    EXPECT_EQ(field(back, "left"), 2);
    // This machine saw another run 1 last: it has to be told that the older chain counts.
    EXPECT_EQ(account.run({"verify", "--machine", "iMac"}).status, 7);
    const auto refused = account.backup();
    EXPECT_EQ(refused.status, 7) << refused.errors;
    EXPECT_NE(refused.errors.find("run 1 on the service differs from the one that this machine "
                                  "has seen"),
              std::string::npos)
        << refused.errors;
    std::filesystem::remove_all(account.command.home().path() / ".local/state/stowline");
    EXPECT_EQ(account.run({"verify", "--read", "--machine", "iMac"}).status, 0);
    const test::TemporaryFolder target;
    const auto restored = account.run({"restore", account.folder.path().string(), "--at", "1",
                                       "--machine", "iMac", "--to", target.path().string()});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_EQ(platform::readFile(target.path() / account.folder.path().filename() / "d/a"),
              kFiles.at("d/a"));
}

TEST(Undelete, LostContentIsNoSuccess)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    ASSERT_EQ(account.run(removal(account.folder.path().string())).status, 0);
    std::size_t cut = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(account.server.data() / "vol1")) {
        if (entry.is_regular_file() && entry.file_size() == 3) { // of "other" alone
            std::filesystem::remove(entry.path());
            ++cut;
        }
    }
    ASSERT_EQ(cut, 1U);
    const auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 3) << back.errors;
    EXPECT_EQ(field(back, "undeleted"), 2);
    EXPECT_EQ(field(back, "lost"), 1);
    EXPECT_NE(back.errors.find("1 version cannot come back: the service has lost the content."),
              std::string::npos)
        << back.errors;
}

TEST(Undelete, GoesOnUntilAllIsBackThatOneCallDoesNotTake)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write({{"a", "one"}});
    ASSERT_EQ(account.backup().status, 0);
    ASSERT_EQ(account.run(removal(account.folder.path().string())).status, 0);
    constexpr int more = 2100; // a call takes 2000
    SQLite::Database database((account.server.data() / "files.sqlite").string(),
                              SQLite::OPEN_READWRITE, 5000);
    SQLite::Statement kept(database, "SELECT server_file FROM deleted_versions");
    ASSERT_TRUE(kept.executeStep());
    const std::string content = account.server.data() / kept.getColumn(0).getString().substr(1);
    kept.reset();
    for (int copy = 0; copy < more; ++copy)
        std::filesystem::create_hard_link(content, content + "-" + std::to_string(copy));
    database.exec("WITH RECURSIVE n(n) AS (VALUES (0) UNION ALL SELECT n + 1 FROM n WHERE n < " +
                  std::to_string(more - 1) +
                  ") INSERT INTO deleted_versions SELECT 1000 + n, 1000 + n, user_name,"
                  " system_name, folder, 'f' || n, size, client_date, stored_at,"
                  " server_file || '-' || n, checksum, 0, 0, -1, 'l' || n, stored_size, digest,"
                  " stamp, 1, deleted_at, kept_until, due FROM deleted_versions, n");
    const auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 0) << back.errors;
    EXPECT_EQ(field(back, "undeleted"), more + 1);
    EXPECT_EQ(account.stored().size(), more + 1U);
}

TEST(Undelete, SaysThatRunsStayForgottenUntilAllIsBack)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    const std::string folder = account.folder.path().string();
    {
        devserver::Storage storage(account.server.data());
        const devserver::UploadPlace place{"ann", storage.uploadPath("ann", 99, "n"), "note"};
        (void)storage.registerFile({.place = place,
                                    .systemName = "iMac",
                                    .folder = "/=stowline=/records/chain",
                                    .name = "00000001-forgotten"});
        ASSERT_TRUE(storage.held(place)->isRegistered);
    }
    ASSERT_EQ(account.run(removal(folder)).status, 0);
    const std::string sentence = "1 run is still forgotten";
    auto back = account.run(undeletion({folder + "/d"}));
    EXPECT_EQ(back.status, 0);
    EXPECT_NE(back.errors.find(sentence), std::string::npos) << back.errors;
    back = account.run(undeletion());
    EXPECT_EQ(back.status, 0);
    EXPECT_EQ(back.errors.find(sentence), std::string::npos) << back.errors;
    EXPECT_EQ(account.stored(), kFiles);
}

TEST(Undelete, AServiceThatKeepsNothingSaysSo)
{
    const BackedUp account({"--deletion-pause", "0", "--grace-days", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    const auto removed = account.run(removal(account.folder.path().string()));
    EXPECT_NE(removed.errors.find("The service keeps nothing of what is deleted"),
              std::string::npos)
        << removed.errors;
    const auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 4);
    EXPECT_NE(back.errors.find("This service keeps nothing of what is deleted."), std::string::npos)
        << back.errors;
}

TEST(Undelete, SettingsWithoutItAreSaidToBe)
{
    const BackedUp account({"--deletion-pause", "0"});
    account.write(kFiles);
    ASSERT_EQ(account.backup().status, 0);
    const auto settings = account.server.bundle() / "Resources" / "WebServicesSettings.plist";
    const auto edited = test::runProgram({{"/usr/bin/python3", "-c",
                                           "import plistlib, sys\n"
                                           "tables = plistlib.load(open(sys.argv[1], 'rb'))\n"
                                           "assert tables['WebServices'].pop('GetDeletedFiles')\n"
                                           "assert tables['WebServices'].pop('UndeleteFiles')\n"
                                           "plistlib.dump(tables, open(sys.argv[1], 'wb'))",
                                           settings.string()}});
    ASSERT_EQ(edited.status, 0) << edited.errors;
    const auto back = account.run(undeletion());
    EXPECT_EQ(back.status, 10);
    EXPECT_NE(back.errors.find("Undeleting is not configured"), std::string::npos) << back.errors;
    const auto removed = account.run(removal(account.folder.path().string()));
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(removed.errors.find("undelete"), std::string::npos) << removed.errors;
    const auto doctor = account.run({"doctor"});
    EXPECT_NE(doctor.output.find("undeleting is not configured"), std::string::npos)
        << doctor.output;
    const auto check = account.run({"settings", "check"});
    EXPECT_EQ(check.status, 0);
    EXPECT_NE(check.errors.find("Undeleting is not configured"), std::string::npos) << check.errors;
}

} // namespace
} // namespace stowline
