#include "cli/shared/Successes.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

using std::chrono::days;

const Date kThen{std::chrono::seconds(1'700'000'000)};

class Successes : public testing::Test {
protected:
    void note(const BackupSubject& subject, int day) const
    {
        noteSuccess(file_, subject, kThen + days(day));
    }

    /// The day of the newest success; -1: none is known.
    [[nodiscard]] std::int64_t dayOf(const BackupSubject& subject) const
    {
        const auto moment = successIn(file_, subject);
        return moment ? std::chrono::duration_cast<days>(*moment - kThen).count() : -1;
    }

    test::TemporaryFolder folder_;
    std::filesystem::path file_ = folder_.path() / "last-good-run";
};

TEST_F(Successes, CountForTheSameAccountMachineAndPathsAlone)
{
    note({"ann", "iMac", {"/a", "/b"}}, 1);
    note({"ann", "iMac", {"/c"}}, 5);
    note({"bob", "iMac", {"/a", "/b"}}, 6);
    note({"ann", "Mini", {"/a", "/b"}}, 7);
    EXPECT_EQ(dayOf({"ann", "iMac", {"/b", "/a", "/b"}}), 1);
    EXPECT_EQ(dayOf({"ann", "iMac", {"/c"}}), 5);
    EXPECT_EQ(dayOf({"ann", "iMac", {"/a"}}), -1);
    EXPECT_EQ(dayOf({"ann", "Mini", {"/c"}}), -1);
    EXPECT_EQ(dayOf({"ann", "iMac", {}}), 5) << "no paths were said";
    EXPECT_EQ(dayOf({"ann", "", {}}), 7);
    EXPECT_EQ(dayOf({}), 7);
}

TEST_F(Successes, TakeThePlaceOfEarlierOnesOfTheSameSubject)
{
    note({"ann", "iMac", {"/a"}}, 5);
    note({"ann", "iMac", {"/a"}}, 2); // the clock was put back
    EXPECT_EQ(dayOf({"ann", "iMac", {"/a"}}), 2);
    note({"ann", "iMac", {}}, 1); // a self-test names no paths
    EXPECT_EQ(dayOf({"ann", "iMac", {}}), 2);
}

TEST_F(Successes, OfAnEarlierVersionCountForAllUntilOneIsNoted)
{
    folder_.write("last-good-run", "2023-11-14T22:13:20Z\n");
    EXPECT_EQ(dayOf({"ann", "iMac", {"/a"}}), 0);
    note({"bob", "iMac", {"/a"}}, 3);
    EXPECT_EQ(dayOf({"ann", "iMac", {"/a"}}), -1);
}

TEST_F(Successes, AreNoneInAFileThatIsMissingOrNoSuchFile)
{
    EXPECT_EQ(dayOf({}), -1);
    folder_.write("last-good-run", "never\n\n- - - -\n");
    EXPECT_EQ(dayOf({}), -1);
}

TEST_F(Successes, OfVeryManySubjectsAreTheNewest)
{
    for (int i = 0; i < 250; ++i)
        note({"ann", "iMac", {std::to_string(i)}}, i);
    EXPECT_EQ(dayOf({"ann", "iMac", {"249"}}), 249);
    EXPECT_EQ(dayOf({"ann", "iMac", {"50"}}), 50);
    EXPECT_EQ(dayOf({"ann", "iMac", {"49"}}), -1);
}

} // namespace
} // namespace stowline::cli
