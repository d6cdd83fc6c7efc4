#include "stowline/backup/record/RecordChain.h"

#include "stowline/backup/record/MemoryPlaceTest.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sys/resource.h>

namespace {

using namespace stowline;
using namespace stowline::backup;

using Tree = std::map<std::string, StoredItem>;

const ChainIdentity kMachine{"1A2B", "ann", "default"};
const std::string kChain = "1A2B.ann.default";

StoredItem fileAt(const std::string& path, std::uint64_t size, std::uint64_t run)
{
    StoredItem stored{.item = {.path = path, .kind = ItemKind::file, .size = size}};
    // What does not pack well, so that records have a size.
    std::minstd_rand random(static_cast<unsigned>(size + run));
    std::string digest;
    for (int i = 0; i < 64; ++i)
        digest += "0123456789abcdef"[random() % 16];
    stored.content = StoredContent{
        .version = std::to_string(size), .digest = digest, .storedSize = size, .run = run};
    return stored;
}

class RecordChainTest : public testing::Test {
protected:
    [[nodiscard]] RecordChain open() { return RecordChain::open(place, kMachine, folder.path()); }

    void change(const StoredItem& item, std::uint64_t run)
    {
        index.put(item, run);
        tree[item.item.path] = item;
    }

    std::uint64_t begin(RecordChain& chain)
    {
        return chain.begin({.username = "ann", .systemName = "iMac", .identity = kMachine},
                           index.position());
    }

    StoredRecord finish(RecordChain& chain)
    {
        const StoredRecord stored = chain.storeFinished(index, {});
        index.setPosition(stored.position);
        return stored;
    }

    /// A run that changes some of a hundred files.
    StoredRecord runOnce(std::size_t changes)
    {
        RecordChain chain = open();
        const std::uint64_t run = begin(chain);
        for (std::size_t i = 0; i < changes; ++i) {
            const std::string path = "/f" + std::to_string(random() % 100);
            if (random() % 4 == 0 && tree.contains(path)) {
                index.remove(path, run);
                tree.erase(path);
            } else {
                change(fileAt(path, random() % 100000, run), run);
            }
        }
        return finish(chain);
    }

    [[nodiscard]] Tree loaded(std::uint64_t run)
    {
        ItemIndex into = ItemIndex::temporary();
        RecordChain chain = open();
        chain.load(run, into);
        return contentOf(into);
    }

    [[nodiscard]] static Tree contentOf(const ItemIndex& from)
    {
        Tree items;
        from.forEach("/", [&items](const StoredItem& item) {
            items.emplace(item.item.path, item);
            return true;
        });
        return items;
    }

    [[nodiscard]] RecordFault::Kind faultOf(const std::function<void()>& work)
    {
        try {
            work();
        } catch (const RecordFault& fault) {
            return fault.kind();
        }
        ADD_FAILURE() << "no fault";
        return RecordFault::Kind::failed;
    }

    test::TemporaryFolder folder;
    MemoryPlace place;
    ItemIndex index = ItemIndex::temporary();
    Tree tree;
    std::minstd_rand random{1};
};

class RunLossTest : public RecordChainTest {
protected:
    RunLossTest()
    {
        RecordChain chain = open();
        const std::uint64_t run = begin(chain);
        for (int i = 0; i < 99; ++i)
            change(fileAt("/d/f" + std::to_string(i), 1, run), run);
        change({.item = {.path = "/d", .kind = ItemKind::folder}}, run);
        EXPECT_TRUE(finish(chain).losses.empty());
    }

    /// A run that takes out the next so many files, or the folder. @return what its record says
    std::vector<RunLoss> losing(int count, std::uint64_t confirmedUpTo = 0)
    {
        RecordChain chain = open();
        const std::uint64_t run = begin(chain);
        take(count, run);
        const StoredRecord stored = chain.storeFinished(index, {.confirmedUpTo = confirmedUpTo});
        index.setPosition(stored.position);
        RecordChain again = open();
        EXPECT_EQ(again.head(run).losses, stored.losses);
        return stored.losses;
    }

    void take(int count, std::uint64_t run)
    {
        for (int i = 0; i < count; ++i)
            index.remove("/d/f" + std::to_string(next_++), run);
    }

private:
    int next_ = 0;
};

TEST_F(RunLossTest, IsMoreThanThirtyPercentOfWhatTheRecordBeforeHeld)
{
    EXPECT_TRUE(losing(30).empty());
    EXPECT_EQ(losing(22), (std::vector<RunLoss>{{3, 22, 70}}));
}

TEST_F(RunLossTest, OfAFolderIsThatOfAllBelowIt)
{
    RecordChain chain = open();
    index.remove("/d", begin(chain));
    EXPECT_EQ(chain.storeFinished(index, {}).losses, (std::vector<RunLoss>{{2, 100, 100}}));
}

TEST_F(RunLossTest, StaysUntilItIsConfirmedAndEachIsTold)
{
    EXPECT_EQ(losing(40), (std::vector<RunLoss>{{2, 40, 100}}));
    EXPECT_EQ(losing(0), (std::vector<RunLoss>{{2, 40, 100}}));
    EXPECT_EQ(losing(20), (std::vector<RunLoss>{{2, 40, 100}, {4, 20, 60}}));
    EXPECT_EQ(losing(1, 2), (std::vector<RunLoss>{{4, 20, 60}}));
    EXPECT_EQ(losing(30, 5), (std::vector<RunLoss>{{6, 30, 39}})) << "not what is found only now";
    EXPECT_TRUE(losing(0, 6).empty());
    EXPECT_TRUE(losing(0).empty());
}

TEST_F(RunLossTest, OfARunThatWasKilledIsThatOfTheNext)
{
    {
        RecordChain chain = open();
        take(40, begin(chain)); // and no record
    }
    EXPECT_EQ(losing(0), (std::vector<RunLoss>{{3, 40, 100}}));
}

TEST_F(RunLossTest, IsAlsoOfContentsWhoseNamesAreThere)
{
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    const auto putInPlace = [&](int number, ItemKind kind) {
        index.put({.item = {.path = "/d/f" + std::to_string(number), .kind = kind}}, run);
    };
    for (int i = 0; i < 20; ++i)
        putInPlace(i, ItemKind::file);
    for (int i = 20; i < 30; ++i)
        putInPlace(i, ItemKind::link);
    for (int i = 30; i < 40; ++i)
        putInPlace(i, ItemKind::folder);
    for (int i = 38; i < 44; ++i) // emptied and filled again, and then gone
        putInPlace(i, ItemKind::file);
    for (int i = 42; i < 44; ++i)
        index.put(tree.at("/d/f" + std::to_string(i)), run);
    index.remove("/d/f41", run);
    EXPECT_EQ(chain.storeFinished(index, {}).losses, (std::vector<RunLoss>{{2, 42, 100}}));
}

TEST_F(RunLossTest, DoesNotCountWhatIsBackByThen)
{
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    index.remove("/d", run);
    for (const auto& [path, item] : tree)
        index.put(item, run);
    EXPECT_TRUE(chain.storeFinished(index, {}).losses.empty());
}

TEST_F(RunLossTest, IsNotKnownWhereTheIndexRestsOnNoRecord)
{
    index.setPosition({});
    EXPECT_EQ(losing(0), (std::vector<RunLoss>{{2, 0, 0}}));
    EXPECT_EQ(losing(0), (std::vector<RunLoss>{{2, 0, 0}}));
}

TEST_F(RunLossTest, OfVeryManyTheFirstAndTheLastAreTold)
{
    std::vector<RunLoss> losses;
    for (std::uint64_t run = 2; run <= 80; ++run) { // all goes and comes back in turn
        RecordChain chain = open();
        ASSERT_EQ(begin(chain), run);
        if (run % 2 == 0)
            index.remove("/d", run);
        for (const auto& [path, item] : run % 2 == 0 ? Tree() : tree)
            index.put(item, run);
        const StoredRecord stored = chain.storeFinished(index, {});
        index.setPosition(stored.position);
        losses = stored.losses;
    }
    ASSERT_EQ(losses.size(), 30U);
    EXPECT_EQ(losses.front().run, 2U);
    EXPECT_EQ(losses.back().run, 80U);
}

TEST_F(RecordChainTest, AnIndexThatIsMadeAnewKnowsMoreRecordsUnlessTheChainIsAnother)
{
    for (int i = 0; i < 3; ++i)
        runOnce(i == 0 ? 200 : 1);
    ItemIndex into = ItemIndex::temporary();
    RecordChain chain = open();
    into.noteKnownRecord({9, "of a run that was forgotten"});
    chain.load(3, into);
    const auto known = into.knownRecords();
    ASSERT_EQ(known.size(), 4U);
    EXPECT_EQ(known[2], into.position());
    EXPECT_EQ(known[3].run, 9U);
    into.noteKnownRecord({2, "another"});
    chain.load(3, into);
    EXPECT_EQ(into.knownRecords(), std::vector<IndexPosition>(known.begin(), known.begin() + 3));
    EXPECT_THROW((void)chain.load(4, into), RecordFault);
    EXPECT_EQ(into.knownRecords().size(), 3U) << "what cannot be read takes no knowledge away";
}

TEST_F(RecordChainTest, GivesBackTheTreeOfEveryRun)
{
    std::map<std::uint64_t, Tree> trees;
    std::size_t differences = 0;
    for (int i = 0; i < 70; ++i) {
        const StoredRecord stored = runOnce(i == 0 ? 200 : 1);
        trees.emplace(stored.position.run, tree);
        differences += stored.isFull ? 0 : 1;
    }
    EXPECT_EQ(trees.rbegin()->first, 70U);
    EXPECT_GT(differences, 40U);
    EXPECT_LT(differences, 69U);
    for (const auto& [run, expected] : trees)
        EXPECT_TRUE(loaded(run) == expected) << run;
}

TEST_F(RecordChainTest, WritesAFullRecordInsteadOfTheThirtiethDifferenceOrOfLargeOnes)
{
    RecordChain first = open();
    const std::uint64_t run = begin(first);
    for (unsigned i = 0; i < 1000; ++i)
        change(fileAt("/f" + std::to_string(i), i, run), run);
    const std::uint64_t fullBytes = finish(first).sentBytes;
    for (int i = 1; i < 30; ++i)
        EXPECT_FALSE(runOnce(0).isFull) << i;
    EXPECT_TRUE(runOnce(0).isFull);
    EXPECT_FALSE(runOnce(1).isFull);
    RecordChain chain = open();
    const std::uint64_t large = begin(chain);
    for (unsigned i = 0; i < 700; ++i)
        change(fileAt("/f" + std::to_string(i), i + 5000, large), large);
    const StoredRecord stored = finish(chain);
    EXPECT_TRUE(stored.isFull);
    EXPECT_GT(stored.sentBytes, fullBytes / 2);
}

TEST_F(RecordChainTest, CostsNextToNothingWhenNothingChanged)
{
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    for (int i = 0; i < 10000; ++i)
        change(fileAt("/f" + std::to_string(i), 5, run), run);
    finish(chain);
    for (int i = 2; i <= 10; ++i) {
        const StoredRecord stored = runOnce(0);
        EXPECT_LT(stored.sentBytes, 1500U);
        EXPECT_EQ(place.stored[kChain].size(), 2U * static_cast<unsigned>(i)); // begun, finished
    }
}

TEST_F(RecordChainTest, AMillionItemsCostNextToNothingWhenUnchangedAndLittleMemoryWhenRead)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "set STOWLINE_LONG_TESTS to write a million items";
    constexpr int items = 1'000'000;
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    for (int i = 0; i < items; ++i)
        index.put(fileAt("/d" + std::to_string(i / 1000) + "/file" + std::to_string(i), 5, run),
                  run);
    RecordProperty("bytes_of_the_full_one", std::to_string(finish(chain).sentBytes));
    for (int i = 2; i <= 10; ++i) {
        RecordChain next = open();
        begin(next);
        const StoredRecord stored = finish(next);
        EXPECT_LE(stored.sentBytes, 64U << 10);
        RecordProperty("bytes_of_run_" + std::to_string(i), std::to_string(stored.sentBytes));
    }
    ItemIndex into = ItemIndex::temporary();
    RecordChain again = open();
    again.load(10, into);
    EXPECT_EQ(into.itemCount(), static_cast<std::uint64_t>(items));
    struct rusage used {};
    ASSERT_EQ(getrusage(RUSAGE_SELF, &used), 0);
    EXPECT_LT(used.ru_maxrss, 512L << 10); // KiB, the records that the test keeps included
    RecordProperty("most_memory_in_kib", std::to_string(used.ru_maxrss));
}

TEST_F(RecordChainTest, IsNeitherWrittenNorReadToTheEndWhenAskedToStop)
{
    runOnce(10);
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    change(fileAt("/new", 1, run), run);
    ItemIndex into = ItemIndex::temporary();
    {
        const StopRequest stop;
        const StopScope scope(stop);
        stop.request();
        using Kind = RecordFault::Kind;
        EXPECT_EQ(faultOf([&] { (void)chain.storeFinished(index, {}); }), Kind::interrupted);
        EXPECT_EQ(faultOf([&] { open().load(1, into); }), Kind::interrupted);
    }
    EXPECT_EQ(into.itemCount(), 0U);
    EXPECT_EQ(finish(chain).position.run, run);
    EXPECT_EQ(loaded(run), tree);
}

TEST_F(RecordChainTest, NamesItsPredecessorAndTellsWhatItCameTo)
{
    runOnce(10);
    const StoredRecord first = {.position = index.position()};
    runOnce(3);
    RecordChain chain = open();
    const RecordHead head = chain.head(2);
    EXPECT_EQ(head.predecessor, (RecordLink{1, first.position.digest}));
    EXPECT_EQ(head.items, tree.size());
    EXPECT_EQ(head.bytes, index.contentBytes());
    EXPECT_EQ(head.description.systemName, "iMac");
    ASSERT_EQ(chain.runs().size(), 2U);
    EXPECT_EQ(chain.runs()[1].run, 2U);
    EXPECT_EQ(chain.runs()[1].state, RecordState::finished);
}

TEST_F(RecordChainTest, TellsAMachineThatHasSeenALaterRun)
{
    runOnce(10);
    const auto older = place.stored;
    runOnce(3);
    place.stored = older;
    EXPECT_EQ(faultOf([this] { open().refuseOlderThan(index.position()); }),
              RecordFault::Kind::rolledBack);
    place.stored.clear();
    EXPECT_EQ(faultOf([this] { open().refuseOlderThan(index.position()); }),
              RecordFault::Kind::rolledBack);
    open().refuseOlderThan({});
}

TEST_F(RecordChainTest, RefusesARecordThatAnotherOneDoesNotBuildOn)
{
    runOnce(200);
    runOnce(1);
    auto& records = place.stored[kChain];
    // The first run's record, written anew with another content.
    MemoryPlace elsewhere;
    ItemIndex other = ItemIndex::temporary();
    RecordChain chain = RecordChain::open(elsewhere, kMachine, folder.path());
    other.put(fileAt("/other", 1, 1), chain.begin({.identity = kMachine}, {}));
    chain.storeFinished(other, {});
    records["00000001-finished"] = elsewhere.stored[kChain]["00000001-finished"];
    EXPECT_EQ(loaded(1).size(), 1U);
    EXPECT_EQ(faultOf([this] { (void)loaded(2); }), RecordFault::Kind::damaged);
}

TEST_F(RecordChainTest, RefusesARecordOfAnotherMachineUserOrProfile)
{
    runOnce(1);
    for (std::string ChainIdentity::*field :
         {&ChainIdentity::machine, &ChainIdentity::user, &ChainIdentity::profile}) {
        ChainIdentity another = kMachine;
        another.*field = "another";
        MemoryPlace elsewhere;
        ItemIndex other = ItemIndex::temporary();
        RecordChain chain = RecordChain::open(elsewhere, another, folder.path());
        other.put(fileAt("/other", 1, 1), chain.begin({.identity = another}, {}));
        chain.storeFinished(other, {});
        place.stored[kChain]["00000001-finished"] =
            elsewhere.stored[chainName(another)]["00000001-finished"];
        EXPECT_EQ(faultOf([this] { (void)loaded(1); }), RecordFault::Kind::damaged);
        EXPECT_EQ(faultOf([this] { (void)open().head(1); }), RecordFault::Kind::damaged);
    }
}

TEST_F(RecordChainTest, RefusesRecordsThatTradedTheirNames)
{
    runOnce(200);
    runOnce(150);
    auto& records = place.stored[kChain];
    std::swap(records["00000001-finished"], records["00000002-finished"]);
    EXPECT_EQ(faultOf([this] { (void)loaded(1); }), RecordFault::Kind::damaged);
    EXPECT_EQ(faultOf([this] { (void)loaded(2); }), RecordFault::Kind::damaged);
    EXPECT_EQ(faultOf([this] { (void)open().head(2); }), RecordFault::Kind::damaged);
}

TEST_F(RecordChainTest, LeavesAnIndexEmptyAndAtNoPositionWhenLoadingFails)
{
    runOnce(200);
    runOnce(1);
    std::string& bytes = place.stored[kChain]["00000002-finished"];
    bytes[bytes.size() / 2] ^= 1;
    EXPECT_EQ(faultOf([this] { open().load(2, index); }), RecordFault::Kind::damaged);
    EXPECT_EQ(index.position(), IndexPosition{});
    EXPECT_EQ(index.itemCount(), 0U);
}

TEST_F(RecordChainTest, GoesOnWithAFullRecordWhenTheNewestCannotBeRead)
{
    runOnce(200);
    place.stored[kChain]["00000001-finished"].resize(20);
    index.clear();
    tree.clear();
    const StoredRecord stored = runOnce(10);
    EXPECT_TRUE(stored.isFull);
    EXPECT_EQ(stored.position.run, 2U);
    EXPECT_TRUE(loaded(2) == tree);
}

TEST_F(RecordChainTest, TakesAnUnfinishedRecordForARunThatWasCutOff)
{
    runOnce(100);
    RecordChain chain = open();
    const std::uint64_t run = begin(chain);
    change(fileAt("/new", 5, run), run);
    chain.storeUnfinished(index, {});
    change(fileAt("/newer", 6, run), run);
    chain.storeUnfinished(index, {});
    EXPECT_TRUE(place.stored[kChain].contains("00000002-unfinished-02"));
    EXPECT_TRUE(loaded(2) == tree);
    RecordChain later = open();
    EXPECT_EQ(later.newestRun(), 2U);
    EXPECT_EQ(later.newestFinished(), 1U);
    // The index made anew from it is where the next run may go on from.
    ItemIndex anew = ItemIndex::temporary();
    EXPECT_EQ(later.load(2, anew).state, RecordState::unfinished);
    EXPECT_EQ(anew.position(), index.position());
    index = std::move(anew);
    EXPECT_FALSE(runOnce(0).isFull);
    EXPECT_TRUE(loaded(3) == tree);
}

TEST_F(RecordChainTest, SaysOfARunThatStoredNothingThatItWasCutOff)
{
    RecordChain chain = open();
    begin(chain);
    EXPECT_EQ(faultOf([this] { (void)loaded(1); }), RecordFault::Kind::notFound);
    EXPECT_EQ(faultOf([this] { (void)loaded(7); }), RecordFault::Kind::notFound);
    EXPECT_EQ(open().runs().at(0).state, RecordState::begun);
}

TEST_F(RecordChainTest, RefusesToBuildOnAnIndexThatIsElsewhere)
{
    runOnce(10);
    const IndexPosition old = index.position();
    runOnce(10);
    RecordChain chain = open();
    EXPECT_EQ(faultOf([&] { chain.begin({}, old); }), RecordFault::Kind::failed);
}

TEST_F(RecordChainTest, StaysReadableWhereverARunIsCutOff)
{
    std::map<std::uint64_t, Tree> trees;
    for (int cut = 0; cut < 200; ++cut) {
        place.putsLeft = cut % 4;
        try {
            RecordChain chain = open();
            const std::uint64_t run = begin(chain);
            change(fileAt("/f" + std::to_string(cut % 50), random() % 1000, run), run);
            chain.storeUnfinished(index, {});
            change(fileAt("/g", random() % 1000, run), run);
            chain.storeUnfinished(index, {});
            trees.emplace(run, tree);
            finish(chain);
        } catch (const RecordFault& fault) {
            EXPECT_EQ(fault.kind(), RecordFault::Kind::temporary);
        }
        place.putsLeft = 1000000;
        RecordChain chain = open();
        for (const ListedRun& run : chain.runs()) {
            if (run.state == RecordState::finished) {
                EXPECT_TRUE(loaded(run.run) == trees.at(run.run)) << cut;
            }
        }
    }
    runOnce(1);
    EXPECT_TRUE(loaded(open().newestFinished()) == tree);
}

TEST_F(RecordChainTest, TellsOfOtherChainsAndPassesOverForeignNames)
{
    runOnce(10);
    place.stored["other.ann.default"]["00000009-finished"] = "x";
    place.stored[kChain]["notes.txt"] = "x";
    RecordChain chain = open();
    EXPECT_EQ(chain.otherChains(), std::vector<std::string>{"other.ann.default"});
    EXPECT_EQ(chain.newestRun(), 1U);
}

TEST_F(RecordChainTest, LeavesNothingInTheWorkFolder)
{
    runOnce(10);
    folder.write("record.part", "left by a kill");
    runOnce(10);
    (void)loaded(2);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

} // namespace
