// A whole tree walked and compared with what the index knows of it, beside the second run of restic
// on the same tree.
#include "bench/Measure.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/tree/Comparison.h"
#include "stowline/backup/tree/TreeWalk.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;
using namespace backup;

constexpr std::uint64_t kRun = 1;
constexpr int kRounds = 3;

struct Shape {
    int folders = 0;
    int filesInEach = 0;

    [[nodiscard]] std::uint64_t items() const
    {
        return static_cast<std::uint64_t>(folders) * static_cast<std::uint64_t>(filesInEach + 1);
    }
};

void makeTree(const fs::path& top, const Shape& shape)
{
    for (int i = 0; i < shape.folders; ++i) {
        const auto folder = top / fmt::format("folder {:05}", i);
        fs::create_directories(folder);
        const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
        for (int j = 0; j < shape.filesInEach; ++j) {
            const auto name = fmt::format("a file with a usual name {:05}.txt", j);
            const int file = ::openat(handle, name.c_str(), O_CREAT | O_WRONLY, 0644);
            (void)!::write(file, name.data(), name.size());
            ::close(file);
        }
        ::close(handle);
    }
}

/// Puts everything into the index, or compares everything with it.
class Intake : public WalkObserver {
public:
    Intake(ItemIndex& index, bool isFirst) : index_(index), isFirst_(isFirst) {}

    void found(FoundItem found) override
    {
        if (isFirst_)
            put(std::move(found));
        else
            compareWithKnown(found);
    }
    void excluded(const std::string&, ItemKind, const Exclusion&) override {}
    void failed(const WalkFailure& failure) override
    {
        fmt::print(stderr, "{}: {}\n", failure.path, failure.reason);
        std::exit(1);
    }
    void vanished(const std::string&) override {}
    void left(const FolderEnd&) override
    {
        if (!frames_.empty())
            frames_.pop_back();
    }

    std::uint64_t unchanged = 0;
    std::uint64_t others = 0;

private:
    void put(FoundItem found)
    {
        StoredItem stored{.item = std::move(found.item)};
        stored.readBegan = {stored.item.changed.seconds + 10, 0};
        if (stored.item.kind == ItemKind::file)
            stored.content = StoredContent{.version = "1234567",
                                           .list = "abcdefghijklmnop",
                                           .digest = std::string(64, 'a'),
                                           .run = kRun};
        index_.put(stored, kRun);
    }

    void compareWithKnown(const FoundItem& found)
    {
        const StoredItem* item = nullptr;
        std::optional<StoredItem> asked;
        if (frames_.empty()) {
            asked = index_.find(found.item.path);
            item = asked ? &*asked : nullptr;
        } else {
            const auto& known = frames_.back();
            const auto place = std::ranges::lower_bound(
                known, found.item.path, {},
                [](const StoredItem& one) -> const std::string& { return one.item.path; });
            if (place != known.end() && place->item.path == found.item.path)
                item = &*place;
        }
        const auto decision = compare(item, found.item, found.sameFileAs, {});
        ++(decision.verdict == Verdict::unchanged ? unchanged : others);
        if (found.item.kind == ItemKind::folder)
            frames_.push_back(index_.itemsIn(found.item.path));
    }

    ItemIndex& index_;
    const bool isFirst_;
    std::vector<std::vector<StoredItem>> frames_;
};

void walkOnce(const fs::path& top, const fs::path& file, bool isFirst, std::uint64_t items)
{
    auto index = ItemIndex::open(file, {.service = "bench"});
    Intake intake(index, isFirst);
    const auto result = walkTree({.paths = {top.string()}}, intake, platform::StopRequest());
    index.commit();
    if (result.found != items + 1 || (!isFirst && intake.unchanged < items + 1)) {
        fmt::print(stderr, "{} found, {} unchanged, {} others\n", result.found, intake.unchanged,
                   intake.others);
        std::exit(1);
    }
}

struct Figures {
    double microseconds = 0;
    double mebibytes = 0; ///< at the most
};

/// Does something in a process of its own.
Figures measured(const std::function<void()>& work)
{
    Figures figures;
    figures.microseconds = microsecondsFor([&] {
        const pid_t child = ::fork();
        if (child == 0) {
            work();
            std::_Exit(0);
        }
        int status = 0;
        struct rusage usage = {};
        if (::wait4(child, &status, 0, &usage) != child || status != 0)
            std::exit(1);
        figures.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;
    });
    return figures;
}

double resticsSecondRun(const fs::path& top, const fs::path& folder)
{
    const auto restic = [&](const std::vector<std::string>& words) {
        test::ProgramRun run{.words = {"/usr/bin/restic", "-q", "-r", folder / "repository",
                                       "--cache-dir", folder / "cache"},
                             .environment = {{"RESTIC_PASSWORD", "x"}}};
        run.words.insert(run.words.end(), words.begin(), words.end());
        const auto result = test::runProgram(run);
        if (result.status != 0) {
            fmt::print(stderr, "restic: {}\n", result.errors);
            std::exit(1);
        }
    };
    restic({"init"});
    restic({"backup", top});
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round)
        times.push_back(microsecondsFor([&] { restic({"backup", top}); }));
    return median(times);
}

Figures mediansOf(const std::function<void()>& work, int rounds)
{
    std::vector<double> times;
    double most = 0;
    for (int round = 0; round < rounds; ++round) {
        const Figures figures = measured(work);
        times.push_back(figures.microseconds);
        most = std::max(most, figures.mebibytes);
    }
    return {median(times), most};
}

Figures measureUnchanged(const fs::path& folder, const Shape& shape, int rounds)
{
    const auto top = folder / "tree";
    const auto index = folder / "index";
    makeTree(top, shape);
    (void)measured([&] { walkOnce(top, index, true, shape.items()); });
    return mediansOf([&] { walkOnce(top, index, false, shape.items()); }, rounds);
}

fs::path onMemory()
{
    ::setenv("TMPDIR", "/dev/shm", 1);
    return fs::temp_directory_path();
}

} // namespace

void measureTrees()
{
    (void)onMemory();
    std::vector<Row> rows;
    constexpr double most = 200;
    constexpr double wanted = 1.0;
    {
        const test::TemporaryFolder folder;
        const auto ours = measureUnchanged(folder.path(), {1000, 100}, kRounds);
        const double peer = resticsSecondRun(folder.path() / "tree", folder.path());
        rows.push_back({"walk and compare 100,000 files in 1,000 folders",
                        inMilliseconds(ours.microseconds),
                        fmt::format("restic {}", inMilliseconds(peer)), ours.microseconds / peer,
                        "<= 1.0", ours.microseconds / peer <= wanted});
    }
    print(rows);
    rows.clear();
    {
        const test::TemporaryFolder folder;
        const auto ours = measureUnchanged(folder.path(), {1000, 999}, 1);
        rows.push_back({"1,000,000 items: peak memory", fmt::format("{:.0f} MiB", ours.mebibytes),
                        fmt::format("in {}", inMilliseconds(ours.microseconds)),
                        ours.mebibytes / most, "<= 1.0", ours.mebibytes <= most});
    }
    print(rows);
}

} // namespace stowline::bench
