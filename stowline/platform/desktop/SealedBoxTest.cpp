#include "stowline/platform/desktop/SealedBox.h"

#include "stowline/platform/text/Text.h"

#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <sys/resource.h>

namespace stowline::platform {
namespace {

std::string hexadecimal(std::string_view bytes)
{
    return hexadecimalText(Data(bytes.begin(), bytes.end()));
}

std::string counted(int first, int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(first + i);
    return bytes;
}

/// The flags that the kernel has of the mapping in which an address lies.
std::set<std::string> mappingFlags(const void* address)
{
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool isIt = false;
    for (std::string line; std::getline(maps, line);) {
        std::istringstream words(line);
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        char dash = 0;
        if (words >> std::hex >> from >> dash >> to && dash == '-')
            isIt = from <= wanted && wanted < to;
        else if (isIt && line.starts_with("VmFlags:")) {
            std::istringstream flags(line.substr(8));
            return {std::istream_iterator<std::string>(flags), {}};
        }
    }
    return {};
}

TEST(SecretBytes, AreLeftOutOfCoresAndKeptOutOfTheSwapSpace)
{
    const SecretBytes secret = SecretBytes::random(32);
    const auto flags = mappingFlags(secret.data());
    EXPECT_TRUE(flags.contains("dd"));
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_MEMLOCK, &limit), 0);
    if (limit.rlim_cur < 65536)
        GTEST_SKIP() << "This user may not lock memory (ulimit -l).";
    EXPECT_TRUE(flags.contains("lo"));
}

TEST(SecretBytes, AreNotTheSameTwice)
{
    const SecretBytes one = SecretBytes::random(32);
    const SecretBytes other = SecretBytes::random(32);
    EXPECT_FALSE(one.isSameAs(other));
    EXPECT_TRUE(one.isSameAs(SecretBytes::copyOf(one.view())));
    EXPECT_FALSE(one.isSameAs(SecretBytes::copyOf(one.view().substr(1))));
    EXPECT_TRUE(SecretBytes().isSameAs(SecretBytes()));
}

TEST(SecretBytes, GoAlongWhenTheyAreMoved)
{
    SecretBytes first = SecretBytes::copyOf("secret");
    SecretBytes second = std::move(first);
    EXPECT_EQ(second.view(), "secret");
    first = SecretBytes::copyOf("other");
    second = std::move(first);
    EXPECT_EQ(second.view(), "other");
    // NOLINTNEXTLINE(bugprone-use-after-move): that is the point
    EXPECT_EQ(first.size(), 0U) << "neither what it had nor what was there";
}

// Made with Python's hashlib.
TEST(DerivedKey, IsTheKeyedDigestOfItsMessage)
{
    const SecretBytes key = SecretBytes::copyOf(counted(100, 32));
    EXPECT_EQ(hexadecimal(derivedKey(key, "stowline: key of a content" + counted(0, 32)).view()),
              "27130dd0509c173859dbf5ae4af4220bfbdde1a6eb58db013256ccb38cc193b7");
    EXPECT_EQ(hexadecimal(keyedBlake2b(key, "stowline: name of a master key", 16)).substr(0, 16),
              "9d4352ce0f5e3e5d");
}

// One of no bytes would give a digest without a key, one of 65 none at all.
TEST(SealingKeys, OfAnotherSizeAreRefused)
{
    for (const std::size_t size : {0U, 1U, 31U, 33U, 64U, 65U}) {
        const SecretBytes key = SecretBytes::random(size);
        std::string text;
        EXPECT_THROW((void)derivedKey(key, "message"), std::invalid_argument) << size;
        EXPECT_THROW((void)keyedBlake2b(key, "message", 32), std::invalid_argument) << size;
        EXPECT_THROW(appendSealedBox(text, "content", "", key), std::invalid_argument) << size;
        EXPECT_THROW((void)openSealedBox(text, std::string(50, 'b'), "", key),
                     std::invalid_argument)
            << size;
    }
}

TEST(KeyedDigest, IsRefusedWhereThereIsNoneOfThatSize)
{
    const SecretBytes key = SecretBytes::random(kSealingKeySize);
    for (const std::size_t size : {0U, 15U, 65U})
        EXPECT_THROW((void)keyedBlake2b(key, "message", size), std::invalid_argument) << size;
    EXPECT_EQ(keyedBlake2b(key, "message", 64).size(), 64U);
}

// Made with PyNaCl.
TEST(PassphraseKey, IsThatOfTheStandard)
{
    EXPECT_EQ(hexadecimal(passphraseKey("correct horse", counted(0, 16),
                                        {.operations = 3, .memoryKib = 8192})
                              .view()),
              "77af1c306ae70c8ad00394b671ee364ffb2e7e12f88e5045953b12dd0ccaa9db");
}

TEST(PassphraseKey, FailsWhereItsMemoryCannotBeHad)
{
    EXPECT_THROW((void)passphraseKey("any", counted(0, 16),
                                     {.operations = 1, .memoryKib = std::uint64_t(1) << 41}),
                 std::bad_alloc);
}

// Section A.3.1 of draft-irtf-cfrg-xchacha-03.
TEST(SealedBox, OpensTheExampleOfItsStandard)
{
    const SecretBytes key = SecretBytes::copyOf(counted(0x80, 32));
    const std::string box =
        counted(0x40, 24) +
        std::string("\xbd\x6d\x17\x9d\x3e\x83\xd4\x3b\x95\x76\x57\x94\x93\xc0\xe9\x39"
                    "\x57\x2a\x17\x00\x25\x2b\xfa\xcc\xbe\xd2\x90\x2c\x21\x39\x6c\xbb"
                    "\x73\x1c\x7f\x1b\x0b\x4a\xa6\x44\x0b\xf3\xa8\x2f\x4e\xda\x7e\x39"
                    "\xae\x64\xc6\x70\x8c\x54\xc2\x16\xcb\x96\xb7\x2e\x12\x13\xb4\x52"
                    "\x2f\x8c\x9b\xa4\x0d\xb5\xd9\x45\xb1\x1b\x69\xb9\x82\xc1\xbb\x9e"
                    "\x3f\x3f\xac\x2b\xc3\x69\x48\x8f\x76\xb2\x38\x35\x65\xd3\xff\xf9"
                    "\x21\xf9\x66\x4c\x97\x63\x7d\xa9\x76\x88\x12\xf6\x15\xc6\x8b\x13"
                    "\xb5\x2e"
                    "\xc0\x87\x59\x24\xc1\xc7\x98\x79\x47\xde\xaf\xd8\x78\x0a\xcf\x49",
                    114 + 16);
    const std::string associated("\x50\x51\x52\x53\xc0\xc1\xc2\xc3\xc4\xc5\xc6\xc7", 12);
    std::string content;
    ASSERT_TRUE(openSealedBox(content, box, associated, key));
    EXPECT_EQ(content, "Ladies and Gentlemen of the class of '99: If I could offer you only one "
                       "tip for the future, sunscreen would be it.");
}

TEST(SealedBox, OpensOnlyAsItWasSealed)
{
    const SecretBytes key = SecretBytes::random(kSealingKeySize);
    std::string box = "before";
    appendSealedBox(box, "content", "with", key);
    ASSERT_EQ(box.size(), 6 + 7 + kSealingOverhead);
    box.erase(0, 6);
    std::string content = "old";
    EXPECT_FALSE(openSealedBox(content, box, "without", key));
    EXPECT_EQ(content, "");
    EXPECT_FALSE(openSealedBox(content, box, "with", SecretBytes::random(kSealingKeySize)));
    EXPECT_FALSE(openSealedBox(content, std::string_view(box).substr(0, 39), "with", key));
    for (std::size_t i = 0; i < box.size(); ++i) {
        std::string changed = box;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_FALSE(openSealedBox(content, changed, "with", key)) << i;
    }
    EXPECT_TRUE(openSealedBox(content, box, "with", key));
    EXPECT_EQ(content, "content");
}

TEST(SealedBox, HasAnotherNonceEachTime)
{
    const SecretBytes key = SecretBytes::random(kSealingKeySize);
    std::set<std::string> nonces;
    for (int i = 0; i < 100; ++i) {
        std::string box;
        appendSealedBox(box, "the same", "", key);
        nonces.insert(box.substr(0, kSealingNonceSize));
    }
    EXPECT_EQ(nonces.size(), 100U);
}

} // namespace
} // namespace stowline::platform
