// Whole runs over trees of which nothing has changed, beside the second run of restic on the same
// tree: time, memory, growth.
#include "bench/Measure.h"
#include "devserver/Storage.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/tree/TreeWalk.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;
using namespace backup;

/// After the run that stores the one file: its record is that of the first run that is measured.
constexpr std::uint64_t kRun = 2;
constexpr int kRounds = 3;

struct Shape {
    int folders = 0;
    int filesInEach = 0;
    bool hasContent = false; ///< a file with content takes a page of memory

    [[nodiscard]] std::uint64_t files() const
    {
        return static_cast<std::uint64_t>(folders) * static_cast<std::uint64_t>(filesInEach);
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
            if (shape.hasContent)
                (void)!::write(file, name.data(), name.size());
            ::close(file);
        }
        ::close(handle);
    }
}

/// Puts everything into the index, as if an earlier run had stored it.
class Preparation : public WalkObserver {
public:
    Preparation(ItemIndex& index, std::string version) : index_(index), version_(std::move(version))
    {
    }

    void found(FoundItem found) override
    {
        StoredItem stored{.item = std::move(found.item)};
        stored.readBegan = {stored.item.changed.seconds + 10, 0};
        if (stored.item.kind == ItemKind::file)
            stored.content = StoredContent{.version = version_,
                                           .list = "abcdefghijklmnop",
                                           .digest = std::string(64, 'a'),
                                           .storedSize = stored.item.size,
                                           .run = kRun};
        index_.put(stored, kRun);
    }
    void excluded(const std::string&, ItemKind, const Exclusion&) override {}
    void failed(const WalkFailure& failure) override
    {
        fmt::print(stderr, "{}: {}\n", failure.path, failure.reason);
        std::exit(1);
    }
    void vanished(const std::string&) override {}
    void left(const FolderEnd&) override {}

private:
    ItemIndex& index_;
    const std::string version_;
};

/// An account that this process may use, and a state folder on which whole runs are made.
class Backups {
public:
    explicit Backups(const test::DevServerProcess& server, const fs::path& folder)
    {
        platform::Bundle::useFolder(server.bundle());
        platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/stowline");
        request_.account = {.username = "ann",
                            .password = "pw",
                            .server = server.address().substr(sizeof "http://" - 1),
                            .systemName = "bench"};
        request_.identity = identityOfThisUser();
        request_.stateFolder = folder / "state";
    }

    /// Makes the runs to come find everything known, under a version that the service holds.
    void prepare(const fs::path& top, const std::string& version)
    {
        request_.paths = {top.string()};
        const auto state = RunState::take(request_.stateFolder, request_.identity.profile);
        auto index =
            state.openIndex(RunState::owner(request_.account, request_.identity), false, false);
        Preparation preparation(index, version);
        (void)walkTree({.paths = request_.paths}, preparation, platform::StopRequest());
        index.commit();
    }

    void store(const fs::path& file)
    {
        request_.paths = {file.string()};
        expect(run().stored == 1, "The first file was not stored.");
    }

    /// A whole run over a tree of which nothing has changed.
    void runUnchanged(std::uint64_t files) const
    {
        const BackupSummary summary = run();
        expect(summary.end == BackupEnd::done && summary.unchanged == files, summary.sentence);
    }

private:
    static void expect(bool isSo, const std::string& sentence)
    {
        if (isSo)
            return;
        fmt::print(stderr, "The run did not go as planned. {}\n", sentence);
        std::exit(1);
    }
    [[nodiscard]] BackupSummary run() const
    {
        BackupObserver nobody;
        return runBackup(request_, nobody, platform::StopRequest());
    }

    BackupRequest request_;
};

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

/// A service with an account, and one stored file, whose version stands for all others.
class Service {
public:
    explicit Service(const fs::path& folder) : backups(server_, folder)
    {
        (void)measured([&] {
            if (!WebServiceBroker::creatAccountWithFirstname("A", "ann", "pw", "a@b.c", nullptr))
                std::exit(1);
        });
        std::ofstream(folder / "seed") << "seed";
        (void)measured([&] { backups.store(folder / "seed"); });
        devserver::Storage storage(server_.data());
        const auto page = storage.search({.userName = "ann", .pageSize = 9}, "seed", "").value();
        version = std::to_string(storage.versions("ann", page.items.at(0).id).at(0).id);
    }

private:
    test::DevServerProcess server_;

public:
    Backups backups;
    std::string version;
};

/// Whole runs over an unchanged tree. The first stores a full record, the second reads it again;
/// those after them are as every night's.
Figures measureUnchanged(const fs::path& folder, const Shape& shape, int rounds)
{
    const auto top = folder / "tree";
    makeTree(top, shape);
    Service service(folder);
    (void)measured([&] { service.backups.prepare(top, service.version); });
    const auto run = [&] { service.backups.runUnchanged(shape.files()); };
    (void)measured(run);
    (void)measured(run);
    return mediansOf(run, rounds);
}

void onMemory()
{
    ::setenv("TMPDIR", "/dev/shm", 1);
}

} // namespace

void measureTrees()
{
    onMemory();
    std::vector<Row> rows;
    constexpr double mostMemory = 200;
    constexpr double mostTime = 1.5;
    constexpr double mostGrowth = 1.3; // of the time an item takes
    const test::TemporaryFolder small;
    const auto ten = measureUnchanged(small.path(), {100, 100, true}, kRounds);
    const test::TemporaryFolder middle;
    const auto hundred = measureUnchanged(middle.path(), {1000, 100, true}, kRounds);
    const double peer = resticsSecondRun(middle.path() / "tree", middle.path());
    rows.push_back({"whole run over 100,000 unchanged files in 1,000 folders",
                    inMilliseconds(hundred.microseconds),
                    fmt::format("restic {}", inMilliseconds(peer)), hundred.microseconds / peer,
                    "<= 1.5", hundred.microseconds <= mostTime * peer});
    print(rows);
    rows.clear();
    const test::TemporaryFolder large;
    const auto million = measureUnchanged(large.path(), {1000, 999, false}, 1);
    rows.push_back({"1,000,000 unchanged items: peak memory",
                    fmt::format("{:.0f} MiB", million.mebibytes), "200 MiB",
                    million.mebibytes / mostMemory, "<= 1.0", million.mebibytes <= mostMemory});
    // What a run costs without any item is the same for all of them.
    const double fromHundred = (million.microseconds - hundred.microseconds) / 900000;
    const double fromTen = (hundred.microseconds - ten.microseconds) / 90000;
    rows.push_back({"an item more, from 100,000 to 1,000,000",
                    fmt::format("{:.2f} µs", fromHundred),
                    fmt::format("from 10,000: {:.2f} µs", fromTen), fromHundred / fromTen, "<= 1.3",
                    fromHundred <= mostGrowth * fromTen});
    print(rows);
    fmt::print("Whole runs: {} over 10,000 files, {} over 100,000, {} over 1,000,000 items.\n",
               inMilliseconds(ten.microseconds), inMilliseconds(hundred.microseconds),
               inMilliseconds(million.microseconds));
}

} // namespace stowline::bench
