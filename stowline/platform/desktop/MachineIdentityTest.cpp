#include "stowline/platform/desktop/MachineIdentity.h"

#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

const std::regex kUuidForm("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");

constexpr const char* kMachineId = "0123456789abcdef0123456789abcdef";

TEST(RandomUuid, IsUpperCaseAndNeverTheSame)
{
    const auto first = randomUuid();
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(*first, kUuidForm)) << *first;
    EXPECT_EQ(first->at(14), '4');
    EXPECT_NE(first, randomUuid());
}

TEST(HardwareUuid, IsStableAndDoesNotRevealTheMachineId)
{
    const test::TemporaryFolder folder;
    const IdentitySources sources{{folder.write("machine-id", std::string(kMachineId) + "\n")}, {}};
    const auto identity = hardwareUuid(sources);
    ASSERT_TRUE(identity);
    EXPECT_TRUE(std::regex_match(*identity, kUuidForm));
    EXPECT_EQ(identity, hardwareUuid(sources));
    // Computed by hand: openssl dgst -sha256 -hmac com.stowline.hardware-identity.1, first 16
    // bytes, version and variant bits set.
    EXPECT_EQ(identity, "ABCD65CA-CC25-43A8-9159-4D66BBDDD22B");
    EXPECT_EQ(identity->find("01234567"), std::string::npos);
}

TEST(HardwareUuid, DiffersBetweenMachines)
{
    const test::TemporaryFolder folder;
    EXPECT_NE(hardwareUuid({{folder.write("a", kMachineId)}, {}}),
              hardwareUuid({{folder.write("b", "1123456789abcdef0123456789abcdef")}, {}}));
}

TEST(HardwareUuid, PassesOverFilesWithoutAnId)
{
    const test::TemporaryFolder folder;
    const auto good = folder.write("good", kMachineId);
    for (const char* content : {"", "uninitialized\n", "00000000000000000000000000000000\n"})
        EXPECT_EQ(
            hardwareUuid({{folder.path() / "missing", folder.write("bad", content), good}, {}}),
            hardwareUuid({{good}, {}}));
}

TEST(HardwareUuid, KeepsOneOfItsOwnWhereTheMachineHasNone)
{
    const test::TemporaryFolder folder;
    const IdentitySources sources{{}, folder.path() / "state" / "installation-id"};
    const auto made = hardwareUuid(sources);
    ASSERT_TRUE(made);
    EXPECT_EQ(hardwareUuid(sources), made);
    struct stat status {};
    ASSERT_EQ(::stat(sources.keptIdentity->c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(HardwareUuid, IsOneForAllProgramsThatStartAtOnce)
{
    constexpr const char* missing = "missing";
    for (int round = 0; round < 40; ++round) {
        const std::string content = std::array{missing, "", "damaged", "\n"}.at(round % 4);
        const test::TemporaryFolder folder;
        const IdentitySources sources{{}, folder.path() / "state" / "installation-id"};
        if (content != missing)
            folder.write("state/installation-id", content);
        int gate[2];
        int answers[2];
        ASSERT_EQ(::pipe(gate), 0);
        ASSERT_EQ(::pipe(answers), 0);
        std::vector<pid_t> children;
        for (int i = 0; i < 8; ++i) {
            children.push_back(::fork());
            if (children.back() != 0)
                continue;
            ::close(gate[1]);
            char none = 0;
            (void)!::read(gate[0], &none, 1); // until all are there
            const std::string id = hardwareUuid(sources).value_or(std::string(36, '?'));
            (void)!::write(answers[1], id.data(), id.size());
            ::_exit(0);
        }
        ::close(gate[0]);
        ::close(gate[1]);
        for (const pid_t child : children)
            ::waitpid(child, nullptr, 0);
        std::string all(8 * 36, '\0');
        ASSERT_EQ(::read(answers[0], all.data(), all.size()), static_cast<ssize_t>(all.size()));
        ::close(answers[0]);
        ::close(answers[1]);
        const std::string kept = hardwareUuid(sources).value_or("");
        for (std::size_t at = 0; at < all.size(); at += 36)
            ASSERT_EQ(all.substr(at, 36), kept);
        const std::filesystem::directory_iterator files(sources.keptIdentity->parent_path());
        EXPECT_EQ(std::distance(begin(files), end(files)), 1);
    }
}

TEST(HardwareUuid, MakesAnotherForAFileThatHoldsNone)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("id", std::string(36, '?') + "\n");
    const auto made = hardwareUuid({{}, file});
    ASSERT_TRUE(made);
    EXPECT_TRUE(std::regex_match(*made, kUuidForm)) << *made;
    EXPECT_EQ(hardwareUuid({{}, file}), made);
}

TEST(HardwareUuid, IsAbsentWhenNothingCanBeKept)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", "");
    EXPECT_FALSE(hardwareUuid({{}, file / "below-a-file"}));
    EXPECT_FALSE(hardwareUuid({{}, {}}));
}

TEST(ProcessArguments, StartWithTheProgram)
{
    ASSERT_FALSE(processArguments().empty());
    EXPECT_NE(processArguments()[0].find("platform_tests"), std::string::npos);
}

} // namespace
} // namespace stowline::platform
