// Looking at what is stored, and the account, through the command.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using test::BackedUp;
using test::field;
using test::jsonLines;

std::vector<std::string> namesIn(const test::ProgramResult& result)
{
    std::vector<std::string> names;
    for (const auto& line : jsonLines(result.output)) {
        if (line.contains("path"))
            names.push_back(std::filesystem::path(line["path"].get<std::string>()).filename());
    }
    return names;
}

using Names = std::vector<std::string>;

TEST(Browse, ListsPageAfterPage)
{
    const BackedUp account;
    for (int i = 0; i < 25; ++i)
        account.folder.write("f" + std::to_string(100 + i), std::string(25 - i, 'x'));
    ASSERT_EQ(account.backup({"--jobs", "8"}).status, 0);
    const std::string folder = account.folder.path().string();
    const auto listed =
        account.run({"ls", folder, "--system", "iMac", "--page-size", "10", "--json"});
    EXPECT_EQ(namesIn(listed).size(), 25U);
    EXPECT_EQ(namesIn(listed).front(), "f100");
    const auto largest = account.run({"ls", folder + "/", "--system", "iMac", "--sort", "Size",
                                      "--reverse", "--limit", "2", "--json"});
    EXPECT_EQ(namesIn(largest), (Names{"f100", "f101"}));
    EXPECT_EQ(account.run({"ls", "/nowhere", "--system", "iMac"}).status, 4);
    EXPECT_EQ(account.run({"systems"}).output, "MACHINE\niMac\n");
}

TEST(Browse, ShowsNoRecordsOfRuns)
{
    const BackedUp account;
    account.write({{"a", "1"}});
    ASSERT_EQ(account.backup().status, 0);
    const std::string top = *std::next(account.folder.path().begin()); // "tmp"
    EXPECT_EQ(namesIn(account.run({"ls", "/", "--system", "iMac", "--json"})), (Names{top}));
    EXPECT_EQ(namesIn(account.run({"search", "*", "--json"})), (Names{"a"}));
    EXPECT_EQ(namesIn(account.run({"search", "*finished*", "--json"})), Names());
}

TEST(Browse, ListsAFileThatIsNamedAndKnowsWhatIsNotThere)
{
    const BackedUp account;
    account.write({{"a", "content"}, {"ab", "more"}});
    ASSERT_EQ(account.backup().status, 0);
    const auto file =
        account.run({"ls", account.folder.path() / "a", "--system", "iMac", "--json"});
    EXPECT_EQ(file.status, 0) << file.errors;
    EXPECT_EQ(namesIn(file), Names{"a"});
    EXPECT_EQ(account.run({"ls", account.folder.path() / "b", "--system", "iMac"}).status, 4);
    EXPECT_EQ(account.run({"ls", "/", "--system", "iMac"}).status, 0);
    const auto machine = account.run({"ls", "/", "--system", "none"});
    EXPECT_EQ(machine.status, 4);
    EXPECT_NE(machine.errors.find("The service knows no machine none in this account."),
              std::string::npos)
        << machine.errors;
}

TEST(Browse, ShowsTablesInUnitsAndTheLocalZone)
{
    const BackedUp account;
    const auto file = account.folder.write("evil\u202etxt.exe", std::string(1536, 'x'));
    const std::chrono::sys_seconds moment =
        std::chrono::sys_days(std::chrono::year(2026) / 1 / 31) + std::chrono::hours(23);
    std::filesystem::last_write_time(file,
                                     std::filesystem::file_time_type::clock::from_sys(moment));
    ASSERT_EQ(account.backup().status, 0);
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const std::string folder = account.folder.path().string();
    const auto line =
        jsonLines(account.run({"ls", folder, "--system", "iMac", "--json"}).output)[0];
    const std::string number = line["id"].dump();
    const std::string id = std::string(8 - number.size(), ' ') + number;
    EXPECT_EQ(account.run({"ls", folder, "--system", "iMac"}).output,
              "      ID      SIZE  MODIFIED                  NAME\n" + id +
                  "    1.5 kB  2026-02-01 00:00:00 CET   evil?txt.exe\n");
    const auto found = account.run({"search", "evil*"});
    EXPECT_EQ(found.output, "      ID      SIZE  MODIFIED                  NAME\n" + id +
                                "    1.5 kB  2026-02-01 00:00:00 CET   iMac:" + folder +
                                "/evil?txt.exe\n");
    const auto versions = account.run({"versions", number}).output;
    EXPECT_TRUE(
        versions.starts_with(" VERSION      SIZE  DATE                      CRC-32    LIST\n"))
        << versions;
    EXPECT_NE(versions.find("    1.5 kB  2026-02-01 00:00:00 CET   "), std::string::npos)
        << versions;
    // What programs read is as it was.
    EXPECT_EQ(line["path"], file.string());
    EXPECT_EQ(line["size"], 1536);
    EXPECT_EQ(line["modified"], "2026-01-31 23:00:00");
}

TEST(Browse, FindsVersionsAndDeletesThem)
{
    const BackedUp account;
    account.folder.write("letter.txt", "one");
    ASSERT_EQ(account.backup().status, 0);
    account.folder.write("letter.txt", "second");
    ASSERT_EQ(account.backup().status, 0);
    const auto found = account.run({"search", "LETTER", "--json"});
    ASSERT_EQ(namesIn(found), Names{"letter.txt"});
    const std::string id = std::to_string(jsonLines(found.output)[0]["id"].get<int>());
    const auto versions = jsonLines(account.run({"versions", id, "--json"}).output);
    ASSERT_EQ(versions.size(), 3U);
    EXPECT_EQ(versions[0]["size"], 6);
    EXPECT_EQ(versions[1]["size"], 3);

    const auto info = account.run({"restore-info", versions[1]["id"].dump(), "--json"});
    EXPECT_EQ(info.status, 0) << info.errors;
    const auto file = jsonLines(info.output).at(0)["ServerPath"].get<std::string>();
    EXPECT_EQ(platform::readFile(account.server.data() / file.substr(1)), "one");
    EXPECT_EQ(account.run({"restore-info", "99999"}).status, 4);

    const auto list = versions[0]["list"].get<std::string>();
    EXPECT_EQ(account.run({"rm", "--version", list}).status, 2);
    EXPECT_EQ(account.run({"rm", "--version", list, "-n"}).status, 0);
    EXPECT_EQ(account.run({"rm", "--version", list, "--yes"}).status, 0);
    EXPECT_EQ(account.run({"rm", "--version", list, "--yes"}).status, 6);
    EXPECT_EQ(account.stored(), (test::Files{{"letter.txt", "one"}}));
    EXPECT_EQ(account.run({"versions", "99999"}).status, 4);
    EXPECT_EQ(account.run({"search", "nothing like it"}).status, 4);
}

TEST(Browse, TellsOfTheAccount)
{
    const BackedUp account;
    account.folder.write("a", std::string(5000, 'x'));
    ASSERT_EQ(account.backup().status, 0);
    const auto result = account.run({"account", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    // The file, and the record of the run with its note.
    EXPECT_EQ(field(result, "used_kb"), 6);
    EXPECT_EQ(field(result, "AccountStatus"), "Active");
    EXPECT_EQ(field(result, "encryption_key"), nullptr);
    EXPECT_EQ(field(account.run({"account", "--show-encryption-key", "--json"}), "encryption_key")
                  .get<std::string>()
                  .size(),
              64U);
}

} // namespace
} // namespace stowline
