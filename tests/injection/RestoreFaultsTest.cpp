// Restoring while everything that can fail does: what is told as put back is there, whole and
// durable.
#include "stowline/backup/StoredTreeTest.h"
#include "tests/injection/FailingInTurn.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <set>
#include <sstream>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;

/// What putting back calls: once each, and some from then on.
const std::vector<test::Failing> kFailing{
    {"syncfs"},    {"renameat2"},    {"linkat"},          {"symlinkat"},    {"mknodat"},
    {"mkdirat"},   {"openat2"},      {"fchmod"},          {"chmod"},        {"futimens"},
    {"utimensat"}, {"fsetxattr"},    {"fchownat"},        {"ftruncate"},    {"pwrite"},
    {"unlinkat"},  {"syncfs", true}, {"renameat2", true}, {"mkdirat", true}};

class Listener : public RestoreObserver {
public:
    void itemDone(const RestoredItem& item) override
    {
        if (item.state == RestoredState::failed || !item.losses.empty() || !item.faults.empty())
            told.insert(item.path);
        if (item.state == RestoredState::restored && item.kind == ItemKind::file)
            files.insert(item.path);
    }
    std::set<std::string> told; ///< of these it is said that they are not as they were
    std::set<std::string> files;
};

/// Each turn puts a small tree with items of many kinds back into an empty folder.
class Restoring {
public:
    Restoring()
    {
        const test::TemporaryFolder& machine = stored_.machine;
        const fs::path tree = stored_.folder();
        machine.write("tree/plain", "hello");
        machine.write("tree/deep/er/large", noise(250000));
        machine.write("tree/deep/read-only", "r");
        machine.write("tree/holes", "a" + std::string(300000, '\0') + "b");
        machine.write("tree/ends-with-zeros", "a" + std::string(200000, '\0'));
        fs::create_hard_link(tree / "plain", tree / "deep/further");
        fs::create_symlink("nowhere", tree / "link");
        EXPECT_EQ(::mkfifo((tree / "pipe").c_str(), 0640), 0);
        EXPECT_EQ(::chmod((tree / "deep/read-only").c_str(), 0400), 0);
        EXPECT_EQ(::chmod((tree / "deep").c_str(), 0500), 0);
        (void)::setxattr((tree / "plain").c_str(), "user.note", "n", 1, 0);
        (void)::setxattr((tree / "deep/er").c_str(), "user.note", "n", 1, 0);
        if (::geteuid() == 0) {
            EXPECT_EQ(::chown((tree / "deep/er/large").c_str(), 1234, 4321), 0);
        }
        stored_.run();
    }

    test::Path path()
    {
        return {[this] { restore(); }, [this] { check(); },
                [this] {
                    restore(); // goes on with what was there
                    EXPECT_EQ(summary_.end, ReadEnd::done) << summary_.sentence;
                    EXPECT_EQ(stored_.differences(), "");
                    EXPECT_FALSE(hasGatherings(stored_.target.path()));
                    empty();
                }};
    }

    void empty() const { fs::remove_all(stored_.target.path() / "tree"); }

    void restore()
    {
        listener_ = Listener();
        const RestoreRequest request{.choice = stored_.choice,
                                     .paths = {stored_.folder().string()},
                                     .target = stored_.target.path(),
                                     .jobs = 1,
                                     .partBytes = 1U << 20};
        summary_ = runRestore(request, listener_, stored_.stop);
    }

    /// Only what is told may differ.
    void check() const
    {
        // A further name that cannot be one of the first's file is a file of its own.
        std::string differences;
        std::istringstream all(stored_.differences());
        for (std::string line; std::getline(all, line);)
            differences += line.starts_with("hf          ") ? "" : line + "\n";
        const bool isDone = summary_.end == ReadEnd::done;
        if (isDone) {
            EXPECT_EQ(differences, "");
            EXPECT_EQ(listener_.told, std::set<std::string>());
        }
        if (isDone || summary_.end == ReadEnd::someFailed) {
            for (const std::string& path : namesIn(differences))
                EXPECT_TRUE(isTold(path)) << path << " differs:\n" << differences;
        }
    }

    /// Whether two names that are one file in the tree are two files here, and nobody is told.
    [[nodiscard]] bool hasLostALinkInSilence() const
    {
        return stored_.differences().find("hf          ") != std::string::npos &&
               !isTold(stored_.folder() / "plain");
    }

    /// The files that were told as put back.
    [[nodiscard]] const std::set<std::string>& files() const { return listener_.files; }
    [[nodiscard]] ReadEnd end() const { return summary_.end; }

private:
    /// Of a file of two names it is told once.
    [[nodiscard]] bool isTold(const std::string& path) const
    {
        const std::string one = stored_.folder() / "plain";
        const std::string other = stored_.folder() / "deep/further";
        return listener_.told.contains(path) ||
               ((path == one || path == other) &&
                (listener_.told.contains(one) || listener_.told.contains(other)));
    }

    /// "cd+++++++++ deep/" of an itemised list is the path of the tree's "deep".
    [[nodiscard]] std::vector<std::string> namesIn(const std::string& itemised) const
    {
        constexpr std::size_t flags = 12;
        std::vector<std::string> paths;
        std::istringstream lines(itemised);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("created directory "))
                continue; // where all would go
            std::string name = line.substr(std::min(flags, line.size()));
            name = name.substr(0, std::min(name.find(" -> "), name.find(" => ")));
            fs::path path = (stored_.folder() / name).lexically_normal();
            if (!path.has_filename()) // of a folder, which ends with a slash
                path = path.parent_path();
            if (!path.filename().string().starts_with(".stowline-restore-"))
                paths.push_back(path); // with that the next restore goes on
        }
        return paths;
    }

    Stored stored_;
    Listener listener_;
    RestoreSummary summary_;
};

class RestoreCallFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(RestoreCallFaults, NeverEndAsDoneWithSomethingMissingOrDifferent)
{
    if (GetParam().function == "fchownat" && ::geteuid() != 0)
        GTEST_SKIP() << "Needs to give files to others.";
    Restoring restoring;
    test::failInTurn(GetParam(), restoring.path());
}

TEST(RestoreDurability, NothingIsToldAsPutBackThatCannotBeMadeDurable)
{
    Restoring restoring;
    test::arm({.function = "syncfs", .call = std::numeric_limits<std::size_t>::max()});
    restoring.restore();
    const std::size_t calls = test::disarm().calls;
    EXPECT_EQ(restoring.end(), ReadEnd::done);
    EXPECT_GE(calls, 2U); // before the files get their names, and after all is in place
    for (std::size_t call = 1; call <= calls; ++call) {
        restoring.empty();
        test::arm({.function = "syncfs", .call = call});
        restoring.restore();
        EXPECT_EQ(test::disarm().failures, 1U);
        EXPECT_NE(restoring.end(), ReadEnd::done) << call;
        restoring.check();
    }
    restoring.empty();
    test::arm({.function = "syncfs", .call = 1, .isPersistent = true});
    restoring.restore();
    (void)test::disarm();
    EXPECT_NE(restoring.end(), ReadEnd::done);
    EXPECT_EQ(restoring.files(), std::set<std::string>());
}

TEST(RestoreHardLinks, WhatBecomesAFileOfItsOwnIsTold)
{
    Restoring restoring;
    test::arm({.function = "linkat", .call = 1});
    restoring.restore();
    EXPECT_EQ(test::disarm().failures, 1U);
    EXPECT_FALSE(restoring.hasLostALinkInSilence());
}

INSTANTIATE_TEST_SUITE_P(Functions, RestoreCallFaults, testing::ValuesIn(kFailing), test::nameOf);

} // namespace
} // namespace stowline::backup
