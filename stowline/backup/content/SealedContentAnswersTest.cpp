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

} // namespace
} // namespace stowline::backup
