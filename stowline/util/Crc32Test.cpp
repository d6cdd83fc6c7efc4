#include "stowline/util/Crc32.h"

#include "stowline/util/General.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

std::string randomBytes(std::size_t length, unsigned seed = 1)
{
    std::mt19937 generator(seed);
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator());
    return bytes;
}

std::uint32_t byTable(std::string_view bytes)
{
    return Crc32::updateCRC32ByTable(0, bytes.data(), bytes.size());
}

struct Reports {
    std::vector<double> fractions;
    std::vector<std::uint64_t> sizes;
    std::size_t stopAt = SIZE_MAX; ///< number of the report that stops

    ProgressHandler handler()
    {
        return [this](double fraction, std::uint64_t size, bool* stop) {
            EXPECT_FALSE(*stop);
            *stop = fractions.size() == stopAt;
            fractions.push_back(fraction);
            sizes.push_back(size);
        };
    }
};

TEST(Crc32, OfTheCheckText)
{
    EXPECT_EQ(Crc32::TW_crc32("123456789"), 3421780262U);
    EXPECT_EQ(Crc32::TW_crc32(Data{'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 3421780262U);
    EXPECT_EQ(byTable("123456789"), 3421780262U);
}

TEST(Crc32, OfNothingIsZero)
{
    EXPECT_EQ(Crc32::TW_crc32(""), 0U);
    EXPECT_EQ(Crc32::TW_crc32(Data()), 0U);
    EXPECT_EQ(Crc32::updateCRC32(0, nullptr, 0), 0U);
}

TEST(Crc32, NoBytesLeaveARunningChecksumUnchanged)
{
    EXPECT_EQ(Crc32::updateCRC32(12345, nullptr, 0), 12345U);
    EXPECT_EQ(Crc32::updateCRC32ByTable(12345, nullptr, 0), 12345U);
}

TEST(Crc32, TheTableIsThatOfThePolynomial)
{
    const auto& table = Crc32::standardCRC32Table();
    EXPECT_EQ(table[0], 0U);
    EXPECT_EQ(table[1], 0x77073096U);
    EXPECT_EQ(table[128], 0xEDB88320U);
    EXPECT_EQ(table[255], 0x2D02EF8DU);
}

TEST(Crc32, TheTableIsBuiltOnceForManyThreads)
{
    std::vector<const Crc32::Table*> seen(8);
    {
        std::vector<std::jthread> threads;
        for (auto& table : seen)
            threads.emplace_back([&table] { table = &Crc32::standardCRC32Table(); });
    }
    for (const auto* table : seen)
        EXPECT_EQ(table, seen[0]);
}

TEST(Crc32, ChainingTwoHalvesEqualsTheWhole)
{
    const std::string bytes = randomBytes(1000);
    for (const std::size_t half : {0U, 1U, 15U, 16U, 63U, 64U, 65U, 500U, 1000U}) {
        const std::uint32_t first = Crc32::updateCRC32(0, bytes.data(), half);
        EXPECT_EQ(Crc32::updateCRC32(first, bytes.data() + half, bytes.size() - half),
                  Crc32::TW_crc32(bytes));
    }
}

TEST(Crc32, EqualsTheTableForEveryLength)
{
    const std::string bytes = randomBytes(4096);
    std::uint32_t expected = 0;
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        ASSERT_EQ(Crc32::TW_crc32(std::string_view(bytes).substr(0, length)), expected) << length;
        if (length < bytes.size())
            expected = Crc32::updateCRC32ByTable(expected, &bytes[length], 1);
    }
}

TEST(Crc32, EqualsTheTableForEveryAlignment)
{
    alignas(64) static std::array<char, 64 + 4096> room;
    const std::string bytes = randomBytes(4096, 2);
    for (std::size_t offset = 0; offset < 64; ++offset) {
        for (const std::size_t length : {16U, 100U, 255U, 256U, 257U, 1000U, 4096U}) {
            std::copy_n(bytes.begin(), length, room.begin() + offset);
            const std::string_view there(room.data() + offset, length);
            ASSERT_EQ(Crc32::TW_crc32(there), byTable(there)) << offset << " " << length;
        }
    }
}

TEST(Crc32, EqualsTheTableForRandomChains)
{
    std::mt19937 generator(3);
    const std::string bytes = randomBytes(200000, 4);
    for (int round = 0; round < 50; ++round) {
        std::uint32_t chained = 0;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t length = std::min<std::size_t>(bytes.size() - at, generator() % 5000);
            chained = Crc32::updateCRC32(chained, bytes.data() + at, length);
            at += length;
        }
        ASSERT_EQ(chained, byTable(bytes));
    }
}

TEST(Crc32OfFile, EqualsThatOfItsBytes)
{
    const test::TemporaryFolder folder;
    const std::string bytes = randomBytes(300001);
    const auto file = folder.write("file", bytes);
    EXPECT_EQ(Crc32::crc32OfFileAtPath(file), Crc32::TW_crc32(bytes));
    const auto result = Crc32::checksumOfFile(file);
    EXPECT_EQ(result.bytesRead, bytes.size());
    EXPECT_FALSE(result.fault);
    EXPECT_FALSE(result.wasStopped);
}

TEST(Crc32OfFile, ReportsEveryStepAndTheEnd)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", randomBytes(100000));
    Reports reports;
    (void)Crc32::crc32OfFileAtPath(file, reports.handler());
    EXPECT_EQ(reports.fractions, (std::vector{0.0, 0.65536, 1.0, 1.0}));
    EXPECT_EQ(reports.sizes, std::vector<std::uint64_t>(4, 100000));
}

TEST(Crc32OfFile, ProgressNeverFallsNorExceedsOne)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", std::string(10000000, 'x'));
    Reports reports;
    (void)Crc32::crc32OfFileAtPath(file, reports.handler());
    EXPECT_TRUE(std::is_sorted(reports.fractions.begin(), reports.fractions.end()));
    EXPECT_EQ(reports.fractions.back(), 1.0);
    EXPECT_EQ(reports.fractions[1], 131072 / 10000000.0);
    EXPECT_EQ(reports.fractions.size(), 1 + 10000000 / 131072 + 1U);
}

TEST(Crc32OfFile, AnEmptyFileReportsStartAndEnd)
{
    const test::TemporaryFolder folder;
    Reports reports;
    EXPECT_EQ(Crc32::crc32OfFileAtPath(folder.write("empty", ""), reports.handler()), 0U);
    EXPECT_EQ(reports.fractions, (std::vector{0.0, 1.0}));
}

TEST(Crc32OfFile, StoppedAtTheStartReadsNothing)
{
    const test::TemporaryFolder folder;
    Reports reports{.stopAt = 0};
    const auto file = folder.write("file", randomBytes(100000));
    EXPECT_EQ(Crc32::crc32OfFileAtPath(file, reports.handler()), 0U);
    EXPECT_EQ(reports.fractions, std::vector{0.0});
}

TEST(Crc32OfFile, StoppedOnTheWayGivesThePartialChecksumAndNoFurtherReport)
{
    const test::TemporaryFolder folder;
    const std::string bytes = randomBytes(100000);
    const auto file = folder.write("file", bytes);
    Reports reports{.stopAt = 1};
    const auto result = Crc32::checksumOfFile(file, reports.handler());
    EXPECT_EQ(result.checksum, Crc32::TW_crc32(std::string_view(bytes).substr(0, 65536)));
    EXPECT_TRUE(result.wasStopped);
    EXPECT_EQ(reports.fractions, (std::vector{0.0, 0.65536}));
}

TEST(Crc32OfFile, AMissingFileIsZeroAfterStartAndEnd)
{
    Reports reports;
    EXPECT_EQ(Crc32::crc32OfFileAtPath("/no/such/file", reports.handler()), 0U);
    EXPECT_EQ(reports.fractions, (std::vector{0.0, 1.0}));
    EXPECT_EQ(Crc32::checksumOfFile("/no/such/file").fault,
              "Cannot open /no/such/file: No such file or directory");
    EXPECT_EQ(Crc32::crc32OfFileAtPath(""), 0U);
}

TEST(Crc32OfFile, PipesDevicesAndFoldersDoNotMakeItWait)
{
    const test::TemporaryFolder folder;
    const auto fifo = folder.path() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const auto& path : {fifo.string(), std::string("/dev/zero"), folder.path().string(),
                             std::string("/dev/tty")}) {
        const auto result = Crc32::checksumOfFile(path);
        EXPECT_EQ(result.checksum, 0U) << path;
        EXPECT_TRUE(result.fault) << path;
    }
}

TEST(Crc32OfFile, APathThatIsTooLongOrALoopIsAMissingFile)
{
    const test::TemporaryFolder folder;
    std::filesystem::create_symlink("loop", folder.path() / "loop");
    EXPECT_EQ(Crc32::crc32OfFileAtPath(folder.path() / "loop"), 0U);
    EXPECT_EQ(Crc32::crc32OfFileAtPath("/" + std::string(5000, 'x')), 0U);
}

TEST(Crc32OfFile, AReadErrorIsTold)
{
    // The memory of this process cannot be read at address 0.
    const auto result = Crc32::checksumOfFile("/proc/self/mem");
    EXPECT_EQ(result.checksum, 0U);
    EXPECT_EQ(result.fault, "Cannot read /proc/self/mem: Input/output error");
}

TEST(Crc32OfFile, AFileThatGrowsWhileReadIsReadToItsEnd)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", std::string(100000, 'x'));
    bool grown = false;
    const auto checksum = Crc32::crc32OfFileAtPath(file, [&](double, std::uint64_t, bool*) {
        if (!std::exchange(grown, true))
            std::ofstream(file, std::ios::app) << std::string(1000, 'x');
    });
    EXPECT_EQ(checksum, Crc32::TW_crc32(std::string(101000, 'x')));
}

TEST(Crc32OfFile, AFileWithoutSizeReportsNumbersUpToOne)
{
    Reports reports;
    const auto result = Crc32::checksumOfFile("/proc/kallsyms", reports.handler());
    if (result.bytesRead < 100000)
        GTEST_SKIP() << "This system has no large file that it makes up as it is read.";
    EXPECT_EQ(reports.fractions, (std::vector{0.0, 1.0}));
}

TEST(Crc32OfFile, AFileThatGrowsReportsAtMostOne)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", std::string(100000, 'x'));
    std::vector<double> fractions;
    (void)Crc32::crc32OfFileAtPath(file, [&](double fraction, std::uint64_t, bool*) {
        if (fractions.empty())
            std::ofstream(file, std::ios::app) << std::string(1000000, 'x');
        fractions.push_back(fraction);
    });
    EXPECT_GT(fractions.size(), 5U);
    EXPECT_EQ(*std::max_element(fractions.begin(), fractions.end()), 1.0);
}

TEST(Crc32OfFile, IsOpenedAfterTheFirstReport)
{
    const test::TemporaryFolder folder;
    const std::string file = folder.path() / "late";
    const auto checksum =
        Crc32::crc32OfFileAtPath(file, [&](double fraction, std::uint64_t, bool*) {
            if (fraction == 0.0)
                folder.write("late", "123456789");
        });
    EXPECT_EQ(checksum, 3421780262U);
}

TEST(Crc32OfFile, AnUnreadableFileReportsItsAttributeSize)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", std::string(1000, 'x'));
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(file, std::filesystem::perms::none);
    if (::geteuid() == 0 && ::seteuid(65534) != 0)
        GTEST_SKIP() << "This user may read every file and be nobody else.";
    Reports reports;
    const auto result = Crc32::checksumOfFile(file, reports.handler());
    (void)!::seteuid(::getuid());
    EXPECT_TRUE(result.fault);
    EXPECT_EQ(reports.sizes, std::vector<std::uint64_t>(2, 1000));
}

TEST(ProgressSize, IsAboutAPercentOfSmallFilesAndATenthOfThatOfLargeOnes)
{
    EXPECT_EQ(General::progressSizeForSize(0), 32768U);
    EXPECT_EQ(General::progressSizeForSize(100000), 32768U);
    EXPECT_EQ(General::progressSizeForSize(10000000), 98304U);
    EXPECT_EQ(General::progressSizeForSize(65535999), 655359U / 32768 * 32768);
    EXPECT_EQ(General::progressSizeForSize(65536000), 65536U);
    EXPECT_EQ(General::progressSizeForSize(10000000000), 9994240U);
    EXPECT_EQ(General::progressSizeForSize(1ULL << 63), (1ULL << 63) / 1000 / 32768 * 32768);
    EXPECT_EQ(General::progressSizeForSize(UINT64_MAX), UINT64_MAX / 1000 / 32768 * 32768);
}

} // namespace
} // namespace stowline
