#include "stowline/backup/forget/VersionLedger.h"

#include "stowline/backup/forget/ChainFeed.h"
#include "stowline/backup/record/MemoryPlaceTest.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace stowline;
using namespace stowline::backup;

using Versions = std::set<std::string>;

StoredItem fileAt(const std::string& path, const std::string& version)
{
    StoredItem stored{.item = {.path = path, .kind = ItemKind::file, .size = 7}};
    stored.content = StoredContent{.version = version,
                                   .list = version.empty() ? "" : "list " + version,
                                   .digest = std::string(64, 'a'),
                                   .checksum = 5,
                                   .storedSize = 9,
                                   .run = 1};
    return stored;
}

StoredItem folderAt(const std::string& path)
{
    return {.item = {.path = path, .kind = ItemKind::folder}};
}

Versions goingIn(VersionLedger& ledger)
{
    ledger.settle();
    Versions versions;
    std::string after;
    for (bool isMore = true; isMore;) {
        const auto page = ledger.candidatesAfter(after, 2);
        isMore = !page.empty();
        for (const auto& candidate : page) {
            after = candidate.stored.content.version;
            EXPECT_TRUE(versions.insert(after).second) << after << " twice";
        }
    }
    EXPECT_EQ(ledger.candidateCount(), versions.size());
    return versions;
}

/// Runs of one chain, from 1 on.
class OneChain {
public:
    explicit OneChain(std::vector<std::uint64_t> kept) { ledger.beginChain(std::move(kept), true); }

    OneChain& whole(const std::vector<StoredItem>& items)
    {
        ledger.beginRun(++run_, true);
        for (const StoredItem& item : items)
            ledger.hold(item);
        ledger.endRun();
        return *this;
    }
    OneChain& change(const std::vector<StoredItem>& items,
                     const std::vector<std::string>& dropped = {})
    {
        ledger.beginRun(++run_, false);
        for (const std::string& path : dropped)
            ledger.drop(path);
        for (const StoredItem& item : items)
            ledger.hold(item);
        ledger.endRun();
        return *this;
    }
    Versions going()
    {
        ledger.endChain();
        return goingIn(ledger);
    }

    VersionLedger ledger;

private:
    std::uint64_t run_ = 0;
};

TEST(VersionLedger, LetsGoWhatWasReplacedBeforeAKeptRun)
{
    OneChain chain({3});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "2")}).change({fileAt("/a", "3")}).change({});
    EXPECT_EQ(chain.going(), Versions{"1"});
}

TEST(VersionLedger, KeepsWhatAKeptRunInTheMiddleHolds)
{
    OneChain chain({2, 4});
    chain.whole({fileAt("/a", "1")})
        .change({fileAt("/a", "2")})
        .change({fileAt("/a", "3")})
        .change({fileAt("/a", "4")});
    EXPECT_EQ(chain.going(), (Versions{"1", "3"}));
}

TEST(VersionLedger, KeepsEverythingWhenEveryRunIsKept)
{
    OneChain chain({1, 2});
    chain.whole({fileAt("/a", "1")}).change({fileAt("/a", "2")});
    EXPECT_EQ(chain.going(), Versions{});
}

TEST(VersionLedger, TellsWhatTheVersionWas)
{
    OneChain chain({2});
    chain.whole({fileAt("/a b", "1")}).whole({});
    ASSERT_EQ(chain.going(), Versions{"1"});
    const auto candidate = chain.ledger.candidatesAfter("", 9).at(0);
    EXPECT_EQ(candidate.stored.path, "/a b");
    EXPECT_EQ(candidate.stored.size, 7U);
    EXPECT_EQ(candidate.stored.content, fileAt("/a b", "1").content);
    EXPECT_FALSE(candidate.isThere);
    chain.ledger.noteThere("1");
    EXPECT_TRUE(chain.ledger.candidatesAfter("", 9).at(0).isThere);
}

TEST(VersionLedger, TakesAFolderThatIsGoneWithAllBelowAndNothingBeside)
{
    OneChain chain({2});
    chain.whole({folderAt("/d"), fileAt("/d/a", "1"), fileAt("/d/e/b", "2"), fileAt("/d-c", "3"),
                 fileAt("/d\x01", "4")});
    chain.change({}, {"/d"});
    EXPECT_EQ(chain.going(), (Versions{"1", "2"}));
}

TEST(VersionLedger, TakesWhatWasInAFolderThatBecameAFile)
{
    OneChain chain({2});
    chain.whole({folderAt("/d"), fileAt("/d/a", "1"), fileAt("/e", "2")});
    chain.change({fileAt("/d", "3")});
    EXPECT_EQ(chain.going(), Versions{"1"});
}

TEST(VersionLedger, TakesTheContentOfAFileThatBecameALink)
{
    OneChain chain({2});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "2")});
    chain.change({{.item = {.path = "/a", .kind = ItemKind::link}}});
    EXPECT_EQ(chain.going(), Versions{"1"});
}

TEST(VersionLedger, TakesWhatAWholeRecordDoesNotName)
{
    OneChain chain({2});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "2"), fileAt("/c", "3")});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "4")});
    EXPECT_EQ(chain.going(), (Versions{"2", "3"}));
}

TEST(VersionLedger, KeepsAVersionThatAKeptRunHasAtAnotherPath)
{
    OneChain chain({2});
    chain.whole({fileAt("/old", "1")}).change({fileAt("/new", "1")}, {"/old"});
    EXPECT_EQ(chain.going(), Versions{});
}

TEST(VersionLedger, KeepsAVersionThatCameBack)
{
    OneChain chain({3});
    chain.whole({fileAt("/a", "1")}).change({fileAt("/a", "2")}).change({fileAt("/a", "1")});
    EXPECT_EQ(chain.going(), Versions{"2"});
}

TEST(VersionLedger, KeepsWhatADifferenceBuildsOn)
{
    StoredItem difference = fileAt("/a", "2");
    difference.content->baseline = "1";
    OneChain chain({2});
    chain.whole({fileAt("/a", "1")}).change({difference});
    EXPECT_EQ(chain.going(), Versions{});
}

TEST(VersionLedger, KeepsAllOfAListOfWhichOneVersionIsKept)
{
    StoredItem other = fileAt("/b", "2");
    other.content->list = "list 1";
    OneChain chain({2});
    chain.whole({fileAt("/a", "1"), other}).change({}, {"/b"});
    EXPECT_EQ(chain.going(), Versions{});
}

TEST(VersionLedger, KeepsWhatStandsWhereAKeptContentHasNoName)
{
    OneChain chain({2});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "2")}).change({fileAt("/a", "")}, {"/b"});
    EXPECT_EQ(chain.going(), Versions{"2"}) << "which version /a is in run 2 nobody knows";
}

TEST(VersionLedger, CountsWhatHasNoName)
{
    OneChain chain({2});
    chain.whole({fileAt("/a", ""), fileAt("/b", "1")}).whole({});
    EXPECT_EQ(chain.going(), Versions{"1"});
    EXPECT_EQ(chain.ledger.unnamedCount(), 1U);
}

TEST(VersionLedger, KeepsWhatAnotherChainHolds)
{
    OneChain chain({2});
    chain.whole({fileAt("/a", "1"), fileAt("/b", "2"), fileAt("/c", "3")}).whole({});
    chain.ledger.endChain();
    chain.ledger.beginChain({7}, false);
    chain.ledger.beginRun(7, true);
    chain.ledger.hold(fileAt("/a", "1"));
    chain.ledger.endRun();
    chain.ledger.endChain();
    chain.ledger.holdForGood(fileAt("/b", "2"));
    EXPECT_EQ(goingIn(chain.ledger), Versions{"3"});
}

TEST(VersionLedger, LetsNothingOfAnotherChainGo)
{
    OneChain chain({1});
    chain.whole({});
    chain.ledger.endChain();
    chain.ledger.beginChain({2}, false);
    chain.ledger.beginRun(1, true);
    chain.ledger.hold(fileAt("/a", "1"));
    chain.ledger.endRun();
    chain.ledger.beginRun(2, true);
    chain.ledger.endRun();
    chain.ledger.endChain();
    EXPECT_EQ(goingIn(chain.ledger), Versions{});
}

/// Chains of records as they are written, against the arithmetic done by hand.
class ChainFeed : public testing::Test {
protected:
    const ChainIdentity kMachine{"1A2B", "ann", "default"};

    [[nodiscard]] RecordChain open() { return RecordChain::open(place, kMachine, folder.path()); }

    std::uint64_t begin(RecordChain& chain)
    {
        return chain.begin({.username = "ann", .systemName = "iMac", .identity = kMachine},
                           index.position());
    }

    void put(const std::string& path, std::uint64_t run)
    {
        const std::string version = std::to_string(++versions);
        StoredItem item = fileAt(path, version);
        for (char& digit : item.content->digest) // so that records have a size
            digit = "0123456789abcdef"[random() % 16];
        index.put(item, run);
        tree[path] = version;
    }

    /// A run that changes some of a hundred files.
    void runOnce()
    {
        RecordChain chain = open();
        const std::uint64_t run = begin(chain);
        for (int i = 0; run == 1 && i < 100; ++i)
            put("/f" + std::to_string(i), run);
        for (int i = 0; i < 5; ++i) {
            const std::string path = "/f" + std::to_string(random() % 100);
            if (random() % 4 == 0 && tree.contains(path)) {
                index.remove(path, run);
                tree.erase(path);
            } else {
                put(path, run);
            }
        }
        index.setPosition(chain.storeFinished(index, {}).position);
        held[run] = {};
        for (const auto& [path, version] : tree)
            held[run].insert(version);
    }

    [[nodiscard]] Versions onlyIn(const std::set<std::uint64_t>& forgotten) const
    {
        Versions only;
        for (const auto& [run, ofRun] : held) {
            if (forgotten.contains(run))
                only.insert(ofRun.begin(), ofRun.end());
        }
        for (const auto& [run, ofRun] : held) {
            if (!forgotten.contains(run)) {
                for (const std::string& version : ofRun)
                    only.erase(version);
            }
        }
        return only;
    }

    [[nodiscard]] Versions going(const std::set<std::uint64_t>& toForget)
    {
        VersionLedger ledger;
        RecordChain chain = open();
        rests = takeChain(ledger, chain, toForget, true, {});
        return goingIn(ledger);
    }

    void note(std::uint64_t run)
    {
        open().noteForgotten(run, {.systemName = "iMac", .identity = kMachine});
    }

    test::TemporaryFolder folder;
    MemoryPlace place;
    ItemIndex index = ItemIndex::temporary();
    std::map<std::string, std::string> tree;
    std::map<std::uint64_t, Versions> held;
    std::minstd_rand random{7};
    int versions = 0;
    ChainRests rests;
};

TEST_F(ChainFeed, FindsJustWhatOnlyForgottenRunsHold)
{
    for (int i = 0; i < 70; ++i) // over several full records
        runOnce();
    for (int i = 0; i < 5; ++i) {
        std::set<std::uint64_t> forgotten;
        for (std::uint64_t run = 1; run < 70; ++run) {
            if (random() % (1 + i) != 0)
                forgotten.insert(run);
        }
        EXPECT_EQ(going(forgotten), onlyIn(forgotten));
    }
    std::set<std::uint64_t> old;
    for (std::uint64_t run = 1; run < 60; ++run)
        old.insert(run);
    EXPECT_FALSE(onlyIn(old).empty());
    EXPECT_EQ(going(old), onlyIn(old));
}

TEST_F(ChainFeed, CountsANoteAsForgetting)
{
    for (int i = 0; i < 5; ++i)
        runOnce();
    note(1);
    note(3);
    EXPECT_EQ(going({2}), onlyIn({1, 2, 3}));
    EXPECT_EQ(open().newestFinished(), 5U);
    ItemIndex into = ItemIndex::temporary();
    RecordChain chain = open();
    EXPECT_THROW((void)chain.load(3, into), RecordFault);
    (void)chain.load(4, into); // which builds on it
    EXPECT_EQ(chain.runs().size(), 5U);
    EXPECT_TRUE(chain.runs()[2].isForgotten);
    EXPECT_EQ(chain.forgottenRuns(), (std::vector<std::uint64_t>{1, 3}));
}

TEST_F(ChainFeed, HoldsTheRunThatOneThatWasCutOffBeganWithAndWhatItHadStored)
{
    runOnce();
    runOnce();
    RecordChain cutOff = open();
    const std::uint64_t run = begin(cutOff);
    put("/new", run);
    (void)cutOff.storeUnfinished(index, {});
    index.remove("/new", run);
    tree.erase("/new");
    runOnce();
    EXPECT_EQ(going({1, 2}), [this] {
        Versions only = onlyIn({1, 2});
        for (const std::string& version : held[2])
            only.erase(version);
        return only;
    }());
    EXPECT_TRUE(rests.named.contains(2));
}

TEST_F(ChainFeed, HoldsNothingForARunThatHadOnlyBegun)
{
    runOnce();
    runOnce();
    RecordChain cutOff = open();
    (void)begin(cutOff);
    runOnce();
    EXPECT_EQ(going({1, 2}), onlyIn({1, 2}));
    EXPECT_FALSE(going({1, 2}).empty());
}

TEST_F(ChainFeed, ReadsRunsThatRanAtOnce)
{
    runOnce();
    RecordChain first = open();
    const std::uint64_t run = begin(first);
    ItemIndex other = ItemIndex::temporary();
    {
        RecordChain second = open();
        (void)second.load(1, other);
        const std::uint64_t later =
            second.begin({.systemName = "iMac", .identity = kMachine}, other.position());
        EXPECT_EQ(later, run + 1);
        other.put(fileAt("/later", "900"), later);
        (void)second.storeFinished(other, {});
        held[later] = held[1];
        held[later].insert("900");
    }
    put("/first", run);
    index.setPosition(first.storeFinished(index, {}).position);
    held[run] = held[1];
    held[run].insert(tree["/first"]);
    EXPECT_EQ(going({run + 1}), onlyIn({run + 1})); // both build on run 1
    EXPECT_EQ(going({run}), onlyIn({run}));
    EXPECT_EQ(going({1}), Versions{});
}

TEST_F(ChainFeed, RefusesWhatCannotBeRead)
{
    runOnce();
    runOnce();
    std::string& record = place.stored.begin()->second.at("00000001-finished");
    const std::string whole = record;
    record[record.size() / 2] ^= 1;
    EXPECT_THROW((void)going({1}), RecordFault);
    record = whole;
    (void)going({1});
    for (int i = 0; i < 4; ++i)
        runOnce();
    RecordChain chain = open();
    std::uint64_t baseline = 0;
    for (const ListedRun& run : chain.runs()) {
        if (const auto head = chain.head(run.run); head.baseline)
            baseline = head.baseline->run;
    }
    ASSERT_NE(baseline, 0U) << "a difference is wanted";
    place.stored.begin()->second.erase(recordNameText({baseline, RecordState::finished, 0}));
    EXPECT_THROW((void)going({}), RecordFault) << "a record builds on it";
}

TEST_F(ChainFeed, RecordsStayAsLongAsOthersRestOnThem)
{
    for (int i = 0; i < 70; ++i)
        runOnce();
    // Each record's own word of what it builds on.
    std::map<std::uint64_t, std::uint64_t> baselines;
    RecordChain chain = open();
    for (std::uint64_t run = 1; run <= 70; ++run) {
        if (const auto head = chain.head(run); head.baseline)
            baselines[run] = head.baseline->run;
    }
    ASSERT_LT(baselines.size(), 68U) << "several full records are wanted";
    ASSERT_GT(baselines.size(), 35U) << "and differences";
    for (std::uint64_t run = 1; run < 69; ++run)
        note(run);
    (void)going({});
    const auto removable = removableRuns(open(), rests);
    std::set<std::uint64_t> needed{69, 70};
    for (std::uint64_t run = 70; run > 0; --run) {
        if (needed.contains(run) && baselines.contains(run))
            needed.insert(baselines[run]);
    }
    std::vector<std::uint64_t> expected;
    for (std::uint64_t run = 68; run > 0; --run) {
        if (!needed.contains(run))
            expected.push_back(run);
    }
    EXPECT_EQ(removable, expected);
    ASSERT_FALSE(removable.empty());
    RecordChain removing = open();
    EXPECT_THROW(removing.removeForgotten(70), RecordFault) << "it is no forgotten run";
    for (const std::uint64_t run : removable) {
        removing.removeForgotten(run); // the newest first: the others stay readable
        if (run % 16 == 0)
            (void)going({});
    }
    ItemIndex into = ItemIndex::temporary();
    RecordChain after = open();
    EXPECT_EQ(after.load(69, into).run, 69U);
    EXPECT_EQ(after.trustOf(69).trust, RecordTrust::linked);
    EXPECT_EQ(after.runs().size(), 70 - removable.size());
}

TEST_F(ChainFeed, RecordsBehindAKeptRunStayAsItsProof)
{
    for (int i = 0; i < 70; ++i)
        runOnce();
    for (std::uint64_t run = 2; run < 70; ++run)
        note(run);
    (void)going({});
    EXPECT_TRUE(removableRuns(open(), rests).empty());
    EXPECT_EQ(open().trustOf(1).trust, RecordTrust::linked);
}

TEST_F(ChainFeed, AForgottenRunGoesOnFromAKillInTheMiddleOfItsRemoval)
{
    for (int i = 0; i < 12; ++i)
        runOnce();
    for (std::uint64_t run = 1; run < 12; ++run)
        note(run);
    (void)going({});
    const auto removable = removableRuns(open(), rests);
    ASSERT_GT(removable.size(), 2U);
    int kills = 0;
    for (;; ++kills) {
        (void)going({});
        const auto left = removableRuns(open(), rests);
        if (left.empty())
            break;
        place.removalsLeft = 1; // one file, then it is killed
        RecordChain chain = open();
        try {
            for (const std::uint64_t run : left)
                chain.removeForgotten(run);
        } catch (const RecordFault&) {
        }
        place.removalsLeft = 0;
        ItemIndex into = ItemIndex::temporary();
        EXPECT_EQ(open().load(12, into).run, 12U);
    }
    EXPECT_EQ(kills, 3 * static_cast<int>(removable.size())) << "two records and a note each";
    EXPECT_EQ(open().runs().size(), 12 - removable.size());
}

} // namespace
