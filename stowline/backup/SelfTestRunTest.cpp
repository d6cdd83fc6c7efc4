#include "stowline/backup/SelfTestRun.h"

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RunFault.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/proof/ProofBook.h"
#include "stowline/backup/proof/TestFolder.h"
#include "tests/support/MountNamespace.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;
using Kind = SelfTestFinding::Kind;

constexpr std::int64_t kStart = 1'700'000'000;
constexpr std::int64_t kDay = 86400;
/// At kSlowly it takes half a minute to come.
constexpr std::size_t kSlowBytes = 6'000'000;
constexpr std::uint64_t kSlowly = 200'000;

struct Listener : SelfTestObserver {
    void found(const SelfTestFinding& finding) override
    {
        if (onFound)
            onFound();
        findings.push_back(finding);
        text += std::string(nameOf(finding.kind)) + " " +
                fs::path(finding.path).filename().string() + " " + std::to_string(finding.run) +
                "\n";
    }
    void progress(std::uint64_t, std::uint64_t) override
    {
        if (onProgress)
            onProgress();
    }
    void note(const std::string& sentence) override { notes += sentence + "\n"; }

    std::vector<SelfTestFinding> findings;
    std::string text;
    std::string notes;
    std::function<void()> onProgress;
    std::function<void()> onFound;
};

class SelfTestRun : public ::testing::Test {
protected:
    SelfTestRun()
    {
        EXPECT_TRUE(platform::makePrivateFolder(state()));
        request.choice = stored.choice;
        request.choice.stateFolder = state();
        request.share = 1;
        request.mostBytes = 1U << 30;
        request.now = [this] { return now++; };
        request.folders = {folders.path()};
    }

    [[nodiscard]] fs::path state() const { return stored.work.path() / "state"; }

    SelfTestSummary test()
    {
        listener = {};
        return again();
    }
    SelfTestSummary again() { return runSelfTest(request, listener, stored.stop); }

    [[nodiscard]] fs::path write(const std::string& name, const std::string& content) const
    {
        stored.machine.write("tree/" + name, content);
        fs::path path = stored.folder() / name;
        // So long ago that nothing could have been written since without showing it.
        const timespec times[2] = {{-1000, 0}, {-1000, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
        return path;
    }

    /// Changes or takes away every stored file of some content on the service's disk.
    void damage(const std::string& content, bool removes) const
    {
        int count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(stored.server.data())) {
            if (!entry.is_regular_file() || platform::readFile(entry.path()) != content)
                continue;
            ++count;
            if (removes)
                fs::remove(entry.path());
            else
                std::ofstream(entry.path(), std::ios::in | std::ios::binary) << "X";
        }
        EXPECT_EQ(count, 1) << content;
    }

    /// Lets something happen once the first bytes of a file of kSlowBytes are there; all files that
    /// come before it by name were fetched then.
    SelfTestSummary testUntilTheLargeFileComes(const std::function<void()>& happens)
    {
        request.jobs = 1;
        request.bytesPerSecond = kSlowly;
        request.partBytes = kSlowly / 2;
        const auto isComing = [this] {
            std::error_code changing;
            for (fs::recursive_directory_iterator entry(folders.path(), changing), end;
                 !changing && entry != end; entry.increment(changing)) {
                std::error_code gone;
                if (entry->is_regular_file(gone) && entry->file_size(gone) >= kSlowly / 2 && !gone)
                    return true;
            }
            return false;
        };
        std::thread watcher([&] {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (!isComing() && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            happens();
        });
        const auto sum = again();
        watcher.join();
        return sum;
    }

    [[nodiscard]] UploadOwner owner() const
    {
        return uploadOwner(request.choice.account, *request.choice.identity);
    }

    [[nodiscard]] bool isNothingLeft() const { return fs::is_empty(folders.path()); }

    Stored stored;
    test::TemporaryFolder folders;
    SelfTestRequest request;
    Listener listener;
    std::int64_t now = kStart;
};

TEST_F(SelfTestRun, RestoresWhatAnyRunHoldsAndProvesIt)
{
    (void)write("a", "first");
    (void)write("deep/er/b", noise(300000));
    ASSERT_EQ(stored.run(), 1U);
    (void)write("a", "second");
    ASSERT_EQ(stored.run(), 2U);
    std::string modes;
    listener.onProgress = [&] {
        for (const auto& entry : fs::directory_iterator(folders.path())) {
            struct stat status {};
            EXPECT_EQ(stat(entry.path().c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777, 0700U);
            modes += "seen ";
        }
    };
    const auto sum = again();
    EXPECT_EQ(sum.end, ReadEnd::done) << sum.sentence << listener.text;
    EXPECT_EQ(sum.chosen, 3U) << "both contents of a, and that of b once";
    EXPECT_EQ(sum.tested, 3U);
    EXPECT_EQ(sum.bytes, 5U + 6U + 300000U);
    EXPECT_EQ(sum.runs, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(sum.proof.files, 3U);
    EXPECT_EQ(sum.proof.provenFiles, 3U);
    EXPECT_EQ(sum.proof.provenBytes, sum.bytes);
    EXPECT_EQ(modes, "seen seen seen ");
    EXPECT_TRUE(isNothingLeft());
    EXPECT_FALSE(fs::exists(state() / "versions-deleted"));

    now += 31 * kDay;
    request.share = 0.25;
    const auto later = test();
    EXPECT_EQ(later.end, ReadEnd::done) << later.sentence;
    EXPECT_EQ(later.proof.files, 3U);
    EXPECT_EQ(later.proof.provenFiles, later.tested) << "what was proven before is too old";
    EXPECT_GE(later.tested, 1U);
    EXPECT_LT(later.tested, 3U);
}

TEST_F(SelfTestRun, FindsWhatIsMissingAndWhatIsDamagedAndDoesNotProveIt)
{
    (void)write("good", "all is well");
    (void)write("bad", "will be damaged");
    (void)write("lost", "will be lost");
    stored.run();
    damage("will be damaged", false);
    damage("will be lost", true);
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::badContent);
    EXPECT_EQ(sum.sentence, "The self-test found 1 file missing and 1 damaged.");
    EXPECT_EQ(sum.missing, 1U) << listener.text;
    EXPECT_EQ(sum.damaged, 1U) << listener.text;
    EXPECT_EQ(sum.tested, 1U);
    EXPECT_EQ(sum.proof.provenFiles, 1U);
    EXPECT_EQ(sum.proof.lostFiles, 2U);
    for (const auto& finding : listener.findings) {
        EXPECT_EQ(finding.run, 1U);
        EXPECT_TRUE(finding.sentence.ends_with(" (of run 1).")) << finding.sentence;
        EXPECT_NE(finding.sentence.find(finding.path), std::string::npos);
    }
    // The next backup asks after all, and sends the damaged one again.
    const std::string version =
        stored.index.find((stored.folder() / "bad").string())->content->version;
    EXPECT_EQ(platform::readFile(state() / "versions-deleted"), version + "\n");
    EXPECT_TRUE(isNothingLeft());
}

TEST_F(SelfTestRun, TellsALossThatOnlyAnEarlierRunHoldsAndIsASuccess)
{
    (void)write("bad", "will be damaged");
    stored.run();
    damage("will be damaged", false);
    ASSERT_EQ(test().end, ReadEnd::badContent);
    (void)write("good", "all is well");
    stored.run();
    now = kStart - 1000; // so that the new one came before the lost one was tested
    request.share = 0.1;
    const auto later = test();
    EXPECT_EQ(later.tested, 1U);
    EXPECT_EQ(later.missing + later.damaged, 0U);
    EXPECT_EQ(later.proof.lostFiles, 1U);
    EXPECT_EQ(later.proof.newestLostFiles, 0U) << "it was sent again";
    EXPECT_FALSE(later.isLossKnown());
    EXPECT_EQ(later.end, ReadEnd::done);
    EXPECT_EQ(later.sentence, "Earlier self-tests found 1 file to be missing or damaged, and none "
                              "has proven otherwise since; only earlier runs than the newest hold "
                              "it.");
    // But not when it cannot be done.
    stored.server.process().signal(SIGKILL);
    (void)stored.server.process().wait();
    request.choice.budgetPerStep = std::chrono::milliseconds(100);
    EXPECT_EQ(test().end, ReadEnd::temporary);
}

TEST_F(SelfTestRun, IsNoSuccessAsLongAsALossOfTheNewestRunIsKnown)
{
    (void)write("bad", "will be damaged");
    (void)write("good", "well");
    stored.run();
    damage("will be damaged", false);
    ASSERT_EQ(again().end, ReadEnd::badContent);
    request.mostBytes = 10; // too little for what is lost
    const auto later = again();
    EXPECT_EQ(later.tested, 1U);
    EXPECT_EQ(later.missing + later.damaged, 0U);
    EXPECT_EQ(later.proof.newestLostFiles, 1U);
    EXPECT_TRUE(later.isLossKnown());
    EXPECT_EQ(later.end, ReadEnd::someFailed);
    EXPECT_EQ(later.sentence, "Earlier self-tests found 1 file to be missing or damaged, and none "
                              "has proven otherwise since.");
}

TEST_F(SelfTestRun, TellsOfALossThatItFoundBeforeItWasInterrupted)
{
    (void)write("a", "will be damaged");
    (void)write("b", "all is well");
    stored.run();
    damage("will be damaged", false);
    listener.onFound = [this] { stored.stop.request(); };
    const auto sum = again();
    EXPECT_EQ(sum.end, ReadEnd::badContent);
    EXPECT_EQ(sum.sentence,
              "The self-test found 0 files missing and 1 damaged, then was interrupted.");
    EXPECT_TRUE(sum.isLossKnown());
    EXPECT_EQ(sum.proof.lostFiles, 1U) << "it is remembered, too";
    EXPECT_TRUE(fs::exists(state() / "versions-deleted"));
}

TEST_F(SelfTestRun, TellsOfALossThatItFetchedBeforeItWasInterrupted)
{
    (void)write("a", "will be damaged");
    (void)write("b", noise(kSlowBytes));
    stored.run();
    damage("will be damaged", false);
    const auto sum = testUntilTheLargeFileComes([this] { stored.stop.request(); });
    EXPECT_EQ(sum.end, ReadEnd::badContent) << sum.sentence;
    EXPECT_EQ(sum.damaged, 1U);
    EXPECT_EQ(sum.untested, 0U);
    EXPECT_EQ(sum.proof.lostFiles, 1U);
}

TEST_F(SelfTestRun, BeginsWithWhatTheServiceDidNotAnswerForLastTime)
{
    for (int i = 0; i < 30; ++i)
        (void)write("a" + std::to_string(i), "small");
    (void)write("b", noise(kSlowBytes));
    stored.run();
    request.choice.budgetPerStep = std::chrono::milliseconds(100);
    const auto sum = testUntilTheLargeFileComes([this] {
        stored.server.process().signal(SIGKILL);
        (void)stored.server.process().wait();
    });
    EXPECT_EQ(sum.end, ReadEnd::someFailed) << sum.sentence;
    EXPECT_EQ(listener.text, "untested b 1\n");
    EXPECT_EQ(sum.tested, 30U);
    auto book = ProofBook::look(proofFile(state(), owner()), indexOwner(owner()));
    ASSERT_TRUE(book);
    EXPECT_EQ(book->choose(0.001, UINT64_MAX, UINT64_MAX).contents, 1U);
    const auto next = book->nextChosen(9, UINT64_MAX);
    ASSERT_EQ(next.size(), 1U);
    EXPECT_EQ(fs::path(next[0].path).filename(), "b");
}

TEST_F(SelfTestRun, ComparesWithTheLiveFileWhereNothingShowsThatItChanged)
{
    const fs::path same = write("same", "the same");
    const fs::path rotten = write("rotten", "as it was");
    const fs::path changed = write("changed", "changed since");
    stored.run();
    stored.machine.write("tree/changed", "CHANGED since");
    stored.machine.write("tree/rotten", "as it WAS");
    const timespec times[2] = {{-1000, 0}, {-1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, rotten.c_str(), times, 0), 0);
    request.ignoresCtime = true; // which no test can put back
    const auto sum = test();
    EXPECT_EQ(listener.text, "differs rotten 1\n");
    EXPECT_EQ(sum.end, ReadEnd::someFailed);
    EXPECT_EQ(sum.sentence,
              "The self-test found 1 file on this machine to differ from what is stored.");
    EXPECT_EQ(sum.tested, 3U);
    EXPECT_EQ(sum.compared, 2U);
    EXPECT_EQ(sum.differing, 1U);
    EXPECT_EQ(sum.proof.provenFiles, 3U) << "what is stored is right";
    request.ignoresCtime = false;
    EXPECT_EQ(test().compared, 0U) << "stamps of the status are not settled";
}

TEST_F(SelfTestRun, ReadsWhatCameBackWithModesThatForbidIt)
{
    const fs::path file = write("closed/secret", "secret");
    ASSERT_EQ(chmod(file.c_str(), 0), 0);
    ASSERT_EQ(chmod(file.parent_path().c_str(), 0500), 0);
    stored.run();
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::done) << sum.sentence << listener.text;
    EXPECT_EQ(sum.tested, 1U);
    EXPECT_TRUE(isNothingLeft());
    ASSERT_EQ(chmod(file.parent_path().c_str(), 0700), 0);
}

TEST_F(SelfTestRun, FindsARecordThatIsDamagedAndTestsTheRest)
{
    (void)write("a", "content");
    stored.run();
    ASSERT_EQ(test().end, ReadEnd::done);
    now += kDay;
    // The record is the only stored file that is packed.
    int records = 0;
    for (const auto& entry : fs::recursive_directory_iterator(stored.server.data())) {
        const auto bytes =
            entry.is_regular_file() ? platform::readFile(entry.path()) : std::nullopt;
        if (!bytes || !bytes->starts_with("\x1f\x8b"))
            continue;
        ++records;
        std::fstream stream(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(30);
        stream << "damage";
    }
    ASSERT_GE(records, 1);
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::badContent) << sum.sentence << listener.text;
    EXPECT_EQ(sum.damaged, 1U) << listener.text;
    EXPECT_EQ(sum.tested, 0U);
    EXPECT_EQ(sum.proof.damagedRuns, 1U);
    EXPECT_TRUE(isNothingLeft());
}

TEST_F(SelfTestRun, TriesADamagedRecordAgainAndCountsItOnceItCanBeRead)
{
    (void)write("a", "content");
    stored.run();
    std::map<fs::path, std::string> records;
    for (const auto& entry : fs::recursive_directory_iterator(stored.server.data())) {
        const auto bytes =
            entry.is_regular_file() ? platform::readFile(entry.path()) : std::nullopt;
        if (bytes && bytes->starts_with("\x1f\x8b"))
            records[entry.path()] = *bytes;
    }
    ASSERT_FALSE(records.empty());
    const auto put = [&records](bool isSpoiled) {
        for (const auto& [path, whole] : records) {
            std::string bytes = whole;
            if (isSpoiled)
                bytes.replace(30, 6, "damage");
            std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        }
    };
    // Before it was ever read, and after: what it holds is in the book then.
    for (const char* when : {"before", "after"}) {
        put(true);
        auto sum = test();
        EXPECT_EQ(sum.end, ReadEnd::badContent) << when << sum.sentence;
        EXPECT_EQ(sum.proof.damagedRuns, 1U) << when;
        sum = test();
        EXPECT_EQ(sum.damaged, 0U) << when << ": it is told once";
        EXPECT_EQ(sum.end, ReadEnd::someFailed) << when;
        put(false);
        sum = test();
        EXPECT_EQ(sum.end, ReadEnd::done) << when << sum.sentence << listener.text;
        EXPECT_EQ(sum.proof.damagedRuns, 0U) << when;
        EXPECT_EQ(sum.tested, 1U) << when;
    }
}

TEST_F(SelfTestRun, SettlesWhatItsRunsDoNotHold)
{
    (void)write("a", "content");
    stored.run();
    ASSERT_EQ(test().end, ReadEnd::done);
    {
        SQLite::Database book(proofFile(state(), owner()).string(), SQLite::OPEN_READWRITE);
        EXPECT_EQ(book.exec("INSERT INTO contents (key, path, size, first_run, seen_run, due, lot)"
                            " VALUES (x'31', x'0078', 1, 1, 1, 0, 0)"),
                  1);
    }
    request.share = 0.01;
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::someFailed) << sum.sentence;
    EXPECT_EQ(listener.text, "untested x 1\n");
    now += kDay;
    EXPECT_EQ(test().tested, 1U) << "it does not stand in the way of the next one";
}

TEST_F(SelfTestRun, ProvesNothingWhenTheServiceDoesNotAnswer)
{
    (void)write("a", "content");
    stored.run();
    stored.server.process().signal(SIGKILL);
    (void)stored.server.process().wait();
    request.choice.budgetPerStep = std::chrono::milliseconds(100);
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::temporary) << sum.sentence;
    EXPECT_TRUE(sum.sentence.starts_with("The self-test could not be done: ")) << sum.sentence;
    EXPECT_EQ(sum.tested, 0U);
    EXPECT_EQ(sum.proof.provenFiles, 0U);
    EXPECT_TRUE(isNothingLeft());
}

TEST_F(SelfTestRun, EndsAtOnceWhenItIsStopped)
{
    (void)write("a", "content");
    stored.run();
    listener.onProgress = [this] { stored.stop.request(); };
    const auto sum = again();
    EXPECT_EQ(sum.end, ReadEnd::interrupted);
    EXPECT_TRUE(isNothingLeft());
    EXPECT_EQ(test().end, ReadEnd::interrupted) << "before it began";
}

TEST_F(SelfTestRun, IsNoSuccessWhereNoRunIsFinished)
{
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::notFound);
    EXPECT_FALSE(sum.sentence.empty());
}

TEST_F(SelfTestRun, NeverTakesMoreBytesThanItsBound)
{
    (void)write("small", "12345");
    (void)write("large", noise(5000));
    stored.run();
    request.mostBytes = 100;
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::done) << sum.sentence;
    EXPECT_EQ(sum.bytes, 5U);
    EXPECT_EQ(sum.proof.provenFiles, 1U);
    EXPECT_EQ(sum.proof.tooLargeFiles, 1U);
}

TEST_F(SelfTestRun, RunsOnceAtATime)
{
    (void)write("a", "content");
    stored.run();
    std::string fault;
    const auto other = TestFolder::take(state(), {}, fault);
    ASSERT_TRUE(other) << fault;
    const auto sum = test();
    EXPECT_EQ(sum.end, ReadEnd::failed);
    EXPECT_EQ(sum.sentence, "The self-test could not be done: Another self-test of this profile "
                            "is running.");
}

TEST(TestFolder, ThatAKillLeftIsTakenOutByTheNext)
{
    const test::TemporaryFolder state;
    const pid_t child = fork();
    if (child == 0) {
        std::string fault;
        auto folder = TestFolder::take(state.path(), {}, fault);
        const fs::path made = folder ? folder->make(1, fault) : fs::path();
        const bool isMade = !made.empty() && fs::create_directory(made / "closed") &&
                            chmod((made / "closed").c_str(), 0) == 0;
        _exit(isMade ? 0 : 1); // as a kill: nothing is taken away
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    const auto left = [&state] {
        return std::ranges::count_if(fs::directory_iterator(state.path()), fs::directory_iterator(),
                                     [](const auto& entry) { return entry.is_directory(); });
    };
    EXPECT_EQ(left(), 1);
    {
        std::string fault;
        auto other = TestFolder::take(state.path(), {}, fault);
        EXPECT_EQ(left(), 0);
        EXPECT_FALSE(other->make(1, fault).empty());
        EXPECT_EQ(left(), 1);
        TestFolder::sweep(state.path()); // not while somebody uses it
        EXPECT_EQ(left(), 1);
    }
    EXPECT_EQ(left(), 0);
}

/// As a kill: nothing is taken away. @return what was made
fs::path leave(const fs::path& state, const fs::path& place)
{
    const pid_t child = fork();
    if (child == 0) {
        std::string fault;
        auto folder = TestFolder::take(state, {place}, fault);
        _exit(folder && !folder->make(1, fault).empty() ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const auto noted = TestFolder::noted(state);
    EXPECT_EQ(noted.size(), 1U);
    return noted.empty() ? fs::path() : noted.front();
}

TEST(TestFolder, ThatAKillLeftElsewhereIsTakenOutAsWell)
{
    const test::TemporaryFolder state;
    const test::TemporaryFolder before;
    const test::TemporaryFolder after;
    EXPECT_TRUE(fs::exists(leave(state.path(), before.path())));
    EXPECT_FALSE(fs::is_empty(before.path()));
    std::string fault;
    // The same state folder by another name, and other places.
    EXPECT_TRUE(TestFolder::take(state.path() / ".", {after.path()}, fault)) << fault;
    EXPECT_TRUE(fs::is_empty(before.path()));
    EXPECT_TRUE(TestFolder::noted(state.path()).empty());
    (void)leave(state.path(), before.path());
    TestFolder::sweep(state.path());
    EXPECT_TRUE(fs::is_empty(before.path()));
}

TEST(TestFolder, ANoteTakesOutOnlyWhatASelfTestMade)
{
    const test::TemporaryFolder state;
    const test::TemporaryFolder place;
    const std::string uuid = "01234567-89ab-cdef-0123-456789abcdef";
    const auto isKept = [&](const std::string& name) {
        const fs::path kept = place.write(name + "/deep/file", "f").parent_path().parent_path();
        chmod(kept.c_str(), 0700);
        state.write("self-test.folders", kept.string() + '\0');
        const bool isLeftOut = !TestFolder::noted(state.path()).empty();
        TestFolder::sweep(state.path());
        EXPECT_EQ(isLeftOut, !fs::exists(kept / "deep/file")) << "a backup would leave it out";
        return fs::exists(kept / "deep/file");
    };
    EXPECT_TRUE(isKept("precious"));
    EXPECT_TRUE(isKept("stowline-self-test-"));
    EXPECT_TRUE(isKept("stowline-self-test-mine"));
    EXPECT_TRUE(isKept("stowline-self-test-" + uuid + "0"));
    EXPECT_TRUE(isKept("stowline-self-test-0" + uuid));
    EXPECT_TRUE(isKept("my stowline-self-test-" + uuid));
    EXPECT_TRUE(isKept("stowline-self-test-" + uuid + "/below"));
    EXPECT_FALSE(isKept("stowline-self-test-" + uuid));
}

/// A state folder that another user, or a link, could make ours do what he wants.
TEST(StateFolder, IsRefusedWhereOthersCouldChangeIt)
{
    const test::TemporaryFolder place;
    const fs::path folder = place.path() / "state";
    const auto refusal = [&folder] {
        try {
            (void)RunState::take(folder, "default");
        } catch (const RunFault& fault) {
            EXPECT_EQ(fault.end(), BackupEnd::stateFolder);
            return std::string(fault.what());
        }
        return std::string();
    };
    EXPECT_EQ(refusal(), "") << "it is made";
    ASSERT_EQ(chmod(folder.c_str(), 0707), 0);
    EXPECT_NE(refusal().find(folder.string() + " belongs to another user, or other users may "
                                               "write into it"),
              std::string::npos);
    ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
    EXPECT_EQ(refusal(), "");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(folder.c_str(), 1234, 1234), 0);
        EXPECT_NE(refusal(), "");
        ASSERT_EQ(chown(folder.c_str(), 0, 0), 0);
    }
    const fs::path real = place.path() / "real";
    fs::rename(folder, real);
    place.write("real/spool/letter", "l");
    fs::create_directory_symlink(real, folder);
    EXPECT_NE(refusal().find(folder.string() + " is a link"), std::string::npos);
    EXPECT_TRUE(fs::exists(real / "spool/letter"));
    fs::remove(folder);
    fs::rename(real, folder);
    { // a run that changes nothing
        (void)RunState::take(folder, "default", Leftovers::kept);
        EXPECT_TRUE(fs::exists(folder / "spool/letter"));
    }
    EXPECT_EQ(refusal(), "");
    EXPECT_FALSE(fs::exists(folder / "spool/letter"));
}

TEST(TestFolder, HasANameOfItsOwnEachTime)
{
    const test::TemporaryFolder state;
    const test::TemporaryFolder place;
    std::string fault;
    auto folder = TestFolder::take(state.path(), {place.path()}, fault);
    const fs::path first = folder->make(1, fault);
    const fs::path second = folder->make(1, fault);
    EXPECT_NE(first, second);
    EXPECT_FALSE(fs::exists(first));
    EXPECT_EQ(TestFolder::noted(state.path()), std::vector<fs::path>{second});
    EXPECT_EQ(fs::status(second).permissions(), fs::perms::owner_all);
}

TEST(TestFolder, IsNotMadeWhereOthersCouldSwapIt)
{
    const test::TemporaryFolder state;
    const test::TemporaryFolder open;
    const test::TemporaryFolder closed;
    ASSERT_EQ(chmod(open.path().c_str(), 0777), 0);
    std::string fault;
    const auto placeOf = [&](std::vector<fs::path> candidates) {
        auto folder = TestFolder::take(state.path(), std::move(candidates), fault);
        return folder ? folder->make(1, fault).parent_path() : fs::path("not taken");
    };
    EXPECT_EQ(placeOf({open.path()}), "");
    EXPECT_EQ(fault, "No folder to restore into can be made in " + open.path().string() +
                         ": another user could put something else in its place.");
    EXPECT_EQ(placeOf({open.path(), closed.path()}), closed.path());
    ASSERT_EQ(chmod(open.path().c_str(), 01777), 0);
    EXPECT_EQ(placeOf({open.path()}), open.path()) << "as /tmp is";
}

TEST(TestFolder, TouchesNothingOutsideAndNothingOfOthers)
{
    const test::TemporaryFolder state;
    const test::TemporaryFolder place;
    const test::TemporaryFolder elsewhere;
    const fs::path outside = elsewhere.write("outside/file", "stays").parent_path();
    ASSERT_EQ(chmod((outside / "file").c_str(), 0), 0);
    ASSERT_EQ(chmod(outside.c_str(), 0500), 0);
    const fs::path left = leave(state.path(), place.path());
    fs::create_directory_symlink(outside, left / "link");
    fs::create_symlink(outside / "file", left / "file");
    ASSERT_TRUE(fs::create_directory(left / "closed"));
    ASSERT_EQ(chmod((left / "closed").c_str(), 0), 0);
    TestFolder::sweep(state.path());
    EXPECT_FALSE(fs::exists(left));
    EXPECT_EQ(fs::status(outside).permissions(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(fs::status(outside / "file").permissions(), fs::perms::none);
    // Something else under the name: a link to a private folder, and a folder that others may read.
    const fs::path taken = leave(state.path(), place.path());
    fs::remove(taken);
    const fs::path kept = elsewhere.write("private/file", "stays").parent_path();
    ASSERT_EQ(chmod(kept.c_str(), 0700), 0);
    fs::create_directory_symlink(kept, taken);
    TestFolder::sweep(state.path());
    EXPECT_TRUE(fs::exists(kept / "file"));
    fs::remove(taken);
    const fs::path again = leave(state.path(), place.path());
    ASSERT_EQ(chmod(again.c_str(), 0755), 0);
    TestFolder::sweep(state.path());
    EXPECT_TRUE(fs::exists(again)) << "it is not as a self-test makes it";
    ASSERT_EQ(chmod(outside.c_str(), 0700), 0);
}

/// In a process of its own: mounts are seen by nobody else.
void withoutRoom(const fs::path& small, const fs::path& large, const fs::path& wider,
                 const fs::path& widest, const fs::path& state)
{
    if (const auto why = test::enterMountNamespace()) {
        std::fprintf(stderr, "%s\n", why->c_str());
        _exit(77);
    }
    const auto full = test::Mount::memory(small, "size=1m");
    const auto roomy = test::Mount::memory(large, "size=80m");
    const auto wide = test::Mount::memory(wider, "size=3g");
    const auto vast = test::Mount::memory(widest, "size=20g");
    std::string fault;
    auto folder = TestFolder::take(state, {small}, fault);
    const bool isRefused = folder && folder->room() == 0 && folder->make(1, fault).empty() &&
                           fault.starts_with("There is not enough space to restore into: 1 bytes");
    folder.reset();
    const auto roomIn = [&](const fs::path& place) {
        auto one = TestFolder::take(state, {place}, fault);
        return one ? one->room() : 0;
    };
    const bool isSomeLeft =
        roomIn(wider) == std::uint64_t{2} << 30 && roomIn(widest) == std::uint64_t{18} << 30;
    auto other = TestFolder::take(state, {small, large}, fault);
    const bool isElsewhere = other && other->room() == 16U << 20 &&
                             other->make(1 << 20, fault).parent_path() == large &&
                             other->make(17U << 20, fault).empty();
    _exit(isRefused && isElsewhere && isSomeLeft ? 0 : 1);
}

TEST(TestFolder, IsMadeWhereThereIsRoom)
{
    const test::TemporaryFolder small;
    const test::TemporaryFolder large;
    const test::TemporaryFolder wider;
    const test::TemporaryFolder widest;
    const test::TemporaryFolder state;
    const pid_t child = fork();
    if (child == 0)
        withoutRoom(small.path(), large.path(), wider.path(), widest.path(), state.path());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "no mount namespace can be had here";
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace stowline::backup
