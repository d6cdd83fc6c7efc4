// Known answers, made without this code (tests/sealed/make_answers.py), and a reader of another
// language that reads what this code makes.
#include "stowline/backup/content/ContentTest.h"

#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPaths.h"

#include <fstream>
#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

std::string answer(const std::string& name)
{
    std::ifstream file(test::sourceFile("tests/sealed/" + name), std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

class KnownAnswer : public testing::TestWithParam<const char*> {};

TEST_P(KnownAnswer, IsOpened)
{
    const MasterKey key(platform::SecretBytes::copyOf(answer("master.key")));
    const std::string stored = answer(std::string(GetParam()) + ".sealed");
    const auto head = SealedHead::parsed(std::string_view(stored).substr(0, kSealedHeadSize));
    const Opened back = opened(key, head.identifier, stored);
    EXPECT_FALSE(back.fault);
    EXPECT_TRUE(back.content == answer(std::string(GetParam()) + ".plain"));
}

INSTANTIATE_TEST_SUITE_P(Sealed, KnownAnswer,
                         testing::Values("empty", "one-byte", "one-chunk", "text", "mixed"));

bool havePythonLibraries()
{
    return test::runProgram({.words = {"/usr/bin/python3", "-c", "import nacl, zstandard"}})
               .status == 0;
}

TEST(ReaderOfAnotherLanguage, ReadsWhatIsSealed)
{
    if (!havePythonLibraries())
        GTEST_SKIP() << "Needs the packages python3-nacl and python3-zstandard.";
    const test::TemporaryFolder folder;
    const MasterKey key = MasterKey::make();
    const std::string content =
        prose(100000) + noise(100000) + std::string(3 << 20, '\0') + "\xff the end";
    const Sealed one = sealed(key, content, {.threads = 2});
    const std::string identifier = [&] {
        std::string text;
        for (const char byte : one.head.identifier)
            text += std::string{"0123456789abcdef"[static_cast<unsigned char>(byte) >> 4],
                                "0123456789abcdef"[byte & 15]};
        return text;
    }();
    const std::vector<std::string> words{"/usr/bin/python3",
                                         test::sourceFile("tests/unseal_content.py"),
                                         folder.write("key", key.bytes().view()).string(),
                                         folder.write("sealed", one.bytes).string()};
    auto asking = words;
    asking.push_back(identifier);
    const auto read = test::runProgram({.words = asking});
    EXPECT_EQ(read.status, 0) << read.errors;
    EXPECT_TRUE(read.output == content);

    asking.back() = std::string(64, '0');
    EXPECT_NE(test::runProgram({.words = asking}).status, 0);
    (void)folder.write("sealed", one.bytes.substr(0, one.bytes.size() - 1));
    const auto cut = test::runProgram({.words = words});
    EXPECT_NE(cut.status, 0);
    EXPECT_EQ(cut.output, "");
}

std::string packed(std::string_view block)
{
    platform::ZstdPacker packer(platform::kUsualZstdLevel);
    std::string frame(block.size() + 100, '\0');
    frame.resize(packer.pack(block, frame.data(), frame.size()).value());
    return frame;
}

// Nobody without the key makes these; both readers hold to the form all the same, and the script
// does so where asserts are gone.
TEST(ReaderOfAnotherLanguage, RefusesWhatThisOneRefuses)
{
    if (!havePythonLibraries())
        GTEST_SKIP() << "Needs the packages python3-nacl and python3-zstandard.";
    const test::TemporaryFolder folder;
    const MasterKey key = MasterKey::make();
    const auto keyFile = folder.write("key", key.bytes().view()).string();
    const SealedHead head{.chunkExponent = kLeastChunkExponent,
                          .keyName = key.name(),
                          .identifier = std::string(kContentIdentifierSize, 'i')};
    const auto contentKey = key.contentKey(head.identifier);
    const FrameSealer sealer(head, contentKey);
    const auto areTaking = [&](const std::string& payload) {
        std::string stored = head.bytes();
        sealer.append(stored, FrameMark::lastChunk, 0, payload);
        std::string lengths;
        appendNumber(lengths, stored.size() - kSealedHeadSize, 4);
        sealer.append(stored, FrameMark::table, 1, lengths);
        const bool isTakenHere = !opened(key, head.identifier, stored).fault;
        const auto there = test::runProgram(
            {.words = {"/usr/bin/python3", "-O", test::sourceFile("tests/unseal_content.py"),
                       keyFile, folder.write("sealed", stored).string()}});
        EXPECT_EQ(there.status == 0, isTakenHere) << there.errors;
        EXPECT_TRUE(there.status == 0 || there.output.empty());
        return isTakenHere;
    };
    const std::string frame = packed(prose(500));
    EXPECT_TRUE(areTaking("\1" + frame));
    EXPECT_FALSE(areTaking("\1" + frame + "x"));
    EXPECT_FALSE(areTaking("\1" + frame + frame));
    EXPECT_FALSE(areTaking("\1" + frame.substr(0, frame.size() - 1)));
    EXPECT_FALSE(areTaking("\1" + packed(prose((1U << kLeastChunkExponent) + 1))));
    EXPECT_FALSE(areTaking(std::string("\1\x50\x2a\x4d\x18\0\0\0\0", 9)));
    EXPECT_FALSE(areTaking(std::string("\2\1\x10\0\0", 5)));
    EXPECT_FALSE(areTaking("\3some"));
}

} // namespace
} // namespace stowline::backup
