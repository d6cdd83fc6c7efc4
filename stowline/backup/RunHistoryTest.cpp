#include "stowline/backup/RunHistory.h"

#include "stowline/backup/SelfTestRun.h"
#include "stowline/backup/StoredTreeTest.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;

TEST(ListRuns, TellsWhatIsProvenUnlessItsNoteIsFaulty)
{
    Stored stored;
    stored.choice.stateFolder = stored.work.path() / "state";
    ASSERT_TRUE(platform::makePrivateFolder(*stored.choice.stateFolder));
    stored.machine.write("tree/a", "content");
    stored.run();
    SelfTestObserver observer;
    const auto sum = runSelfTest({.choice = stored.choice, .share = 1, .mostBytes = 1000}, observer,
                                 stored.stop);
    ASSERT_EQ(sum.end, ReadEnd::done) << sum.sentence;
    std::uint64_t proven = 0;
    std::uint64_t runs = 0;
    const auto take = [&](const RunEntry& entry) {
        proven += entry.proof ? entry.proof->provenFiles : 0;
        ++runs;
    };
    auto end = listRuns(stored.choice, take, stored.stop);
    EXPECT_EQ(end.end, ReadEnd::done) << end.sentence;
    EXPECT_EQ(proven, 1U);
    const fs::directory_iterator book(*stored.choice.stateFolder / "proofs");
    SQLite::Database(book->path().string(), SQLite::OPEN_READWRITE).exec("DROP TABLE runs");
    proven = runs = 0;
    end = listRuns(stored.choice, take, stored.stop);
    EXPECT_EQ(end.end, ReadEnd::done) << end.sentence;
    EXPECT_EQ(runs, 1U);
    EXPECT_EQ(proven, 0U);
    ASSERT_FALSE(end.origin.notes.empty());
    EXPECT_TRUE(end.origin.notes.back().starts_with("The note of what self-tests have proven"))
        << end.origin.notes.back();
}

} // namespace
} // namespace stowline::backup
