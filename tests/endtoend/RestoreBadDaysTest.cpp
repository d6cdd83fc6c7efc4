// Restoring when the target is full, may not be written or is an odd file system, when the ground
// moves meanwhile, and for longer than a ticket or a password lives.
#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/OddFileSystem.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <set>
#include <sys/mount.h>
#include <thread>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::kNoOddFileSystem;
using test::Mount;
using test::OddFileSystem;
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

TEST(RestoreBadDays, NamedPathsThatTheTargetDoesNotTellApartAreNoSuccess)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    const fs::path& top = account.folder.path();
    account.write({{"A/File", "large letter"}, {"B/file", "small letter"}, {"C/FILE/a", "folder"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "blind";
    const OddFileSystem disk(target, {"case-blind"});
    if (!disk.isMounted())
        GTEST_SKIP() << kNoOddFileSystem;
    for (int run = 0; run < 2; ++run) { // the second finds what the first put there
        const auto result = account.run({"restore", "--json", top / "A/File", top / "B/file",
                                         top / "C/FILE", "--machine", "iMac", "--to", target});
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_EQ(field(result, "failed"), 3) << result.output << result.errors;
        EXPECT_EQ(platform::readFile(target / "File"), "large letter") << run;
    }
}

TEST(RestoreBadDays, NamesThatTheTargetDoesNotTellApartAreNoSuccess)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    account.write({{"File", "large letter"},
                   {"file", "small letter"},
                   {"Folder/a", "a of the first"},
                   {"folder/a", "a of the second"},
                   {"other", "other"}});
    fs::create_symlink("nowhere", account.folder.path() / "OTHER");
    fs::create_hard_link(account.folder.path() / "other", account.folder.path() / "z");
    fs::create_hard_link(account.folder.path() / "other", account.folder.path() / "Z");
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "blind";
    const OddFileSystem disk(target, {"case-blind"});
    if (!disk.isMounted())
        GTEST_SKIP() << kNoOddFileSystem;
    const fs::path back = target / account.folder.path().filename();
    for (int run = 0; run < 2; ++run) { // the second finds what the first put there
        const auto result = restore(account, target, {"--jobs", "1"}); // in their order
        EXPECT_EQ(result.status, 3) << result.errors;
        // Of each pair one: a file, a folder with its file, a link or a file, a further name.
        EXPECT_EQ(field(result, "failed"), 5) << result.output << result.errors;
        EXPECT_NE(result.errors.find("does not distinguish its name from that of"),
                  std::string::npos)
            << result.errors;
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(disk.behind() / back.filename()))
            names.insert(entry.path().filename());
        EXPECT_EQ(names, (std::set<std::string>{"File", "Folder", "OTHER", "Z"}));
        EXPECT_EQ(platform::readFile(back / "File"), "large letter");
        EXPECT_EQ(platform::readFile(back / "Folder/a"), "a of the first");
    }
    // What stands there and is not an item of the run is what it is taken for.
    fs::remove_all(disk.behind() / back.filename());
    fs::create_directories(disk.behind() / back.filename() / "FOLDER");
    const auto result = restore(account, target,
                                {"--exclude", "/[Ff]ile", "--exclude", "/folder", "--exclude",
                                 "/[Zz]", "--exclude", "/OTHER"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(platform::readFile(disk.behind() / back.filename() / "FOLDER/a"), "a of the first");
}

TEST(RestoreBadDays, ANameThatIsTooLongForTheTargetFailsAlone)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    const std::string longName(60, 'n');
    account.write({{longName, "long"}, {longName + "folder/a", "a"}, {"b", "b"}});
    fs::create_symlink("nowhere", account.folder.path() / (longName + "link"));
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "short";
    const OddFileSystem disk(target, {"names=50"});
    if (!disk.isMounted())
        GTEST_SKIP() << kNoOddFileSystem;
    const auto result = restore(account, target);
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "failed"), 4) << result.output << result.errors;
    EXPECT_NE(result.errors.find(longName + ": "), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("File name too long"), std::string::npos) << result.errors;
    const fs::path back = target / account.folder.path().filename();
    EXPECT_EQ(platform::readFile(back / "b"), "b");
    EXPECT_EQ(std::distance(fs::directory_iterator(back), fs::directory_iterator()), 1)
        << "what has no name is left behind";
}

TEST(RestoreBadDays, AQuotaIsNamedAsWhatItIs)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    account.write({{"large", test::noise(200000, 3)}, {"small", "has room"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "quota";
    const OddFileSystem disk(target, {"quota=100000"});
    if (!disk.isMounted())
        GTEST_SKIP() << kNoOddFileSystem;
    const auto result = restore(account, target, {"--jobs", "1"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "failed"), 1) << result.output << result.errors;
    EXPECT_NE(result.errors.find("quota exceeded"), std::string::npos) << result.errors;
    const fs::path back = target / account.folder.path().filename();
    EXPECT_EQ(platform::readFile(back / "small"), "has room");
    EXPECT_EQ(std::distance(fs::directory_iterator(back), fs::directory_iterator()), 1)
        << "room is taken by what cannot be finished";
}

TEST(RestoreBadDays, AnotherFileSystemInsideTheTargetTakesItsShare)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    account.write({{"a", "a"}, {"disk/b", "b"}, {"disk/deep/c", test::noise(100000, 4)}});
    fs::create_hard_link(account.folder.path() / "a", account.folder.path() / "disk/same");
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "back";
    const fs::path back = target / account.folder.path().filename();
    const Mount disk = Mount::memory(back / "disk");
    const auto result = restore(account, target);
    EXPECT_EQ(result.status, 3) << "no hard link leads to another file system";
    EXPECT_TRUE(says(result, "disk/same: it cannot be made another name of " +
                                 (account.folder.path() / "a").string() +
                                 "; it is a file of its own now."))
        << result.errors;
    EXPECT_EQ(field(result, "incomplete"), 1);
    EXPECT_EQ(field(result, "failed"), 0);
    const auto compared = test::runProgram(
        {{"/usr/bin/diff", "-r", "--no-dereference", account.folder.path(), back}});
    EXPECT_EQ(compared.status, 0) << compared.output;
    EXPECT_EQ(field(restore(account, target), "restored"), 0);
}

TEST(RestoreBadDays, FewDescriptorsAreEnough)
{
    const BackedUp account;
    test::Files files;
    for (int i = 0; i < 150; ++i)
        files.emplace("d" + std::to_string(i % 20) + "/f" + std::to_string(i), "content");
    account.write(files);
    ASSERT_EQ(account.backup().status, 0);
    for (const char* most : {"64", "128"}) {
        const fs::path target = account.command.home().path() / most;
        fs::create_directory(target);
        test::ProgramRun run = account.command.run(
            {"restore", account.folder.path(), "--machine", "iMac", "--to", target},
            account.environment());
        run.words.insert(
            run.words.begin(),
            {"/bin/sh", "-c", std::string("ulimit -n ") + most + "; exec \"$0\" \"$@\""});
        const auto result = test::runProgram(run);
        EXPECT_EQ(result.status, 0) << most << result.errors;
    }
}

TEST(RestoreBadDays, NothingGoesOutsideWhileAFolderIsSwappedForALinkAllTheTime)
{
    const BackedUp account;
    test::Files files;
    for (unsigned i = 0; i < 40; ++i)
        files.emplace("folder/f" + std::to_string(i), test::noise(3000, i));
    account.write(files);
    ASSERT_EQ(account.backup().status, 0);
    const test::TemporaryFolder outside;
    outside.write("f1", "precious");
    const fs::path target = account.command.home().path() / "back";
    const fs::path back = target / account.folder.path().filename();
    fs::create_directories(back / "folder");
    fs::create_directory_symlink(outside.path(), back / "link");
    std::atomic<bool> isOver = false;
    std::thread swapper([&] {
        while (!isOver)
            (void)renameat2(AT_FDCWD, (back / "link").c_str(), AT_FDCWD, (back / "folder").c_str(),
                            RENAME_EXCHANGE);
    });
    for (int run = 0; run < 3; ++run)
        (void)restore(account, target); // it may fail, item by item, but does nothing outside
    isOver = true;
    swapper.join();
    EXPECT_EQ(platform::readFile(outside.path() / "f1"), "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(outside.path()), fs::directory_iterator()), 1);
    fs::remove_all(back);
    EXPECT_EQ(restore(account, target).status, 0);
    EXPECT_EQ(platform::readFile(back / "folder/f1"), files.at("folder/f1"));
}

TEST(RestoreBadDays, AfterThePasswordHasChangedTheNewOneGivesEverythingBack)
{
    BackedUp account;
    const std::string content = test::noise(4000000, 5);
    account.write({{"a", content}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path target = account.command.home().path() / "back";
    const fs::path back = target / account.folder.path().filename();
    test::BackgroundProgram slow(
        account.command.run({"restore", account.folder.path(), "--machine", "iMac", "--to", target,
                             "--json", "--bwlimit", "100k", "--retry-time", "5"},
                            account.environment()));
    const auto awaitGathering = [&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline) {
            std::error_code fault;
            for (const auto& entry : fs::directory_iterator(back, fault)) {
                if (entry.is_regular_file(fault) && entry.file_size(fault) > 0)
                    return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5)); // another process's file
        }
        FAIL() << "nothing came";
    };
    awaitGathering();
    const auto changed = test::runProgram(
        {{"/usr/bin/python3", "-c",
          "import sys, zeep\n"
          "accounts = zeep.Client(sys.argv[1] + '/AccountService.asmx?wsdl').service\n"
          "print(accounts.ChangePassword(userName='ann', password=sys.argv[2], "
          "newPassword=sys.argv[3]))",
          account.server.address(), account.password, "another one"}});
    ASSERT_EQ(changed.output, "Success\n") << changed.errors;
    const auto cut = slow.wait(); // its tickets were revoked, and its password is none any more
    EXPECT_NE(cut.status, 0) << cut.output << cut.errors;
    EXPECT_FALSE(fs::exists(back / "a"));
    EXPECT_EQ(restore(account, target).status, 12); // the old password
    account.password = "another one";
    EXPECT_EQ(restore(account, target).status, 0);
    EXPECT_TRUE(platform::readFile(back / "a") == content);
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
