// Which run is meant by a time, and which runs are told to hold what is lost.
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Words;

/// Waits until the clock shows another second.
void awaitNextSecond()
{
    const std::time_t now = std::time(nullptr);
    while (std::time(nullptr) == now)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

/// A time as the output tells it, some seconds later.
std::string shifted(const std::string& time, int seconds)
{
    std::tm parts{};
    std::istringstream(time) >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    const std::time_t moment = timegm(&parts) + seconds;
    gmtime_r(&moment, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return text.str();
}

TEST(AtATime, TheRunIsTheLastThatHadBegunByThen)
{
    const BackedUp account;
    for (const char* content : {"first", "second", "third"}) {
        awaitNextSecond();
        account.write({{"a", content}});
        ASSERT_EQ(account.backup().status, 0);
    }
    std::vector<std::string> times;
    const auto runs = account.run({"runs", "--machine", "iMac", "--json"});
    for (const auto& line : test::jsonLines(runs.output)) {
        if (line.value("type", "") == "run")
            times.push_back(line["time"]);
    }
    ASSERT_EQ(times.size(), 3U) << runs.output;
    ASSERT_LT(times[0], times[1]);
    ASSERT_LT(times[1], times[2]);
    const auto catAt = [&](const std::string& time) {
        return account.run({"cat", account.folder.path() / "a", "--machine", "iMac", "--at", time});
    };
    EXPECT_EQ(catAt(times[0]).output, "first");
    EXPECT_EQ(catAt(times[1]).output, "second");
    EXPECT_EQ(catAt(shifted(times[1], -1)).output, "first");
    EXPECT_EQ(catAt(shifted(times[2], -1)).output, "second");
    EXPECT_EQ(catAt(shifted(times[2], 3600)).output, "third");
    const auto before = catAt(shifted(times[0], -1));
    EXPECT_EQ(before.status, 4) << before.errors;
    EXPECT_EQ(before.output, "");
}

/// Changes bytes of what the service keeps of a file, as a failing disk does.
void damage(const BackedUp& account, const std::string& name)
{
    devserver::Storage storage(account.server.data());
    const auto page =
        storage
            .search({.userName = "ann", .folder = account.folder.path(), .pageSize = 9}, name, "")
            .value();
    const auto versions = storage.versions("ann", page.items.at(0).id);
    std::fstream file(account.server.data() / versions.at(0).serverFile.substr(1),
                      std::ios::in | std::ios::out | std::ios::binary);
    file << "DAMAGE";
}

TEST(Verify, NamesTheRunsThatHoldWhatIsLost)
{
    const BackedUp account;
    account.write({{"old", "of the first run"}, {"whole", "of the first run too"}});
    ASSERT_EQ(account.backup().status, 0);
    account.write({{"between", "of the second run"}});
    ASSERT_EQ(account.backup().status, 0);
    account.write({{"new", "of the third run"}});
    ASSERT_EQ(account.backup().status, 0);
    damage(account, "old");
    damage(account, "new");
    const auto result = account.run({"verify", "--machine", "iMac", "--read", "--json"});
    EXPECT_EQ(result.status, 7) << result.errors;
    const std::string top = account.folder.path().string() + "/";
    const auto sentenceOf = [&](const std::string& name) {
        const auto at = result.errors.find(top + name + ": ");
        return at == std::string::npos
                   ? result.errors
                   : result.errors.substr(at, result.errors.find('\n', at) - at);
    };
    EXPECT_TRUE(sentenceOf("old").ends_with(" (of the runs from 1 to 3).")) << result.errors;
    EXPECT_TRUE(sentenceOf("new").ends_with(" (of run 3).")) << result.errors;
    std::map<std::string, std::pair<int, int>> runs;
    for (const auto& line : test::jsonLines(result.output)) {
        if (line.value("type", "") == "file")
            runs.emplace(line["path"], std::pair(line["first_run"], line["last_run"]));
    }
    const std::map<std::string, std::pair<int, int>> expected{{top + "old", {1, 3}},
                                                              {top + "new", {3, 3}}};
    EXPECT_EQ(runs, expected) << result.output;
}

TEST(Verify, ReadsTheShareThatWasAskedFor)
{
    const BackedUp account;
    constexpr unsigned count = 100; // none or all of them at 50 %: once in 2 to the 99th
    for (unsigned i = 0; i < count; ++i)
        account.write({{"f" + std::to_string(i), "content " + std::to_string(i)}});
    ASSERT_EQ(account.backup({"--jobs", "8"}).status, 0);
    const auto readAt = [&](const std::string& share) {
        const auto result =
            account.run({"verify", "--machine", "iMac", "--json", "--sample", share});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "checked"), count);
        return field(result, "read").get<unsigned>();
    };
    EXPECT_EQ(readAt("100%"), count);
    const unsigned half = readAt("50%");
    EXPECT_GT(half, 0U);
    EXPECT_LT(half, count);
    for (const char* none : {"x", "0%", "101%", "-1%", ""})
        EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--sample", none}).status, 2) << none;
}

} // namespace
} // namespace stowline
