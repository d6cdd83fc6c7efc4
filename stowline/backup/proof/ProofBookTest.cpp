#include "stowline/backup/proof/ProofBook.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;
using Outcome = ProofBook::Outcome;

const IndexOwner kOwner{"https://s", "ann", "box", "m-1", "ann", "default"};
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kStart = 1'700'000'000;
constexpr std::uint64_t kNoBound = UINT64_MAX;

StoredItem fileAt(const std::string& path, std::uint64_t size, const std::string& version = "1")
{
    StoredItem stored;
    stored.item.path = path;
    stored.item.size = size;
    stored.content =
        StoredContent{.version = version, .digest = std::string(64, '0'), .storedSize = size};
    return stored;
}

StoredItem folderAt(const std::string& path)
{
    StoredItem stored;
    stored.item.path = path;
    stored.item.kind = ItemKind::folder;
    return stored;
}

/// Ten bytes each.
std::vector<StoredItem> hundredFiles()
{
    std::vector<StoredItem> items(100);
    for (std::size_t i = 0; i < items.size(); ++i)
        items[i] = fileAt("/f" + std::to_string(i), 10);
    return items;
}

class ProofBookTest : public ::testing::Test {
protected:
    [[nodiscard]] fs::path file() const { return folder_.path() / "book.db"; }

    void reopen(std::int64_t now = kStart) { book.emplace(ProofBook::open(file(), kOwner, now)); }

    void addWhole(std::uint64_t run, const std::vector<StoredItem>& items,
                  std::int64_t now = kStart)
    {
        book->beginRun({run, "d" + std::to_string(run)}, {}, now);
        for (const StoredItem& item : items)
            book->hold(item);
        book->endRun();
    }

    void addDifference(std::uint64_t run, const std::vector<StoredItem>& items,
                       const std::vector<std::string>& gone, std::int64_t now = kStart)
    {
        book->beginRun({run, "d" + std::to_string(run)}, book->newest(), now);
        for (const StoredItem& item : items)
            book->hold(item);
        for (const std::string& path : gone)
            book->drop(path);
        book->endRun();
    }

    /// One self-test in which everything is well. @return the paths
    std::vector<std::string> test(double share, std::uint64_t mostBytes, std::int64_t now)
    {
        std::vector<std::string> paths;
        std::vector<ProofBook::Settlement> settlements;
        for (const ProofCandidate& content : sample(share, mostBytes).contents) {
            paths.push_back(content.path);
            settlements.push_back({content.key, Outcome::proven});
        }
        book->settle(settlements, now);
        return paths;
    }

    struct Sample {
        std::vector<ProofCandidate> contents;
        bool isShortOfBytes = false;
    };
    Sample sample(double share, std::uint64_t mostBytes)
    {
        const auto choice = book->choose(share, mostBytes, kNoBound);
        Sample sample{book->nextChosen(SIZE_MAX, kNoBound), choice.isShortOfBytes};
        EXPECT_EQ(choice.contents, sample.contents.size());
        EXPECT_TRUE(book->nextChosen(1, kNoBound).empty());
        return sample;
    }

    [[nodiscard]] std::vector<std::string> pathsOfAll()
    {
        std::vector<std::string> paths;
        for (const ProofCandidate& content : sample(2, kNoBound).contents)
            paths.push_back(content.path + "@" + std::to_string(content.firstRun) + "-" +
                            std::to_string(content.lastRun));
        std::ranges::sort(paths);
        return paths;
    }

    test::TemporaryFolder folder_;
    std::optional<ProofBook> book = ProofBook::open(file(), kOwner, kStart);
};

using Paths = std::vector<std::string>;

TEST(ProofCost, OfAllContentsIsOne)
{
    const std::vector<std::uint64_t> sizes{0, 0, 1, 10, 1000, 100000};
    double sum = 0;
    for (const std::uint64_t size : sizes)
        sum += proofCost(size, sizes.size(), 101011);
    EXPECT_DOUBLE_EQ(sum, 1.0);
    EXPECT_DOUBLE_EQ(proofCost(0, 4, 0), 0.25);
    EXPECT_DOUBLE_EQ(proofCost(50, 10, 100), 0.3);
}

TEST_F(ProofBookTest, ProvesEverythingOnceInThirtyDailyTestsOfAThirtieth)
{
    std::vector<StoredItem> items;
    for (std::uint64_t i = 0; i < 300; ++i)
        items.push_back(fileAt("/f" + std::to_string(i), i % 7 == 0 ? 0 : i * i));
    addWhole(1, items);
    std::set<std::string> seen;
    for (int day = 1; day <= 30; ++day) {
        const auto tested = test(1.0 / 30, kNoBound, kStart + day * kDay);
        // Of files without bytes it takes twenty to spend the share, of others fewer.
        EXPECT_LE(tested.size(), 21U) << "on day " << day;
        for (const std::string& path : tested)
            EXPECT_TRUE(seen.insert(path).second || seen.size() == items.size())
                << path << " came again before its turn on day " << day;
    }
    EXPECT_EQ(seen.size(), items.size());
    const std::int64_t end = kStart + 30 * kDay;
    EXPECT_EQ(book->totals(end - 30 * kDay, kNoBound).provenFiles, items.size());
}

TEST_F(ProofBookTest, ProvesNoMoreThanItsShare)
{
    addWhole(1, hundredFiles());
    for (int day = 1; day <= 10; ++day)
        EXPECT_EQ(test(0.1, kNoBound, kStart + day * kDay).size(), 10U) << day;
    const auto totals = book->totals(0, kNoBound);
    EXPECT_EQ(totals.provenFiles, 100U);
    EXPECT_EQ(totals.provenBytes, 1000U);
    EXPECT_EQ(book->totals(kStart + 5 * kDay, kNoBound).provenFiles, 50U);
}

TEST_F(ProofBookTest, TakesWhatWasProvenLongestAgoFirst)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/b", 1), fileAt("/c", 1)});
    const auto all = sample(2, kNoBound).contents;
    ASSERT_EQ(all.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        const ProofBook::Settlement settlement{all[i].key, Outcome::proven};
        book->settle(std::span(&settlement, 1),
                     kStart + static_cast<std::int64_t>(3 - i) * kDay); // the last one longest ago
    }
    for (const std::size_t turn : {2U, 1U, 0U}) {
        const auto next = sample(0.01, kNoBound).contents;
        ASSERT_EQ(next.size(), 1U);
        EXPECT_EQ(next[0].key, all[turn].key);
        const ProofBook::Settlement settlement{next[0].key, Outcome::proven};
        book->settle(std::span(&settlement, 1), kStart + 9 * kDay);
    }
}

TEST_F(ProofBookTest, LetsNewContentWaitForWhatIsOlderAndNoLonger)
{
    addWhole(1, hundredFiles());
    for (int day = 1; day <= 5; ++day)
        (void)test(0.1, kNoBound, kStart + day * kDay);
    addDifference(2, {fileAt("/new", 10)}, {}, kStart + 5 * kDay + 1);
    std::map<std::string, int> seen;
    for (int day = 6; day <= 10; ++day) {
        for (const std::string& path : test(0.1, kNoBound, kStart + day * kDay))
            ++seen[path];
    }
    EXPECT_FALSE(seen.contains("/new")) << "older ones were not proven yet";
    for (int day = 11; day <= 15; ++day) {
        for (const std::string& path : test(0.1, kNoBound, kStart + day * kDay))
            ++seen[path];
    }
    EXPECT_TRUE(seen.contains("/new"));
}

TEST_F(ProofBookTest, FetchesNoMoreBytesThanItsBound)
{
    addWhole(1, {fileAt("/small", 40), fileAt("/middle", 70), fileAt("/huge", 1000)});
    Paths order;
    for (int day = 1; day <= 4; ++day) {
        const auto chosen = sample(1, 100);
        std::uint64_t bytes = 0;
        for (const auto& content : chosen.contents)
            bytes += content.size;
        EXPECT_LE(bytes, 100U);
        EXPECT_TRUE(chosen.isShortOfBytes);
        for (const std::string& path : test(1, 100, kStart + day * kDay))
            order.push_back(path);
    }
    // What did not fit is the first one next time; what never fits is told.
    ASSERT_EQ(order.size(), 4U);
    EXPECT_NE(order[0], order[1]);
    EXPECT_NE(order[1], order[2]);
    EXPECT_EQ(std::ranges::count(order, "/huge"), 0);
    EXPECT_EQ(book->totals(0, 100).tooLargeFiles, 1U);
    EXPECT_EQ(book->totals(0, 1000).tooLargeFiles, 0U);
}

TEST_F(ProofBookTest, FollowsWhatRunsHoldByTheirDifferences)
{
    addWhole(1, {folderAt("/d"), fileAt("/d/x", 1), fileAt("/d/y", 1), fileAt("/d-z", 1),
                 fileAt("/same", 1)});
    addDifference(2, {fileAt("/d/x", 2, "2")}, {});
    addDifference(4, {}, {"/d"});
    EXPECT_EQ(pathsOfAll(), (Paths{"/d-z@1-4", "/d/x@1-1", "/d/x@2-2", "/d/y@1-2", "/same@1-4"}));
    // A file in a folder's place ends all below it; a further name has no content of its own.
    StoredItem further = fileAt("/same", 1);
    further.content.reset();
    addDifference(5, {fileAt("/d-z", 1), further, fileAt("/d", 3, "3")}, {});
    EXPECT_EQ(pathsOfAll(),
              (Paths{"/d-z@1-5", "/d/x@1-1", "/d/x@2-2", "/d/y@1-2", "/d@5-5", "/same@1-4"}));
}

TEST_F(ProofBookTest, FollowsWhatRunsHoldByWholeRecords)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/b", 1)});
    addWhole(3, {fileAt("/b", 1), fileAt("/c", 1)});
    EXPECT_EQ(pathsOfAll(), (Paths{"/a@1-1", "/b@1-3", "/c@3-3"}));
    EXPECT_EQ(book->newest(), (RecordLink{3, "d3"}));
}

TEST_F(ProofBookTest, KnowsRunsInBetweenThatDoNotHoldAContent)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/b", 1)});
    ASSERT_EQ(test(2, kNoBound, kStart + 1).size(), 2U);
    addDifference(2, {}, {"/a"});
    addWhole(3, {fileAt("/b", 1)});
    addDifference(4, {fileAt("/a", 1)}, {});
    book->beginRun({5, "d5"}, book->newest(), kStart);
    book->drop("/b");
    book->hold(fileAt("/b", 1)); // by one and the same record: it was never away
    book->endRun();
    EXPECT_EQ(pathsOfAll(), (Paths{"/a@1-1", "/a@4-5", "/b@1-5"}));
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 3U) << "it is the same content";
    const auto proofs = book->proofs();
    EXPECT_EQ(proofs[0].files, 2U);
    EXPECT_EQ(proofs[1].files, 1U);
    EXPECT_EQ(proofs[2].files, 1U);
    EXPECT_EQ(proofs[3].files, 2U);
    const ProofBook::Settlement lost{proofKey("/a", *fileAt("/a", 1).content), Outcome::lost};
    book->settle(std::span(&lost, 1), kStart + 2);
    EXPECT_EQ(book->proofs()[0].lostFiles, 1U) << "and as lost wherever it is";
    EXPECT_EQ(book->proofs()[4].lostFiles, 1U);
    book->restart();
    addWhole(1, {fileAt("/a", 1)});
    book->keepOnly(book->runs());
    EXPECT_EQ(pathsOfAll(), Paths{"/a@1-1"});
    EXPECT_EQ(book->totals(0, kNoBound).lostFiles, 1U);
}

TEST_F(ProofBookTest, HandsOverWhatWasChosenInPortions)
{
    addWhole(1, {fileAt("/a", 10), fileAt("/b", 10), fileAt("/c", 30)});
    addWhole(2, {fileAt("/d", 10)});
    EXPECT_EQ(book->choose(2, kNoBound, kNoBound).contents, 4U);
    std::set<std::string> paths;
    for (auto portion = book->nextChosen(2, 25); !portion.empty();
         portion = book->nextChosen(2, 25)) {
        std::uint64_t bytes = 0;
        for (const auto& content : portion) {
            bytes += content.size;
            paths.insert(content.path);
            EXPECT_EQ(content.path == "/d", content.firstRun == 2);
        }
        EXPECT_TRUE(bytes <= 25 || portion.size() == 1);
        EXPECT_LE(portion.size(), 2U);
    }
    EXPECT_EQ(paths.size(), 4U);
    EXPECT_EQ(book->choose(2, kNoBound, kNoBound).contents, 4U);
    EXPECT_EQ(book->choose(0.01, kNoBound, kNoBound).contents, 1U);
    EXPECT_EQ(book->nextChosen(9, kNoBound).size(), 1U) << "what was chosen before is forgotten";
}

TEST_F(ProofBookTest, SaysWhatThereIsNoRoomFor)
{
    addWhole(1, {fileAt("/small", 10), fileAt("/large", 200), fileAt("/larger", 300),
                 fileAt("/huge", 1000)});
    const auto choice = book->choose(2, 500, 100);
    EXPECT_EQ(choice.contents, 1U);
    EXPECT_EQ(choice.withoutRoom, 2U) << "the bound keeps the other one out";
    EXPECT_EQ(choice.leastRoom, 200U);
    EXPECT_FALSE(choice.isShortOfBytes);
    EXPECT_EQ(book->nextChosen(9, kNoBound).size(), 1U);
}

TEST_F(ProofBookTest, ForgetsWhatNoKeptRunHolds)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/ab", 1), fileAt("/all", 1)});
    addWhole(2, {fileAt("/ab", 1), fileAt("/b", 1), fileAt("/all", 1)});
    addWhole(3, {fileAt("/c", 1), fileAt("/all", 1)});
    addWhole(4, {fileAt("/d", 1), fileAt("/all", 1)});
    const std::vector<std::uint64_t> kept{1, 3};
    book->keepOnly(kept);
    EXPECT_EQ(book->runs(), kept);
    EXPECT_EQ(pathsOfAll(), (Paths{"/a@1-1", "/ab@1-2", "/all@1-3", "/c@3-3"}));
}

TEST_F(ProofBookTest, IsReadAnewWithWhatWasProven)
{
    addWhole(2, {fileAt("/a", 1), fileAt("/gone", 1)});
    ASSERT_EQ(test(2, kNoBound, kStart).size(), 2U);
    book->restart();
    EXPECT_TRUE(book->runs().empty());
    addWhole(1, {fileAt("/a", 1)});
    addWhole(2, {fileAt("/a", 1), fileAt("/b", 1)});
    book->keepOnly(book->runs());
    EXPECT_EQ(pathsOfAll(), (Paths{"/a@1-2", "/b@2-2"}));
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 1U);
}

TEST_F(ProofBookTest, SaysSinceWhenARunIsProven)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/b", 1)});
    addWhole(2, {fileAt("/b", 1), fileAt("/c", 1)});
    addWhole(3, {});
    const auto settle = [&](const std::string& path, Outcome outcome, std::int64_t when) {
        const ProofBook::Settlement settlement{proofKey(path, *fileAt(path, 1).content), outcome};
        book->settle(std::span(&settlement, 1), when);
    };
    settle("/a", Outcome::proven, kStart + 9);
    EXPECT_EQ(book->proofs()[0].proven, 0) << "of /b nothing is known";
    EXPECT_EQ(book->proofs()[0].provenFiles, 1U);
    EXPECT_EQ(book->proofs()[0].files, 2U);
    settle("/b", Outcome::proven, kStart + 5);
    settle("/c", Outcome::proven, kStart + 7);
    for (const std::uint64_t run : {1U, 2U})
        book->noteRead(run, kStart + 20);
    auto proofs = book->proofs();
    ASSERT_EQ(proofs.size(), 3U);
    EXPECT_EQ(proofs[0].proven, kStart + 5);
    EXPECT_EQ(proofs[1].proven, kStart + 5);
    EXPECT_EQ(proofs[2].proven, kStart) << "an empty run: when its record was read";
    settle("/c", Outcome::lost, kStart + 30);
    proofs = book->proofs();
    EXPECT_EQ(proofs[0].proven, kStart + 5);
    EXPECT_EQ(proofs[1].proven, 0);
    EXPECT_EQ(proofs[1].lostFiles, 1U);
    EXPECT_EQ(proofs[1].provenFiles, 1U);
    book->noteDamaged(1);
    proofs = book->proofs();
    EXPECT_TRUE(proofs[0].isDamaged);
    EXPECT_EQ(proofs[0].proven, 0);
    EXPECT_EQ(book->totals(0, kNoBound).damagedRuns, 1U);
}

TEST_F(ProofBookTest, DoesNotTakeAFailureOrSilenceForAProof)
{
    addWhole(1, {fileAt("/a", 1)});
    const std::string key = sample(2, kNoBound).contents.at(0).key;
    for (const Outcome outcome : {Outcome::passed, Outcome::lost}) {
        const ProofBook::Settlement settlement{key, outcome};
        book->settle(std::span(&settlement, 1), kStart + 5);
        EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 0U);
    }
    EXPECT_EQ(book->totals(0, kNoBound).lostFiles, 1U);
    const ProofBook::Settlement well{key, Outcome::proven};
    book->settle(std::span(&well, 1), kStart + 6);
    EXPECT_EQ(book->totals(0, kNoBound).lostFiles, 0U);
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 1U);
}

TEST_F(ProofBookTest, ReadsTheRunThatWasReadLongestAgo)
{
    addWhole(1, {fileAt("/a", 1)}, kStart);
    addDifference(2, {}, {}, kStart + 1);
    addDifference(3, {}, {}, kStart + 2);
    addWhole(4, {fileAt("/a", 1)}, kStart + 3);
    const ProofCandidate content = sample(2, kNoBound).contents.at(0);
    EXPECT_EQ(book->runToReadFor(content), 1U);
    book->noteRead(3, kStart + 10); // with 1 and 2, which it builds on
    EXPECT_EQ(book->runToReadFor(content), 4U);
    book->noteRead(4, kStart + 20);
    EXPECT_EQ(book->runToReadFor(content), 3U);
    for (const std::uint64_t run : {1U, 2U, 3U})
        book->noteDamaged(run);
    EXPECT_EQ(book->runToReadFor(content), 4U);
    book->noteDamaged(4);
    EXPECT_EQ(book->runToReadFor(content), 0U);
}

TEST_F(ProofBookTest, HoldsNothingForProvenThatAWrongClockNoted)
{
    addWhole(1, {fileAt("/a", 1), fileAt("/b", 1)});
    (void)test(2, kNoBound, kStart + 365 * kDay);
    reopen(kStart + 365 * kDay);
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 2U);
    reopen(kStart + 1);
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 0U);
    EXPECT_EQ(test(0.1, kNoBound, kStart + 2).size(), 1U);
    (void)test(2, kNoBound, kStart + 10);
    reopen(kStart + 5); // a clock that was put right by seconds is not such a thing
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 2U);
}

TEST_F(ProofBookTest, IsThereAgainAndOfItsOwnerAlone)
{
    addWhole(1, {fileAt("/a\xff", 1)});
    (void)test(2, kNoBound, kStart);
    reopen();
    EXPECT_EQ(pathsOfAll(), Paths{"/a\xff@1-1"});
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 1U);
    IndexOwner other = kOwner;
    other.username = "bob";
    EXPECT_FALSE(ProofBook::look(file(), other));
    EXPECT_TRUE(ProofBook::look(file(), kOwner));
    book.reset();
    EXPECT_TRUE(ProofBook::open(file(), other, kStart).runs().empty());
    EXPECT_TRUE(fs::exists(file().string() + ".unusable"));
}

TEST_F(ProofBookTest, ProvesNothingWhenItIsDamaged)
{
    addWhole(1, {fileAt("/a", 1)});
    (void)test(2, kNoBound, kStart);
    book.reset();
    std::ofstream(file(), std::ios::trunc) << "this is no database, whatever its name says it is";
    EXPECT_FALSE(ProofBook::look(file(), kOwner));
    reopen();
    EXPECT_TRUE(book->runs().empty());
    EXPECT_EQ(book->totals(0, kNoBound).provenFiles, 0U);
    EXPECT_EQ(fs::status(file()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ProofBookTest, GivesUpARunThatWasNotReadToItsEnd)
{
    addWhole(1, {fileAt("/a", 1)});
    book->beginRun({2, "d2"}, book->newest(), kStart);
    book->drop("/a");
    book->hold(fileAt("/b", 1));
    book->abandonRun();
    EXPECT_EQ(pathsOfAll(), Paths{"/a@1-1"});
    EXPECT_EQ(book->newest().run, 1U);
}

} // namespace
} // namespace stowline::backup
