#include "bench/ServedTree.h"

#include "bench/Measure.h"
#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/StateFolder.h"
#include "stowline/backup/tree/TreeWalk.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace fs = std::filesystem;
using namespace backup;

namespace {

/// Puts everything into the index, as if an earlier run had stored it.
class Preparation : public WalkObserver {
public:
    Preparation(ItemIndex& index, StoredContent content)
        : index_(index), content_(std::move(content))
    {
    }

    void found(FoundItem found) override
    {
        StoredItem stored{.item = std::move(found.item)};
        stored.readBegan = {stored.item.changed.seconds + 10, 0};
        if (stored.item.kind == ItemKind::file)
            stored.content = content_;
        index_.put(stored, kFirstRun);
    }
    void excluded(const std::string&, ItemKind, const Exclusion&) override {}
    void failed(const WalkFailure& failure) override
    {
        giveUp(failure.path + ": " + failure.reason);
    }
    void vanished(const std::string&) override {}
    void left(const FolderEnd&) override {}

private:
    ItemIndex& index_;
    const StoredContent content_;
};

bool isDone(const std::function<void()>& work)
{
    try {
        work();
        return true;
    } catch (const std::exception& fault) {
        fmt::print(stderr, "{}\n", fault.what());
        return false;
    }
}

double microsecondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

} // namespace

void giveUp(const std::string& sentence)
{
    throw std::runtime_error(sentence);
}

void expect(bool isSo, const std::string& sentence)
{
    if (!isSo)
        giveUp(sentence);
}

void measureOrEnd(const std::function<void()>& work)
{
    if (!isDone(work))
        std::exit(1);
}

void onMemory()
{
    ::setenv("TMPDIR", "/dev/shm", 1);
}

void makeTree(const fs::path& top, const Shape& shape)
{
    for (int i = 0; i < shape.folders; ++i) {
        const auto folder = top / fmt::format("folder {:05}", i);
        fs::create_directories(folder);
        const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
        for (int j = 0; j < shape.filesInEach; ++j) {
            const auto name = fmt::format("a file with a usual name {:05}.txt", j);
            const int file = ::openat(handle, name.c_str(), O_CREAT | O_WRONLY, 0644);
            expect(::write(file, shape.content.data(), shape.content.size()) ==
                       static_cast<ssize_t>(shape.content.size()),
                   "The tree cannot be made.");
            ::close(file);
        }
        ::close(handle);
    }
}

Figures measured(const std::function<void()>& work)
{
    Figures figures;
    figures.microseconds = microsecondsFor([&] {
        const pid_t child = ::fork();
        if (child == 0)
            std::_Exit(isDone(work) ? 0 : 1);
        int status = 0;
        struct rusage usage = {};
        expect(::wait4(child, &status, 0, &usage) == child && status == 0, "A run failed.");
        figures.processor = microsecondsOf(usage.ru_utime) + microsecondsOf(usage.ru_stime);
        figures.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;
    });
    return figures;
}

Figures mediansOf(const std::vector<Figures>& all)
{
    std::vector<double> times;
    std::vector<double> processor;
    double most = 0;
    for (const Figures& one : all) {
        times.push_back(one.microseconds);
        processor.push_back(one.processor);
        most = std::max(most, one.mebibytes);
    }
    return {median(times), median(processor), most};
}

ServedTree::ServedTree(const fs::path& folder, const std::string& content)
{
    platform::Bundle::useFolder(server_.bundle());
    platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/stowline");
    request_.account = {.username = "ann",
                        .password = "pw",
                        .server = server_.address().substr(sizeof "http://" - 1),
                        .systemName = "bench"};
    request_.identity = identityOfThisUser();
    request_.stateFolder = folder / "state";
    (void)measured([&] {
        expect(WebServiceBroker::creatAccountWithFirstname("A", "ann", "pw", "a@b.c", nullptr),
               "The account cannot be opened.");
    });
    std::ofstream(folder / "seed") << content;
    store(folder / "seed");
    const auto version = versionOf("seed");
    stored_ = {.version = std::to_string(version.id),
               .list = version.listId,
               .digest = version.digest,
               .checksum = version.checksum,
               .storedSize = version.storedSize,
               .run = kFirstRun};
}

void ServedTree::store(const fs::path& file)
{
    request_.paths = {file.string()};
    (void)measured([&] { expect(run().stored == 1, "The file was not stored."); });
}

void ServedTree::prepare(const fs::path& top)
{
    request_.paths = {top.string()};
    (void)measured([&] { prepareIndex(); });
}

void ServedTree::prepareIndex() const
{
    const auto state = RunState::take(request_.stateFolder, request_.identity.profile);
    auto index = state.openIndex(uploadOwner(request_.account, request_.identity), false, false);
    Preparation preparation(index, stored_);
    (void)walkTree({.paths = request_.paths}, preparation, platform::StopRequest());
    index.commit();
}

BackupSummary ServedTree::run() const
{
    BackupObserver nobody;
    return runBackup(request_, nobody, platform::StopRequest());
}

void ServedTree::runUnchanged(std::uint64_t files) const
{
    const BackupSummary summary = run();
    expect(summary.end == BackupEnd::done && summary.unchanged == files,
           fmt::format("Of {} files {} were unchanged, {} stored, {} failed. {}", files,
                       summary.unchanged, summary.stored, summary.failed, summary.sentence));
}

void ServedTree::restoreTo(const fs::path& target, std::uint64_t files, bool isRight) const
{
    RestoreObserver nobody;
    const RestoreRequest request{.choice = {.account = request_.account,
                                            .identity = request_.identity,
                                            .stateFolder = request_.stateFolder},
                                 .paths = request_.paths,
                                 .target = target};
    const auto summary = runRestore(request, nobody, platform::StopRequest());
    const bool isWhole = summary.end == ReadEnd::done && summary.found >= files;
    const bool isAsWanted =
        isRight ? summary.bytes == 0 && summary.unchanged >= files : summary.restored >= files;
    expect(
        isWhole && isAsWanted,
        fmt::format("Of {} items {} were restored, {} unchanged, {} failed, {} bytes fetched. {}",
                    summary.found, summary.restored, summary.unchanged, summary.failed,
                    summary.fetchedBytes, summary.sentence));
}

std::uint64_t ServedTree::recordSize(std::uint64_t run) const
{
    return newestNamed(fmt::format("{:08}-finished", run)).size;
}

devserver::StoredItem ServedTree::newestNamed(const std::string& name) const
{
    devserver::Storage storage(server_.data());
    return storage.search({.userName = "ann", .pageSize = 9}, name, "").value().items.at(0);
}

devserver::StoredVersion ServedTree::versionOf(const std::string& name) const
{
    const auto item = newestNamed(name);
    devserver::Storage storage(server_.data());
    return storage.versions("ann", item.id).at(0);
}

} // namespace stowline::bench
