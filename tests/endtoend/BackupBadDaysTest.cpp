// Bad days of this machine: files that never rest, clocks that jump, disks that are full, users
// that meet. Whatever happens, the numbers add up and a success is one.
#include "tests/endtoend/BackedUp.h"
#include "tests/endtoend/OtherClock.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::noise;
using test::Words;

/// Whether a run ended as it says: the numbers add up, and only a run without failures is done.
void expectTruth(const test::ProgramResult& result)
{
    const auto number = [&result](const char* name) { return field(result, name).get<unsigned>(); };
    EXPECT_EQ(number("found"), number("stored") + number("unchanged") + number("recorded") +
                                   number("excluded") + number("failed"))
        << result.output;
    EXPECT_EQ(result.status, number("failed") + number("changed_while_read") == 0 ? 0 : 3)
        << result.output << result.errors;
}

/// Does something again and again beside the test, as long as it exists.
class Restless {
public:
    explicit Restless(std::function<void(std::uint64_t round)> work)
        : thread_([this, work = std::move(work)] {
              for (std::uint64_t round = 0; !isOver_; ++round)
                  work(round);
          })
    {
    }
    ~Restless()
    {
        isOver_ = true;
        thread_.join();
    }
    Restless(const Restless&) = delete;
    Restless& operator=(const Restless&) = delete;

private:
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

void shortPause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the pace of the writer
}

// ---- files that never rest ----

TEST(RestlessFiles, ALogThatGrowsAllTheTimeIsStoredAsItWasAtOneMoment)
{
    const BackedUp account;
    const fs::path file = account.folder.path() / "log";
    account.write({{"log", noise(300000, 1)}});
    std::string whole = noise(300000, 1);
    {
        const Restless writer([&](std::uint64_t round) {
            const std::string line = "line " + std::to_string(round) + "\n";
            whole += line;
            std::ofstream(file, std::ios::app) << line;
            shortPause();
        });
        for (int run = 0; run < 3; ++run) {
            const auto result = account.backup({"--part-size", "64k"});
            expectTruth(result);
            EXPECT_EQ(field(result, "stored"), 1) << result.errors;
        }
    }
    const std::string stored = account.stored().at("log");
    EXPECT_GT(stored.size(), 300000U);
    EXPECT_TRUE(whole.starts_with(stored));
    EXPECT_TRUE(account.journal().entries().empty());
}

TEST(RestlessFiles, ADatabaseWrittenAllTheTimeIsOneStateOrTold)
{
    const BackedUp account;
    constexpr std::size_t size = 2000000;
    account.write({{"database", std::string(size, '\0')}});
    const int file = ::open((account.folder.path() / "database").c_str(), O_RDWR | O_CLOEXEC);
    {
        const Restless writer([&](std::uint64_t round) { // first page, then last page
            (void)!::pwrite(file, &round, sizeof round, 0);
            (void)!::pwrite(file, &round, sizeof round, size - sizeof round);
            shortPause();
        });
        for (int run = 0; run < 4; ++run) {
            const auto result = account.backup({"--part-size", "256k"});
            expectTruth(result);
            const std::string stored = account.stored().at("database");
            std::uint64_t first = 0;
            std::uint64_t last = 0;
            std::memcpy(&first, stored.data(), sizeof first);
            std::memcpy(&last, stored.data() + size - sizeof last, sizeof last);
            const bool isTold = field(result, "changed_while_read") == 1 &&
                                says(result, "changed while it was read");
            EXPECT_TRUE(first - last <= 1 || isTold) // between two writes at the most
                << first << " " << last << result.output << result.errors;
        }
    }
    ::close(file);
}

TEST(RestlessFiles, OnesThatMayChangeEndNoRunWithThree)
{
    const BackedUp account;
    account.write({{"database", noise(3000000, 1)}});
    const int file = ::open((account.folder.path() / "database").c_str(), O_RDWR | O_CLOEXEC);
    {
        const Restless writer(
            [&](std::uint64_t round) { (void)!::pwrite(file, &round, sizeof round, 0); });
        EXPECT_EQ(account.backup({"--allow-changing", "database"}).status, 0);
    }
    ::close(file);
}

/// A file that is written all the time, and a state folder without room for a copy of it.
class RestlessFilesWithoutRoom : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto reason = test::enterMountNamespace())
            GTEST_SKIP() << *reason;
        account_.emplace();
        account_->write({{"database", noise(3000000, 1)}, {"rests", "r"}});
    }

    [[nodiscard]] test::ProgramResult backup(Words more = {}) const
    {
        more.insert(more.end(), {"--part-size", "64k", "--bwlimit", "2m", "--jobs", "1"});
        test::ProgramRun run = account_->backupRun(more);
        run.environment["XDG_STATE_HOME"] = stateFolder();
        return test::runProgram(run);
    }
    [[nodiscard]] fs::path stateFolder() const { return place_.path() / "state"; }

    /// The file is written from before the run's beginning until after its end.
    [[nodiscard]] test::ProgramResult backupWhileItIsWritten(const Words& more = {}) const
    {
        const int file = ::open((account_->folder.path() / "database").c_str(), O_RDWR | O_CLOEXEC);
        std::optional<test::ProgramResult> result;
        {
            const Restless writer([&](std::uint64_t round) {
                (void)!::pwrite(file, &round, sizeof round, 1000);
                shortPause();
            });
            result = backup(more);
        }
        ::close(file);
        return *result;
    }

    const test::TemporaryFolder place_;
    std::optional<BackedUp> account_;
};

TEST_F(RestlessFilesWithoutRoom, AreStoredAndToldAndEndTheRunWithThree)
{
    const test::Mount disk = test::Mount::memory(stateFolder(), "size=2m");
    const auto result = backupWhileItIsWritten();
    expectTruth(result);
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "stored"), 2) << result.output;
    EXPECT_EQ(field(result, "changed_while_read"), 1);
    const std::string path = account_->folder.path() / "database";
    EXPECT_TRUE(says(
        result, path + " changed while it was read: what is stored may mix several states of it."))
        << result.errors;
    std::map<std::string, bool> marked;
    for (const auto& line : test::jsonLines(result.output)) {
        if (line.contains("changed_while_read") && line.value("kind", "") == "file")
            marked.emplace(line["path"], line["changed_while_read"]);
    }
    const std::map<std::string, bool> expected{{path, true},
                                               {account_->folder.path() / "rests", false}};
    EXPECT_EQ(marked, expected);
    EXPECT_EQ(account_->stored().at("database").size(), 3000000U);

    const auto quiet = backup();
    EXPECT_EQ(quiet.status, 0) << quiet.errors;
    EXPECT_EQ(field(quiet, "stored"), 1) << quiet.output;
    EXPECT_EQ(field(quiet, "changed_while_read"), 0);
    EXPECT_EQ(account_->stored().at("database"),
              platform::readFile(account_->folder.path() / "database"));
}

TEST_F(RestlessFilesWithoutRoom, ThatMayChangeAreToldAllTheSame)
{
    const test::Mount disk = test::Mount::memory(stateFolder(), "size=2m");
    const auto result = backupWhileItIsWritten({"--allow-changing", "database"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "changed_while_read"), 1);
    EXPECT_TRUE(says(result, "changed while it was read")) << result.errors;
}

TEST(RestlessFiles, WritesThroughAMemoryMapAreFoundByTrustingNothing)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    const test::Mount disk = test::Mount::memory(account.folder.path() / "disk");
    account.write({{"disk/mapped", noise(10000, 1)}});
    const fs::path path = account.folder.path() / "disk/mapped";
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    void* map = ::mmap(nullptr, 10000, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ASSERT_NE(map, MAP_FAILED);
    std::memcpy(map, "a", 1); // the page is writable from here on
    std::this_thread::sleep_for(std::chrono::milliseconds(2200)); // until the stamps are settled
    ASSERT_EQ(account.backup().status, 0);
    std::memcpy(map, "written later", 13);
    EXPECT_EQ(field(account.backup(), "stored"), 0) << "they show no stamp";
    const auto result = account.backup({"--trust-nothing"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_TRUE(account.stored().at("disk/mapped").starts_with("written later"));
    ::munmap(map, 10000);
    ::close(file);
}

TEST(RestlessFiles, ATreeThatChangesUnderTheWalkIsAccountedFor)
{
    const BackedUp account;
    const fs::path& top = account.folder.path();
    Files files;
    for (unsigned i = 0; i < 60; ++i)
        files.emplace("d" + std::to_string(i % 6) + "/f" + std::to_string(i), noise(500, i));
    account.write(files);
    {
        std::mt19937 random(7);
        const Restless churn([&](std::uint64_t round) {
            const fs::path item =
                top / ("d" + std::to_string(random() % 6)) / ("f" + std::to_string(random() % 60));
            std::error_code fault;
            switch (round % 5) {
            case 0: // grows; nobody would read a pipe
                if (fs::is_regular_file(fs::symlink_status(item, fault)))
                    std::ofstream(item, std::ios::app) << "more";
                break;
            case 1: // vanishes
                fs::remove_all(item, fault);
                break;
            case 2: // a folder, a link, a pipe
                fs::remove_all(item, fault);
                fs::create_directory(item, fault);
                break;
            case 3:
                fs::remove_all(item, fault);
                fs::create_symlink("nowhere", item, fault);
                break;
            default:
                fs::remove_all(item, fault);
                (void)::mkfifo(item.c_str(), 0600);
            }
        });
        for (int run = 0; run < 3; ++run) {
            const auto result = account.backup();
            expectTruth(result);
        }
    }
    const auto quiet = account.backup();
    EXPECT_EQ(quiet.status, 0) << quiet.errors;
    const auto target = account.command.home().path() / "back";
    const auto restored =
        account.run({"restore", top.string(), "--machine", "iMac", "--to", target});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    const auto compared = test::runProgram(
        {{"/usr/bin/diff", "-r", "--no-dereference", top.string(), target / top.filename()}});
    EXPECT_EQ(compared.output.find("Only in"), std::string::npos) << compared.output;
    EXPECT_EQ(compared.output.find("differ"), std::string::npos) << compared.output;
}

// ---- clocks and disk images ----

/// A backup whose clock is another one.
test::ProgramResult withClock(const BackedUp& account, const std::string& shift)
{
    return test::runWithClock(account.backupRun(), shift);
}

TEST(JumpingClock, LosesNoChange)
{
    if (const auto why = test::whyNoOtherClock(); !why.empty())
        GTEST_SKIP() << why;
    const BackedUp account;
    account.write({{"a", "first"}});
    ASSERT_EQ(account.backup().status, 0);
    const fs::path file = account.folder.path() / "a";
    const auto date = fs::last_write_time(file);
    int number = 0;
    for (const char* shift : {"-1h", "+1y", "-1h", "+0"}) {
        account.write({{"a", "turn" + std::to_string(number++)}}); // of the same size
        fs::last_write_time(file, date);                           // and of the same date
        const auto changed = withClock(account, shift);
        EXPECT_EQ(changed.status, 0) << shift << changed.errors;
        EXPECT_EQ(field(changed, "stored"), 1) << shift << changed.output;
        const auto again = withClock(account, shift);
        EXPECT_EQ(field(again, "stored"), 0) << shift << again.output;
        EXPECT_EQ(field(again, "unchanged"), 1) << shift;
    }
    EXPECT_EQ(account.stored(), (Files{{"a", "turn3"}}));
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

TEST(OldDiskImage, AnIndexOfLastWeekIsMadeAnewAndLosesNothing)
{
    const BackedUp account;
    const fs::path index = account.command.home().path() / ".local/state/stowline/index";
    const test::TemporaryFolder image;
    account.write({{"a", "1"}, {"b", "2"}});
    ASSERT_EQ(account.backup().status, 0);
    fs::copy(index, image.path() / "index", fs::copy_options::recursive);
    account.write({{"a", "new"}, {"c", "3"}});
    fs::remove(account.folder.path() / "b");
    const auto newest = account.backup();
    ASSERT_EQ(newest.status, 0);
    fs::remove_all(index);
    fs::copy(image.path() / "index", index, fs::copy_options::recursive);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(says(result, "is not at the newest record")) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(field(result, "unchanged"), 2);
    EXPECT_EQ(field(result, "record_items"), field(newest, "record_items")); // no b
}

// ---- the state folder ----

TEST(StateFolder, ThatIsFullIsSaidToBeAndTheNextRunIsWhole)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    Files files;
    for (unsigned i = 0; i < 300; ++i)
        files.emplace("a folder with a long name " + std::to_string(i) + "/" +
                          std::string(200, 'n'),
                      noise(10, i));
    account.write(files);
    const test::TemporaryFolder place;
    for (const char* size : {"size=4k", "size=64k", "size=160k", "size=256k"}) {
        const test::Mount disk = test::Mount::memory(place.path() / "state", size);
        test::ProgramRun run = account.backupRun();
        run.environment["XDG_STATE_HOME"] = (place.path() / "state").string();
        const auto result = test::runProgram(run);
        EXPECT_NE(result.status, 0) << size << result.output;
        EXPECT_TRUE(says(result, "No space left") || says(result, "disk is full"))
            << size << result.errors;
        EXPECT_FALSE(says(result, "Another backup")) << result.errors;
    }
    const auto result = account.backup(); // with room
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(account.stored(), files);
    EXPECT_EQ(account.run({"verify", "--machine", "iMac", "--read"}).status, 0);
}

TEST(StateFolder, BelowWhatIsBackedUpIsNoPartOfIt)
{
    const BackedUp account;
    account.write({{"a", "1"}, {"d/b", "2"}});
    const fs::path state = account.folder.path() / "d/state";
    for (int number = 1; number <= 3; ++number) {
        test::ProgramRun run = account.backupRun();
        run.environment["XDG_STATE_HOME"] = state.string();
        const auto result = test::runProgram(run);
        EXPECT_EQ(result.status, 0) << result.errors;
        expectTruth(result);
        EXPECT_EQ(field(result, "stored"), number == 1 ? 2 : 0) << result.output;
        EXPECT_EQ(field(result, "excluded"), 1) << result.output;
        std::vector<std::string> excluded;
        for (const auto& line : test::jsonLines(result.output)) {
            if (line.value("state", "") == "excluded")
                excluded.push_back(line["path"]);
        }
        EXPECT_EQ(excluded, std::vector<std::string>{state / "stowline"});
        EXPECT_EQ(account.stored(), (Files{{"a", "1"}, {"d/b", "2"}}));
    }
    EXPECT_TRUE(fs::exists(state / "stowline/index"));
}

/// The same program as another user of the machine.
test::ProgramRun asNobody(test::ProgramRun run, const fs::path& home)
{
    run.environment["HOME"] = home.string();
    run.words.insert(run.words.begin(), {"/usr/bin/setpriv", "--reuid", "65534", "--clear-groups"});
    return run;
}

/// A folder that everybody may read, and one that nobody owns.
void openToAll(const BackedUp& account, const test::TemporaryFolder& home)
{
    ASSERT_EQ(::chown(home.path().c_str(), 65534, 65534), 0);
    for (const fs::path& top : {account.folder.path(), account.server.bundle()}) {
        fs::permissions(top.parent_path(), fs::perms::others_exec, fs::perm_options::add);
        fs::permissions(top, fs::perms(0755));
        for (const auto& item : fs::recursive_directory_iterator(top))
            fs::permissions(item.path(), fs::perms(item.is_directory() ? 0755 : 0644));
    }
}

TEST(StateFolder, ThatTakesNothingIsSaidTo)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Needs to become another user.";
    const BackedUp account;
    const test::TemporaryFolder home;
    account.write({{"a", "1"}});
    openToAll(account, home);
    fs::permissions(home.path(), fs::perms(0555));
    const auto result = test::runProgram(asNobody(account.backupRun(), home.path()));
    EXPECT_EQ(result.status, 1) << result.errors;
    EXPECT_TRUE(says(result, "cannot be made: Permission denied.")) << result.errors;
    EXPECT_TRUE(account.stored().empty());
    // Nor does a library say so in its own words.
    EXPECT_FALSE(says(result, "CRITICAL") || says(result, "dconf")) << result.errors;
}

TEST(TwoUsers, OfOneMachineAndAccountKeepRunsOfTheirOwn)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Needs to become another user.";
    const BackedUp account;
    const test::TemporaryFolder home;
    account.write({{"big", noise(200000, 1)}, {"small", "2"}});
    openToAll(account, home);
    test::BackgroundProgram root(account.backupRun({"--part-size", "16k", "--bwlimit", "64k"}));
    account.awaitSent(1);
    const auto user = test::runProgram(asNobody(account.backupRun(), home.path()));
    EXPECT_EQ(user.status, 0) << user.errors;
    EXPECT_EQ(field(user, "run"), 1);
    expectTruth(user);
    const auto own = root.wait();
    EXPECT_EQ(own.status, 0) << own.errors;
    EXPECT_EQ(field(own, "run"), 1);
    EXPECT_EQ(field(account.backup(), "run"), 2); // nobody else's run came between
}

TEST(FewProcesses, AreSaidToBe)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Needs to become another user.";
    const BackedUp account;
    const test::TemporaryFolder home;
    account.write({{"a", "1"}, {"b", "2"}});
    openToAll(account, home);
    // In between GLib ends the program in its own words where it gets no thread.
    for (const int most : {1, 2, 8, 12}) {
        test::ProgramRun run = account.backupRun({"--retry-time", "1", "--jobs", "4"});
        run.words.insert(run.words.begin(), "/usr/bin/prlimit");
        run.words.insert(run.words.begin() + 1, "--nproc=" + std::to_string(most));
        run = asNobody(std::move(run), home.path());
        const auto result = test::runProgram(run);
        for (const char* wrong : {"install", "disk", "Another backup", "refused"})
            EXPECT_FALSE(says(result, wrong)) << most << "\n" << result.errors;
        EXPECT_LT(result.status, 1000) << most << "\n" << result.errors; // ended by no signal
        const bool isExplained = says(result, "thread") || says(result, "processes");
        EXPECT_TRUE(result.status == 0 || isExplained) << most << "\n" << result.errors;
        if (result.status == 0) {
            EXPECT_EQ(account.stored(), (Files{{"a", "1"}, {"b", "2"}})) << most;
        }
    }
}

} // namespace
} // namespace stowline
