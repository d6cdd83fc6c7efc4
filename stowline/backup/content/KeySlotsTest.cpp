#include "stowline/backup/content/KeySlotsTest.h"

#include "stowline/platform/text/Text.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/Program.h"
#include "tests/support/TestPaths.h"

#include <fstream>

namespace stowline::backup {
namespace {

using namespace slots_test;

TEST_F(Slots, EachOpenWithTheirSecret)
{
    const KeySlots read = KeySlots::parsed(list.text(key));
    ASSERT_EQ(read.slots().size(), 3U);
    EXPECT_EQ(read.slots(), list.slots());
    EXPECT_EQ(read.slots()[1].label, "Ann");
    for (const auto& [kind, text] :
         {std::pair<SecretKind, std::string_view>{SecretKind::account, "account key"},
          {SecretKind::passphrase, "correct horse battery"},
          {SecretKind::keyFile, kKeyFile}})
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
    for (const std::string_view hidden : {key.bytes().view(), std::string_view("correct horse"),
                                          std::string_view("account key"), kKeyFile.substr(6)}) {
        const std::string digits = platform::hexadecimalText(Data(hidden.begin(), hidden.end()));
        EXPECT_EQ(text.find(digits), std::string::npos) << digits;
        EXPECT_EQ(text.find(hidden), std::string::npos) << digits;
    }
}

TEST_F(Slots, HaveASaltAndANonceOfTheirOwn)
{
    (void)list.add(key, SecretKind::passphrase, secret("correct horse battery"), "Ann", kCheap);
    const KeySlot& one = list.slots()[1];
    const KeySlot& other = list.slots()[3];
    EXPECT_NE(one.identifier, other.identifier);
    EXPECT_NE(one.salt, other.salt);
    EXPECT_NE(one.box.substr(0, platform::kSealingNonceSize),
              other.box.substr(0, platform::kSealingNonceSize));
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

TEST_F(Slots, AreNotWrittenWhenThereAreNone)
{
    KeySlots none(key);
    EXPECT_EQ(faultOf([&] { (void)none.text(key); }), Kind::notPossible);
}

TEST_F(Slots, TakeNeitherWeakSecretsNorBadLabelsNorMoreThanTheyMay)
{
    const auto add = [&](SecretKind kind, std::string_view text, const std::string& label) {
        return faultOf([&] { (void)list.add(key, kind, secret(text), label, kCheap); });
    };
    const auto labelled = [&](const std::string& label) {
        return add(SecretKind::passphrase, "correct horse battery", label);
    };
    for (const SecretKind kind : {SecretKind::account, SecretKind::passphrase, SecretKind::keyFile})
        EXPECT_EQ(add(kind, "", "label"), Kind::notPossible);
    for (const char* weak : {"elevenchars", "abababababababab", "correct horse \xff"})
        EXPECT_EQ(add(SecretKind::passphrase, weak, "label"), Kind::notPossible) << weak;
    EXPECT_EQ(add(SecretKind::keyFile, std::string(31, 'k'), "label"), Kind::notPossible);
    for (const char* label : {"\xff", "\n", "\t", "\x1b[31m", "\x7f", "\xc2\x9b", "\xe2\x80\xae"})
        EXPECT_EQ(labelled(label), Kind::notPossible) << label;
    EXPECT_EQ(labelled(std::string("\0", 1)), Kind::notPossible);
    EXPECT_EQ(labelled(std::string(201, 'a')), Kind::notPossible);
    EXPECT_EQ(list.slots().size(), 3U);
    // Labels that take the most room.
    while (list.slots().size() < kMostKeySlots)
        ASSERT_FALSE(labelled(std::string(200, '"')));
    EXPECT_EQ(labelled("label"), Kind::notPossible);
    EXPECT_EQ(KeySlots::parsed(list.text(key)).slots().size(), kMostKeySlots);
}

TEST_F(Slots, TakeNoCostThatNoReaderTakes)
{
    const auto add = [&](std::uint64_t operations, std::uint64_t memoryKib) {
        return faultOf([&] {
            (void)list.add(key, SecretKind::passphrase, secret("correct horse battery"), "",
                           {.operations = operations, .memoryKib = memoryKib});
        });
    };
    EXPECT_EQ(add(0, 8), Kind::notPossible);
    EXPECT_EQ(add(1, 7), Kind::notPossible);
    EXPECT_EQ(add(17, 8), Kind::notPossible);
    EXPECT_EQ(add(1, 1048577), Kind::notPossible);
    EXPECT_FALSE(add(16, 8));
}

TEST_F(Slots, OpenWithAPassphraseFromAnotherKeyboard)
{
    (void)list.add(key, SecretKind::passphrase, secret("Zu\xcc\x88rich ist scho\xcc\x88n"), "",
                   kCheap);
    const KeySlots read = KeySlots::parsed(list.text(key));
    for (const char* text : {"Zu\xcc\x88rich ist scho\xcc\x88n", "Z\xc3\xbcrich ist sch\xc3\xb6n"})
        EXPECT_FALSE(faultOf([&] { (void)read.open(SecretKind::passphrase, secret(text)); }));
    EXPECT_EQ(faultOf([&] { (void)read.open(SecretKind::passphrase, secret("caf\xe9")); }),
              Kind::wrongSecret);
}

TEST_F(Slots, AreNotTriedOnceTheThreadWasAskedToStop)
{
    const StopRequest stop;
    const StopScope scope(stop);
    EXPECT_FALSE(faultOf([&] {
                     (void)list.open(SecretKind::passphrase, secret("wrong horse battery"));
                 }) == Kind::stopped);
    stop.request();
    EXPECT_EQ(
        faultOf([&] { (void)list.open(SecretKind::passphrase, secret("correct horse battery")); }),
        Kind::stopped);
}

/// A list as a later version writes it: with a key more in the first line and in each slot.
std::string withLaterKeys(const std::string& text, const MasterKey& key)
{
    std::string changed;
    auto lines = linesOf(text);
    lines.pop_back();
    for (const std::string& line : lines)
        changed += line.substr(0, line.size() - 2) + R"(,"later":{"deep":[1]}})" + "\n";
    const auto listKey = platform::derivedKey(key.bytes(), "stowline: list of slots");
    return changed + lineOf(SlotListEnd{.slots = lines.size() - 1,
                                        .seal = platform::keyedBlake2b(listKey, changed, 32)});
}

TEST_F(Slots, KeepWhatALaterVersionPutIntoThem)
{
    KeySlots read = KeySlots::parsed(withLaterKeys(list.text(key), key));
    read.remove(key, account_);
    (void)read.add(key, SecretKind::passphrase, secret("battery horse correct"), "", kCheap);
    const auto before = linesOf(withLaterKeys(list.text(key), key));
    const auto lines = linesOf(read.text(key));
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_NE(lines[0].find(R"("later":{"deep":[1]})"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[1], before[2]);
    EXPECT_EQ(lines[2], before[3]);
    EXPECT_EQ(lines[3].find("later"), std::string::npos);
}

// Nothing is written that would not be read; the list stays as it was.
TEST_F(Slots, AreNotWrittenWhenTheirListWouldBeTooLong)
{
    std::string text = list.text(key);
    auto lines = linesOf(text);
    lines.pop_back();
    const std::string longer = R"(,"later":")" + std::string(21000, 'x') + "\"}\n";
    text.clear();
    for (std::size_t i = 0; i < lines.size(); ++i)
        text += i == 0 ? lines[i] : lines[i].substr(0, lines[i].size() - 2) + longer;
    const auto listKey = platform::derivedKey(key.bytes(), "stowline: list of slots");
    text += lineOf(SlotListEnd{.slots = 3, .seal = platform::keyedBlake2b(listKey, text, 32)});
    ASSERT_LT(text.size(), kLongestSlotList);
    KeySlots read = KeySlots::parsed(text);
    std::string last;
    while (read.slots().size() < 10)
        last = read.add(key, SecretKind::passphrase, secret("correct horse battery"),
                        std::string(200, 'a'), kCheap);
    const std::uint64_t generation = read.generation();
    EXPECT_EQ(faultOf([&] { (void)read.text(key); }), Kind::notPossible);
    EXPECT_EQ(read.generation(), generation);
    read.remove(key, account_);
    EXPECT_FALSE(faultOf([&] { (void)KeySlots::parsed(read.text(key)); }));
    EXPECT_EQ(read.generation(), generation + 1);
}

TEST(Weakness, IsToldOfShortAndRepeatingPassphrases)
{
    EXPECT_TRUE(weaknessOf(""));
    EXPECT_TRUE(weaknessOf("elevenchars"));
    EXPECT_TRUE(weaknessOf("äöüäöüäöüä")); // ten characters in twenty bytes
    EXPECT_TRUE(weaknessOf("a\xcc\x88"
                           "bcdefghijk")); // eleven, one of them with its mark apart
    EXPECT_TRUE(weaknessOf("abababababababab"));
    EXPECT_TRUE(weaknessOf("äöüäöüäöüäöüäöü")); // three different ones in four different bytes
    EXPECT_TRUE(weaknessOf("twelve chars\xff"));
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
    (void)list.add(key, SecretKind::passphrase, secret("another one of mine"), "other", kCheap);
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
    (void)list.add(key, SecretKind::passphrase, secret("Z\xc3\xbcrich ist fern"), "", kCheap);
    EXPECT_EQ(opened(list.text(key), "Zu\xcc\x88rich ist fern").output, key.bytes().view());
    std::string costly = text;
    costly.replace(costly.find(R"("operations":1)"), 14, R"("operations":17)");
    const auto refused = opened(costly, "correct horse battery");
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.errors.find("too many passes"), std::string::npos) << refused.errors;
    const auto wrong = opened(text, "wrong horse battery");
    EXPECT_NE(wrong.status, 0);
    EXPECT_EQ(wrong.output, "");
}

} // namespace
} // namespace stowline::backup
