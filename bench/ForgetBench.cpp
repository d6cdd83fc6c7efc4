// Which versions only forgotten runs hold, of a hundred runs over a million items: time, growth,
// memory.
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "stowline/backup/forget/ChainFeed.h"
#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/record/RecordPlace.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;
using namespace stowline::backup;

constexpr std::uint64_t kRuns = 100;
constexpr std::uint64_t kKept = 10;
constexpr std::uint64_t kItemsInAFolder = 1000;
constexpr std::uint64_t kChangedPerMille = 2; ///< of all items, in each run
const ChainIdentity kMachine{"1A2B", "ann", "default"};

/// Records as files of a folder.
class FolderPlace : public RecordPlace {
public:
    explicit FolderPlace(fs::path folder) : folder_(std::move(folder)) {}

    std::vector<std::string> chains() override { return {chainName(kMachine)}; }
    std::vector<RecordFile> files(const std::string& /*chain*/) override
    {
        std::vector<RecordFile> files;
        for (const auto& entry : fs::directory_iterator(folder_))
            files.push_back({entry.path().filename(), entry.file_size(), "1"});
        return files;
    }
    void get(const std::string& /*chain*/, const RecordFile& file,
             const std::function<bool(std::string_view)>& take) override
    {
        std::ifstream stream(folder_ / file.name, std::ios::binary);
        std::string room(1U << 20, '\0');
        while (stream.read(room.data(), static_cast<std::streamsize>(room.size())) ||
               stream.gcount() > 0) {
            if (!take({room.data(), static_cast<std::size_t>(stream.gcount())}))
                return;
        }
    }
    void put(const std::string& /*chain*/, const std::string& name, const fs::path& file) override
    {
        fs::copy_file(file, folder_ / name);
    }
    void remove(const std::string& /*chain*/, const RecordFile& file) override
    {
        fs::remove(folder_ / file.name);
    }
    std::optional<std::int64_t> storedAt(const std::string& /*chain*/,
                                         const RecordFile& /*file*/) override
    {
        return std::nullopt;
    }

private:
    const fs::path folder_;
};

StoredItem fileOf(std::uint64_t number, std::uint64_t version, std::uint64_t run)
{
    StoredItem stored{.item = {.path = fmt::format("/home/ann/documents/folder{:06}/file{:09}.txt",
                                                   number / kItemsInAFolder, number),
                               .kind = ItemKind::file,
                               .size = 1000 + number % 1000}};
    std::string digest;
    for (std::uint64_t state = version * 2654435761U + 1; digest.size() < 64;
         state *= 6364136223846793005U)
        digest += fmt::format("{:016x}", state);
    stored.content = StoredContent{.version = std::to_string(version),
                                   .list = fmt::format("L{}", version),
                                   .digest = digest.substr(0, 64),
                                   .checksum = static_cast<std::uint32_t>(version),
                                   .storedSize = stored.item.size,
                                   .run = run};
    return stored;
}

/// A hundred runs, each of which finds other content in other files.
void writeRuns(RecordPlace& place, const fs::path& work, std::uint64_t items)
{
    ItemIndex index = ItemIndex::temporary();
    std::uint64_t version = 0;
    for (std::uint64_t run = 1; run <= kRuns; ++run) {
        RecordChain chain = RecordChain::open(place, kMachine, work);
        expect(chain.begin({.systemName = "bench", .identity = kMachine}, index.position()) == run,
               "The run has another number.");
        const std::uint64_t changed = items * kChangedPerMille / 1000;
        const std::uint64_t first = run == 1 ? 0 : (run - 2) * changed;
        for (std::uint64_t i = first; i < (run == 1 ? items : first + changed); ++i)
            index.put(fileOf(i, ++version, run), run);
        index.setPosition(chain.storeFinished(index, {}).position);
    }
}

void forgetMost(RecordPlace& place, const fs::path& work, std::uint64_t items)
{
    RecordChain chain = RecordChain::open(place, kMachine, work);
    std::set<std::uint64_t> toForget;
    for (std::uint64_t run = 1; run <= kRuns - kKept; ++run)
        toForget.insert(run);
    VersionLedger ledger;
    (void)takeChain(ledger, chain, toForget, true, {});
    ledger.settle();
    const std::uint64_t expected = (kRuns - kKept) * (items * kChangedPerMille / 1000);
    expect(ledger.candidateCount() == expected,
           fmt::format("{} versions would go, not {}.", ledger.candidateCount(), expected));
}

Figures measureForgetting(std::uint64_t items)
{
    const test::TemporaryFolder folder;
    const fs::path records = folder.path() / "records";
    const fs::path work = folder.path() / "work";
    fs::create_directories(records);
    fs::create_directories(work);
    FolderPlace place(records);
    (void)measured([&] { writeRuns(place, work, items); });
    return measured([&] { forgetMost(place, work, items); });
}

void measureAll()
{
    constexpr std::uint64_t few = 250'000;
    constexpr std::uint64_t many = 1'000'000;
    const Figures quarter = measureForgetting(few);
    const Figures whole = measureForgetting(many);
    const double growth = whole.processor / quarter.processor;
    constexpr double most = 300;
    print({{"100 runs over 1,000,000 items: what goes, peak memory",
            fmt::format("{:.0f} MiB", whole.mebibytes), "300 MiB", whole.mebibytes / most, "≤ 1.0",
            whole.mebibytes <= most},
           {"processor time of the same, four times the items", inMilliseconds(whole.processor),
            inMilliseconds(quarter.processor), growth, "≤ 5.0", growth <= 5.0}});
    fmt::print("It took {} and {} for 250,000 items.\n", inMilliseconds(whole.microseconds),
               inMilliseconds(quarter.microseconds));
}

} // namespace

void measureForgetting()
{
    measureOrEnd(measureAll);
}

} // namespace stowline::bench
