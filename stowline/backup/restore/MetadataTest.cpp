#include "stowline/backup/restore/Metadata.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace stowline::backup {
namespace {

class PutMetadata : public ::testing::Test {
protected:
    PutMetadata()
    {
        place_.write("file", "f");
        struct stat found {};
        EXPECT_EQ(stat((place_.path() / "file").c_str(), &found), 0);
        record_.path = "/file";
        record_.mode = found.st_mode & 07777U;
        record_.owner = found.st_uid;
        record_.group = found.st_gid;
    }

    [[nodiscard]] MetadataOutcome put()
    {
        int error = 0;
        const auto folder = platform::TargetFolder::open(place_.path(), false, error);
        return putMetadata(folder->item("file", error).value(), record_, owners_);
    }

    [[nodiscard]] Timestamp time() const
    {
        struct stat found {};
        EXPECT_EQ(stat((place_.path() / "file").c_str(), &found), 0);
        return {found.st_mtim.tv_sec, static_cast<std::uint32_t>(found.st_mtim.tv_nsec)};
    }

    test::TemporaryFolder place_;
    ItemRecord record_;
    Owners owners_;
};

TEST_F(PutMetadata, PutsATimeBackAndFindsItRightThen)
{
    record_.modified = {1234567890, 123456789};
    const MetadataOutcome first = put();
    EXPECT_TRUE(first.hasChanged);
    EXPECT_TRUE(first.losses.empty());
    EXPECT_EQ(time(), record_.modified);
    EXPECT_FALSE(put().hasChanged);
}

TEST_F(PutMetadata, TellsOfATimeThatTheTargetDoesNotHold)
{
    record_.modified = {std::int64_t{1} << 40, 0};
    const MetadataOutcome first = put();
    if (time() == record_.modified) {
        EXPECT_TRUE(first.losses.empty());
        GTEST_SKIP() << "the file system of the tests holds every time";
    }
    for (const MetadataOutcome& outcome : {first, put()}) {
        ASSERT_EQ(outcome.losses.size(), 1U);
        EXPECT_EQ(outcome.losses[0].kind, LossKind::time);
        EXPECT_FALSE(outcome.losses[0].isNotAllowed);
        EXPECT_EQ(outcome.losses[0].sentence,
                  "/file: its time cannot be put back: the target holds no such time.");
    }
    EXPECT_TRUE(first.hasChanged);
    EXPECT_FALSE(put().hasChanged) << "it has the nearest time already";
}

} // namespace
} // namespace stowline::backup
