#include "stowline/backup/content/KeySlots.h"

#include "stowline/backup/content/KeySlotLines.h"
#include "tests/support/Program.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <fstream>

namespace stowline::backup {
namespace {

using Kind = KeyFault::Kind;
using platform::SecretBytes;

/// So that tests take no time; nothing that matters may be this cheap.
constexpr platform::PassphraseCost kCheap{.operations = 1, .memoryKib = 8};

SecretBytes secret(std::string_view text)
{
    return SecretBytes::copyOf(text);
}

template <class Work> std::optional<Kind> faultOf(const Work& work)
{
    try {
        work();
    } catch (const KeyFault& fault) {
        EXPECT_TRUE(std::string_view(fault.what()).ends_with('.')) << fault.what();
        return fault.kind();
    }
    return std::nullopt;
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t next = text.find('\n', at) + 1;
        lines.push_back(text.substr(at, next - at));
        at = next;
    }
    return lines;
}

class Slots : public testing::Test {
protected:
    Slots()
    {
        account_ = list.add(key, SecretKind::account, secret("account key"), "", kCheap);
        passphrase_ =
            list.add(key, SecretKind::passphrase, secret("correct horse battery"), "Ann", kCheap);
        (void)list.add(key, SecretKind::keyFile, secret("bytes \xff of a file"), "stick", kCheap);
    }

    const MasterKey key = MasterKey::make();
    KeySlots list{key};
    std::string account_;
    std::string passphrase_;
};

TEST_F(Slots, EachOpenWithTheirSecret)
{
    const KeySlots read = KeySlots::parsed(list.text(key));
    ASSERT_EQ(read.slots().size(), 3U);
    EXPECT_EQ(read.slots(), list.slots());
    EXPECT_EQ(read.slots()[1].label, "Ann");
    for (const auto& [kind, text] : {std::pair{SecretKind::account, "account key"},
                                     std::pair{SecretKind::passphrase, "correct horse battery"},
                                     std::pair{SecretKind::keyFile, "bytes \xff of a file"}})
        EXPECT_TRUE(read.open(kind, secret(text)).bytes().isSameAs(key.bytes())) << text;
}

TEST_F(Slots, OpenWithNothingElse)
{
    const KeySlots read = KeySlots::parsed(list.text(key));
    EXPECT_EQ(
        faultOf([&] { (void)read.open(SecretKind::passphrase, secret("correct horse batterz")); }),
        Kind::wrongSecret);
    // The same text as another kind of secret.
    EXPECT_EQ(faultOf([&] { (void)read.open(SecretKind::passphrase, secret("account key")); }),
              Kind::wrongSecret);
    EXPECT_EQ(faultOf([&] { (void)read.open(SecretKind::keyFile, secret("")); }),
              Kind::wrongSecret);
}

TEST_F(Slots, OfAnotherKindAreNotTried)
{
    list.remove(key, passphrase_);
    const KeySlots read = KeySlots::parsed(list.text(key));
    EXPECT_EQ(
        faultOf([&] { (void)read.open(SecretKind::passphrase, secret("correct horse battery")); }),
        Kind::noSlot);
}

TEST_F(Slots, AreWrittenWithoutAnySecret)
{
    const std::string text = list.text(key);
    EXPECT_EQ(text.find("correct horse"), std::string::npos);
    EXPECT_EQ(text.find("account key"), std::string::npos);
    EXPECT_EQ(text.find(key.bytes().view()), std::string::npos);
    std::string digits;
    for (const std::uint8_t byte : std::string(key.bytes().view()))
        digits += std::string{"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    EXPECT_EQ(text.find(digits), std::string::npos);
}

TEST_F(Slots, HaveASaltAndANonceOfTheirOwn)
{
    (void)list.add(key, SecretKind::passphrase, secret("correct horse battery"), "Ann", kCheap);
    const KeySlot& one = list.slots()[1];
    const KeySlot& other = list.slots()[3];
    EXPECT_NE(one.identifier, other.identifier);
    EXPECT_NE(one.salt, other.salt);
    EXPECT_NE(one.box, other.box);
}

TEST_F(Slots, AreRemovedOneByOneButForTheLast)
{
    list.remove(key, account_);
    EXPECT_EQ(faultOf([&] { list.remove(key, account_); }), Kind::noSlot);
    list.remove(key, passphrase_);
    ASSERT_EQ(list.slots().size(), 1U);
    EXPECT_EQ(faultOf([&] { list.remove(key, list.slots()[0].identifier); }), Kind::notPossible);
    EXPECT_EQ(list.slots().size(), 1U);
}

TEST_F(Slots, CountHowOftenTheyWereWritten)
{
    EXPECT_EQ(KeySlots::parsed(list.text(key)).generation(), 1U);
    KeySlots read = KeySlots::parsed(list.text(key));
    EXPECT_EQ(read.generation(), 2U);
    EXPECT_EQ(KeySlots::parsed(read.text(key)).generation(), 3U);
}

TEST_F(Slots, TakeNoOtherKey)
{
    const MasterKey other = MasterKey::make();
    EXPECT_EQ(faultOf([&] { (void)list.add(other, SecretKind::account, secret("x"), "", kCheap); }),
              Kind::notPossible);
    EXPECT_EQ(faultOf([&] { list.remove(other, account_); }), Kind::notPossible);
    EXPECT_EQ(faultOf([&] { (void)list.text(other); }), Kind::notPossible);
}

TEST_F(Slots, TakeNeitherEmptySecretsNorLongLabelsNorMoreThanTheyMay)
{
    const auto add = [&](const std::string& text, const std::string& label) {
        return faultOf(
            [&] { (void)list.add(key, SecretKind::passphrase, secret(text), label, kCheap); });
    };
    EXPECT_EQ(add("", "label"), Kind::notPossible);
    EXPECT_EQ(add("secret", std::string(201, 'a')), Kind::notPossible);
    EXPECT_EQ(add("secret", "\xff"), Kind::notPossible);
    while (list.slots().size() < kMostKeySlots)
        ASSERT_FALSE(add("secret", std::string(200, 'a')));
    EXPECT_EQ(add("secret", "label"), Kind::notPossible);
    EXPECT_EQ(KeySlots::parsed(list.text(key)).slots().size(), kMostKeySlots);
}

// ---- what a service may do ----

TEST_F(Slots, AreRefusedWhenAnyByteWasChanged)
{
    const std::string text = list.text(key);
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::string changed = text;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        const auto fault = faultOf([&] {
            (void)KeySlots::parsed(changed).open(SecretKind::passphrase,
                                                 secret("correct horse battery"));
        });
        ASSERT_TRUE(fault) << changed;
    }
}

TEST_F(Slots, AreRefusedWhenCutOffAnywhere)
{
    const std::string text = list.text(key);
    for (std::size_t size = 0; size < text.size(); ++size)
        ASSERT_EQ(faultOf([&] { (void)KeySlots::parsed(text.substr(0, size)); }), Kind::damaged)
            << size;
}

TEST_F(Slots, AreRefusedWhenTheServiceTookOneOutOrPutOneIn)
{
    const std::string text = list.text(key);
    const auto lines = linesOf(text);
    ASSERT_EQ(lines.size(), 5U); // head, three slots, end
    const SlotListEnd end = slotListEndOf(lines.back());
    const auto opening = [&](const std::vector<std::string>& slots) {
        std::string changed = lines.front();
        for (const std::string& slot : slots)
            changed += slot;
        changed += lineOf(SlotListEnd{.slots = slots.size(), .seal = end.seal});
        return faultOf([&] {
            (void)KeySlots::parsed(changed).open(SecretKind::passphrase,
                                                 secret("correct horse battery"));
        });
    };
    ASSERT_FALSE(opening({lines[1], lines[2], lines[3]}));
    EXPECT_EQ(opening({lines[1], lines[2]}), Kind::damaged);
    EXPECT_EQ(opening({lines[2], lines[1], lines[3]}), Kind::damaged);
    EXPECT_EQ(opening({lines[1], lines[2], lines[3], lines[3]}), Kind::damaged);
    // One of a key that the service made.
    const MasterKey theirs = MasterKey::make();
    KeySlots made(theirs);
    (void)made.add(theirs, SecretKind::passphrase, secret("of the service"), "", kCheap);
    const std::string added = lineOf(made.slots()[0]);
    EXPECT_EQ(opening({lines[1], lines[2], lines[3], added}), Kind::damaged);
    EXPECT_EQ(opening({added, lines[1], lines[2], lines[3]}), Kind::damaged);
}

// What the service changed would be genuine for ever once the list is written anew.
TEST_F(Slots, ThatTheServiceChangedAreNeitherWrittenNorAddedToNorTakenFrom)
{
    const auto lines = linesOf(list.text(key));
    const std::string seal = slotListEndOf(lines.back()).seal;
    KeySlot dummy = list.slots()[0];
    dummy.identifier = "0000000000000000";
    const std::string dropped =
        lines[0] + lines[1] + lines[3] + lineOf(SlotListEnd{.slots = 2, .seal = seal});
    const std::string added = lines[0] + lines[1] + lines[2] + lines[3] + lineOf(dummy) +
                              lineOf(SlotListEnd{.slots = 4, .seal = seal});
    for (const std::string& text : {dropped, added}) {
        KeySlots read = KeySlots::parsed(text);
        const auto slots = read.slots();
        EXPECT_EQ(faultOf([&] { (void)read.text(key); }), Kind::damaged);
        EXPECT_EQ(faultOf([&] {
                      (void)read.add(key, SecretKind::passphrase, secret("correct horse battery"),
                                     "", kCheap);
                  }),
                  Kind::damaged);
        EXPECT_EQ(faultOf([&] { read.remove(key, account_); }), Kind::damaged);
        EXPECT_EQ(read.slots(), slots);
        EXPECT_EQ(faultOf([&] { (void)read.text(key); }), Kind::damaged) << "nor after all that";
    }
}

TEST_F(Slots, ThatWereReadGoOnAfterEachChange)
{
    KeySlots read = KeySlots::parsed(list.text(key));
    (void)read.add(key, SecretKind::passphrase, secret("battery horse correct"), "", kCheap);
    read.remove(key, account_);
    (void)read.text(key);
    read.remove(key, passphrase_);
    const KeySlots again = KeySlots::parsed(read.text(key));
    ASSERT_EQ(again.slots().size(), 2U);
    EXPECT_FALSE(faultOf(
        [&] { (void)again.open(SecretKind::passphrase, secret("battery horse correct")); }));
}

// The box of one slot in the place of another's, so that a secret that was taken out opens again.
TEST_F(Slots, DoNotOpenUnderTheNameOrKindOfAnother)
{
    const KeySlot& passphrase = list.slots()[1];
    const auto opens = [&](const std::string& identifier, SecretKind kind) {
        KeySlot moved = passphrase;
        moved.identifier = identifier;
        moved.kind = kind;
        const auto lines = linesOf(list.text(key));
        const std::string text =
            lines.front() + lineOf(moved) +
            lineOf(SlotListEnd{.slots = 1, .seal = slotListEndOf(lines.back()).seal});
        return faultOf(
            [&] { (void)KeySlots::parsed(text).open(kind, secret("correct horse battery")); });
    };
    // It opens as what it is; that the list is another one is found after it.
    EXPECT_EQ(opens(passphrase.identifier, SecretKind::passphrase), Kind::damaged);
    EXPECT_EQ(opens(account_, SecretKind::passphrase), Kind::wrongSecret);
    EXPECT_EQ(opens(passphrase.identifier, SecretKind::keyFile), Kind::wrongSecret);
}

TEST_F(Slots, OfAnotherAccountOpenWithNothingOfThisOne)
{
    const MasterKey theirs = MasterKey::make();
    KeySlots made(theirs);
    (void)made.add(theirs, SecretKind::passphrase, secret("of somebody else"), "", kCheap);
    const KeySlots read = KeySlots::parsed(made.text(theirs));
    EXPECT_EQ(
        faultOf([&] { (void)read.open(SecretKind::passphrase, secret("correct horse battery")); }),
        Kind::wrongSecret);
    EXPECT_EQ(faultOf([&] { read.check(key); }), Kind::damaged);
}

TEST(SlotLines, AreRefusedWhenTheyAskForMoreThanThisProgramEverDoes)
{
    const std::string line =
        R"({"slot":"0011223344556677","kind":"passphrase","label":"","operations":OPS,)"
        R"("memory_kib":KIB,"salt":")" +
        std::string(32, '0') + R"(","box":")" + std::string(144, '0') + "\"}\n";
    const auto faultWith = [&](const std::string& operations, const std::string& kib) {
        std::string text = line;
        text.replace(text.find("OPS"), 3, operations);
        text.replace(text.find("KIB"), 3, kib);
        return faultOf([&] { (void)keySlotOf(text); });
    };
    EXPECT_FALSE(faultWith("16", "1048576"));
    EXPECT_EQ(faultWith("17", "8"), Kind::damaged);
    EXPECT_EQ(faultWith("1", "1048577"), Kind::damaged);
    EXPECT_EQ(faultWith("0", "8"), Kind::damaged);
    EXPECT_EQ(faultWith("1", "7"), Kind::damaged);
    EXPECT_EQ(faultWith("-1", "8"), Kind::damaged);
    EXPECT_EQ(faultWith("1.5", "8"), Kind::damaged);
    EXPECT_EQ(faultWith("\"1\"", "8"), Kind::damaged);
}

TEST(SlotLines, OfALaterFormatAreToldApartFromDamage)
{
    EXPECT_EQ(faultOf([] { (void)slotListHeadOf(R"({"keys":"stowline","format":2})"); }),
              Kind::tooNew);
    EXPECT_EQ(faultOf([] { (void)slotListHeadOf(R"({"keys":"other","format":1})"); }),
              Kind::damaged);
}

TEST(Weakness, IsToldOfShortAndRepeatingPassphrases)
{
    EXPECT_TRUE(weaknessOf(""));
    EXPECT_TRUE(weaknessOf("elevenchars"));
    EXPECT_TRUE(weaknessOf("äöüäöüäöüä")); // ten characters in twenty bytes
    EXPECT_TRUE(weaknessOf("abababababababab"));
    EXPECT_FALSE(weaknessOf("twelve chars"));
}

// ---- known answers and another language ----

std::string answer(const std::string& name)
{
    std::ifstream file(test::sourceFile("tests/sealed/" + name), std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(KnownSlots, AreOpened)
{
    const KeySlots list = KeySlots::parsed(answer("slots"));
    for (const auto& [kind, text] : {std::pair{SecretKind::account, "account key"},
                                     std::pair{SecretKind::passphrase, "correct horse battery"}})
        EXPECT_EQ(list.open(kind, secret(text)).bytes().view(), answer("master.key"));
}

TEST(ReaderOfAnotherLanguage, OpensSlots)
{
    if (test::runProgram({.words = {"/usr/bin/python3", "-c", "import nacl, zstandard"}}).status !=
        0)
        GTEST_SKIP() << "Needs the packages python3-nacl and python3-zstandard.";
    const MasterKey key = MasterKey::make();
    KeySlots list(key);
    (void)list.add(key, SecretKind::passphrase, secret("another one"), "other", kCheap);
    (void)list.add(key, SecretKind::passphrase, secret("correct horse battery"), "Änn \"&", kCheap);
    const auto opened = [&](const std::string& text, const std::string& given) {
        return test::runProgram(
            {.words = {"/usr/bin/python3", test::sourceFile("tests/open_key_slots.py"),
                       "passphrase", given},
             .input = text});
    };
    const std::string text = list.text(key);
    const auto right = opened(text, "correct horse battery");
    EXPECT_EQ(right.status, 0) << right.errors;
    EXPECT_EQ(right.output, key.bytes().view());
    const auto wrong = opened(text, "wrong horse battery");
    EXPECT_NE(wrong.status, 0);
    EXPECT_EQ(wrong.output, "");
}

} // namespace
} // namespace stowline::backup
