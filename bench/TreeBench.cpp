// Whole runs over trees of which nothing has changed, beside the second run of restic on the same
// tree: time, memory, growth.
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kRounds = 3;
constexpr std::uint64_t kNights = 8; ///< besides the one that reads the full record again

/// Restic with a repository in a folder.
void restic(const fs::path& folder, const std::vector<std::string>& words)
{
    test::ProgramRun run{.words = {"/usr/bin/restic", "-q", "-r", folder / "repository",
                                   "--cache-dir", folder / "cache"},
                         .environment = {{"RESTIC_PASSWORD", "x"}}};
    run.words.insert(run.words.end(), words.begin(), words.end());
    const auto result = test::runProgram(run);
    expect(result.status == 0, "restic: " + result.errors);
}

struct UnchangedFigures {
    Figures first; ///< which stores a full record
    Figures usual;
    Figures peer;
    std::uint64_t mostRecordBytes = 0; ///< of a usual run
};

/// Whole runs over an unchanged tree. The first stores a full record, the second reads it again;
/// those after them are as every night's, each beside one of the peer when that is wanted.
UnchangedFigures measureUnchanged(const fs::path& folder, const Shape& shape, std::uint64_t rounds,
                                  bool hasPeer)
{
    const auto top = folder / "tree";
    makeTree(top, shape);
    ServedTree service(folder, shape.content);
    service.prepare(top);
    const auto run = [&] { service.runUnchanged(shape.files()); };
    UnchangedFigures figures;
    figures.first = measured(run);
    (void)measured(run);
    if (hasPeer) {
        restic(folder, {"init"});
        restic(folder, {"backup", top});
    }
    std::vector<Figures> ours;
    std::vector<Figures> theirs;
    for (std::uint64_t round = 0; round < rounds; ++round) {
        ours.push_back(measured(run));
        if (hasPeer)
            theirs.push_back(measured([&] { restic(folder, {"backup", top}); }));
    }
    figures.usual = mediansOf(ours);
    figures.peer = mediansOf(theirs);
    for (std::uint64_t number = kFirstRun + 1; number < kFirstRun + 2 + rounds; ++number)
        figures.mostRecordBytes = std::max(figures.mostRecordBytes, service.recordSize(number));
    return figures;
}

const std::string kContent = "a line of text";

Row rowAboutTime(const char* subject, double ours, double peer, const char* wanted, double most)
{
    return {subject, inMilliseconds(ours), "restic " + inMilliseconds(peer), ours / peer,
            wanted,  ours <= most * peer};
}

Row rowAboutMemory(const char* subject, double mebibytes)
{
    constexpr double most = 200;
    return {subject,   fmt::format("{:.0f} MiB", mebibytes),
            "200 MiB", mebibytes / most,
            "≤ 1.0",   mebibytes <= most};
}

Row rowAboutRecords(std::uint64_t bytes)
{
    constexpr double most = 64 * 1024;
    const auto size = static_cast<double>(bytes);
    return {"1,000,000 unchanged items: largest record of nine runs",
            fmt::format("{} bytes", bytes),
            "64 KiB",
            size / most,
            "≤ 1.0",
            size <= most};
}

/// What a run costs without any item is the same for all of them.
Row rowAboutGrowth(const Figures& ten, const Figures& hundred, const Figures& million)
{
    constexpr double most = 1.3; // of the time an item takes
    const double fromHundred = (million.processor - hundred.processor) / 900000;
    const double fromTen = (hundred.processor - ten.processor) / 90000;
    return {"processor time of an item more, from 100,000 to 1,000,000",
            fmt::format("{:.2f} µs", fromHundred),
            fmt::format("from 10,000: {:.2f} µs", fromTen),
            fromHundred / fromTen,
            "≤ 1.3",
            fromHundred <= most * fromTen};
}

void measureAll()
{
    onMemory();
    const test::TemporaryFolder small;
    const auto ten = measureUnchanged(small.path(), {100, 100, kContent}, kRounds, false);
    const test::TemporaryFolder middle;
    const auto hundred = measureUnchanged(middle.path(), {1000, 100, kContent}, kRounds, true);
    print({rowAboutTime("whole run over 100,000 unchanged files in 1,000 folders",
                        hundred.usual.microseconds, hundred.peer.microseconds, "≤ 1.5", 1.5),
           rowAboutTime("processor time of the same", hundred.usual.processor,
                        hundred.peer.processor, "", 1e9)});
    const test::TemporaryFolder large;
    const auto million = measureUnchanged(large.path(), {1000, 999, ""}, kNights, false);
    print(
        {rowAboutMemory("1,000,000 unchanged items: peak memory", million.usual.mebibytes),
         rowAboutMemory("the same, of the run that stores a full record", million.first.mebibytes),
         rowAboutRecords(million.mostRecordBytes),
         rowAboutGrowth(ten.usual, hundred.usual, million.usual)});
    for (const auto& [count, one] :
         {std::pair("10,000", &ten), {"100,000", &hundred}, {"1,000,000", &million}})
        fmt::print("Whole run over {} items: {}, {} of processor time, {:.0f} MiB; with a full "
                   "record {}.\n",
                   count, inMilliseconds(one->usual.microseconds),
                   inMilliseconds(one->usual.processor), one->usual.mebibytes,
                   inMilliseconds(one->first.microseconds));
}

} // namespace

void measureTrees()
{
    measureOrEnd(measureAll);
}

} // namespace stowline::bench
