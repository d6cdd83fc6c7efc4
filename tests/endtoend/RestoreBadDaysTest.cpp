// Restoring when the target is full or may not be written, and for longer than a ticket lives.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/mount.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Mount;
using test::Words;

test::ProgramResult restore(const BackedUp& account, const fs::path& target, Words more = {})
{
    Words words{"restore", account.folder.path(), "--machine", "iMac", "--to", target, "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return account.run(words);
}

TEST(RestoreBadDays, AFullDiskTakesWhatHasRoomAndNothingHalf)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    const std::string large = test::noise(3U << 20, 1);
    account.write({{"large", large}, {"small", "has room"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "full";
    const fs::path back = target / account.folder.path().filename();
    {
        const Mount disk = Mount::memory(target, "size=1m");
        const auto result = restore(account, target);
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_EQ(field(result, "failed"), 1) << result.output;
        EXPECT_NE(result.errors.find("large"), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("No space left"), std::string::npos) << result.errors;
        EXPECT_EQ(platform::readFile(back / "small"), "has room");
        EXPECT_FALSE(fs::exists(back / "large"));
        EXPECT_EQ(std::distance(fs::directory_iterator(back), fs::directory_iterator()), 1)
            << "room is taken by what cannot be finished";
    }
    EXPECT_EQ(restore(account, target).status, 0);
    EXPECT_TRUE(platform::readFile(back / "large") == large);
}

TEST(RestoreBadDays, ATargetThatMayNotBeWrittenIsTold)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    account.write({{"a", "a"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "read-only";
    const Mount disk = Mount::memory(target, "size=1m");
    ASSERT_EQ(mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    const auto result = restore(account, target);
    EXPECT_NE(result.status, 0);
    EXPECT_NE(result.errors.find("Read-only file system"), std::string::npos) << result.errors;
    EXPECT_EQ(field(result, "restored"), 0) << result.output;
}

TEST(RestoreBadDays, ATicketThatEndsIsRenewed)
{
    const BackedUp account({"--ticket-seconds", "1"});
    const std::string content = test::noise(1U << 20, 2);
    account.write({{"a", content}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "back";
    const auto result = restore(account, target, {"--bwlimit", "300k"}); // some four seconds
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(platform::readFile(target / account.folder.path().filename() / "a") == content);
}

} // namespace
} // namespace stowline
