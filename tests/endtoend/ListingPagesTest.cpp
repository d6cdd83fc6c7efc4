// A service hands out its listings in pages, and what stands on the last one counts as much as what
// stands on the first.
#include "tests/endtoend/Records.h"
#include "tests/endtoend/Relayed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::Relayed;
using test::RelayedAnswer;

/// Leaves so many entries in an answer, as a service with smaller pages does; how many there are in
/// all stays.
void cutPage(RelayedAnswer& answer, std::size_t entries)
{
    const std::string end = "</FileInfo>";
    const std::size_t last = answer.body.rfind(end);
    std::size_t at = 0;
    for (; entries > 0 && last != std::string::npos && at <= last; --entries)
        at = answer.body.find(end, at) + end.size();
    if (last != std::string::npos && at <= last)
        answer.body.erase(at, last + end.size() - at);
}

/// Makes the service's pages small, as long as it exists.
class SmallPages {
public:
    SmallPages(const BackedUp& account, std::size_t entries) : relayed_(account)
    {
        relayed_.relay.setChange([entries](const std::string& request, RelayedAnswer& answer) {
            if (Relayed::callOf(request) == "GetAccountFilesAndFolders")
                cutPage(answer, entries);
        });
    }

    /// How many pages of a folder were asked for.
    [[nodiscard]] std::ptrdiff_t pagesOf(const std::string& folder) const
    {
        return std::ranges::count_if(relayed_.relay.requests(), [&](const std::string& request) {
            return Relayed::callOf(request) == "GetAccountFilesAndFolders" &&
                   request.find(">" + folder + "<") != std::string::npos;
        });
    }

private:
    Relayed relayed_;
};

/// What this machine has kept of earlier runs is gone.
void forgetState(const BackedUp& account)
{
    fs::remove_all(account.command.home().path() / ".local/state/stowline");
}

TEST(ListingPages, OfAFolderAreAllReadBeforeAnythingIsNew)
{
    const BackedUp account;
    Files files;
    for (int i = 0; i < 7; ++i)
        files.emplace("many/f" + std::to_string(i), "content " + std::to_string(i));
    account.write(files);
    ASSERT_EQ(account.backup().status, 0);
    test::hideRecord(account, "00000001-finished"); // so that the listings are all there is
    forgetState(account);
    const SmallPages pages(account, 2);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(field(result, "unchanged"), 7);
    EXPECT_EQ(pages.pagesOf(account.folder.path() / "many"), 4);
}

TEST(ListingPages, OfRecordsAreAllReadBeforeOneIsTheNewest)
{
    const BackedUp account;
    for (const char* content : {"first", "second", "third"}) {
        account.write({{"a", content}});
        ASSERT_EQ(account.backup().status, 0);
    }
    const fs::path file = account.folder.path() / "a";
    forgetState(account); // as on another machine
    const SmallPages pages(account, 1);
    const auto read = account.run({"cat", file, "--machine", "iMac"});
    EXPECT_EQ(read.status, 0) << read.errors;
    EXPECT_EQ(read.output, "third");
    const auto runs = account.run({"runs", "--machine", "iMac", "--json"});
    EXPECT_EQ(test::jsonLines(runs.output).size(), 4U) << runs.output; // three, and the result
    account.write({{"a", "fourth"}});
    const auto next = account.backup();
    EXPECT_EQ(field(next, "run"), 4) << next.output << next.errors;
}

} // namespace
} // namespace stowline
