// Checksums beside zlib, files beside cat and cp, the object store beside its limits.
#include "bench/Measure.h"
#include "stowline/util/CoreDataMethods.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/General.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPiece = 65536;
constexpr std::uint64_t kGibibyte = 1ULL << 30;

[[noreturn]] void stop(const char* sentence)
{
    fmt::print(stderr, "stopped: {}\n", sentence);
    std::exit(1);
}

void require(bool isWell, const char* sentence)
{
    if (!isWell)
        stop(sentence);
}

std::string randomBytes(std::size_t length)
{
    std::mt19937_64 generator(1);
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator());
    return bytes;
}

std::string perSecond(double bytes, double microseconds)
{
    return fmt::format("{:.1f} GB/s", bytes / microseconds / 1000);
}

/// Medians of two pieces of work done in turn, so that both meet the same weather.
struct Pair {
    double ours;
    double peers;
    [[nodiscard]] double ratio() const { return ours / peers; }
};

Pair inTurn(int rounds, const std::function<void()>& ours, const std::function<void()>& peers)
{
    std::vector<double> first;
    std::vector<double> second;
    for (int round = 0; round < rounds; ++round) {
        first.push_back(microsecondsFor(ours));
        second.push_back(microsecondsFor(peers));
    }
    return {median(first), median(second)};
}

/// A library that computes the same checksum.
struct ChecksumPeer {
    std::string name;
    std::uint32_t (*update)(std::uint32_t running, const unsigned char* bytes, std::size_t length);
    double wantedRatio;
};

const ChecksumPeer kZlib{"zlib",
                         [](std::uint32_t running, const unsigned char* bytes, std::size_t length) {
                             return static_cast<std::uint32_t>(
                                 crc32(running, bytes, static_cast<uInt>(length)));
                         },
                         5.0};

Row checksumBeside(const ChecksumPeer& peer, const std::string& bytes)
{
    constexpr int repeats = 100;
    std::uint32_t ours = 0;
    std::uint32_t peers = 0;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const Pair times = inTurn(
        201,
        [&] {
            for (int i = 0; i < repeats; ++i)
                ours = Crc32::updateCRC32(ours, data, bytes.size());
        },
        [&] {
            for (int i = 0; i < repeats; ++i)
                peers = peer.update(peers, data, bytes.size());
        });
    require(ours == peers, "The checksums differ from the peer's.");
    const double ratio = times.peers / times.ours;
    const double total = static_cast<double>(bytes.size()) * repeats;
    return {"CRC-32 of 64 KiB in memory",
            perSecond(total, times.ours),
            peer.name + " " + perSecond(total, times.peers),
            ratio,
            fmt::format("≥ {:.1f}", peer.wantedRatio),
            ratio >= peer.wantedRatio};
}

void run(const std::vector<std::string>& words)
{
    const auto result = test::runProgram({words});
    require(result.status == 0, (words.front() + " failed: " + result.errors).c_str());
}

/// A progress handler that costs what a real one costs.
ProgressHandler counting(std::size_t& reports)
{
    return [&reports](double, std::uint64_t, bool*) { ++reports; };
}

Row checksumOfFile(const std::string& file)
{
    const Pair times = inTurn(
        11,
        [&] {
            std::size_t reports = 0;
            (void)Crc32::crc32OfFileAtPath(file, counting(reports));
            require(reports > 1000, "There were no reports.");
        },
        [&] {
            run({"/bin/sh", "-c", "exec cat '" + file + "' >/dev/null"});
        });
    return {"CRC-32 of a cached file of 1 GiB",
            inMilliseconds(times.ours),
            "cat " + inMilliseconds(times.peers),
            times.ratio(),
            "≤ 1.2",
            times.ratio() <= 1.2};
}

Row copyOfFile(const std::string& file, const test::TemporaryFolder& folder)
{
    const std::string copy = folder.path() / "copy";
    // The copies are taken away outside the time that is measured.
    std::vector<double> ours;
    std::vector<double> peers;
    for (int round = 0; round < 7; ++round) {
        std::size_t reports = 0;
        ours.push_back(microsecondsFor([&] {
            require(General::copyFileAt(file, copy, counting(reports)), "The copy failed.");
        }));
        require(reports > 1000, "There were no reports.");
        fs::remove(copy);
        peers.push_back(microsecondsFor([&] { run({"/bin/cp", file, copy}); }));
        fs::remove(copy);
    }
    const Pair times{median(ours), median(peers)};
    return {"copying 1 GiB",
            inMilliseconds(times.ours),
            "cp " + inMilliseconds(times.peers),
            times.ratio(),
            "≤ 1.05",
            times.ratio() <= 1.05};
}

/// Peak resident size, in KiB, of a process that does this.
long peakOf(const std::function<void()>& work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    rusage usage{};
    int status = 0;
    require(::wait4(child, &status, 0, &usage) == child && status == 0, "A child failed.");
    return usage.ru_maxrss;
}

void printMemory(const test::TemporaryFolder& folder)
{
    for (const auto& [name, size] :
         {std::pair{"1 MiB", std::uint64_t(1) << 20}, {"4 GiB, sparse", std::uint64_t(4) << 30}}) {
        const std::string file = folder.write("sized", "");
        fs::resize_file(file, size);
        const std::string copy = folder.path() / "sized copy";
        const long checksum = peakOf([&] { (void)Crc32::crc32OfFileAtPath(file); });
        const long copying = peakOf([&] { (void)General::copyFileAt(file, copy); });
        fs::remove(copy);
        fmt::print("peak resident size for {:<13}  checksum {} KiB, copy {} KiB\n", name, checksum,
                   copying);
    }
}

} // namespace

void measureUtilities()
{
    const std::string bytes = randomBytes(kPiece);
    const test::TemporaryFolder folder;
    std::string megabyte = randomBytes(1 << 20);
    const std::string file = folder.path() / "file";
    {
        std::ofstream stream(file, std::ios::binary);
        for (std::uint64_t written = 0; written < kGibibyte; written += megabyte.size())
            stream << megabyte;
    }
    print({checksumBeside(kZlib, bytes), checksumOfFile(file), copyOfFile(file, folder)});
    printMemory(folder);
}

} // namespace stowline::bench
