// What a service, or whoever reaches its disk, may do to a list of key slots.
#include "stowline/backup/content/KeySlotsTest.h"

namespace stowline::backup {
namespace {

using namespace slots_test;

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

// The same passphrase may well open both: it is the key that is another one.
TEST_F(Slots, OfAnotherKeyAreRefusedByWhoKnowsTheirs)
{
    (void)list.text(key);
    const MasterKey theirs = MasterKey::make();
    KeySlots made(theirs);
    for (const auto& [kind, text] : {std::pair{SecretKind::account, "account key"},
                                     std::pair{SecretKind::passphrase, "correct horse battery"}}) {
        (void)made.add(theirs, kind, secret(text), "", kCheap);
        const KeySlots read = KeySlots::parsed(made.text(theirs));
        EXPECT_TRUE(read.open(kind, secret(text)).bytes().isSameAs(theirs.bytes()));
        EXPECT_EQ(faultOf([&] { (void)read.open(kind, secret(text), list.known()); }),
                  Kind::otherKey);
        EXPECT_EQ(faultOf([&] { read.check(key); }), Kind::damaged);
    }
}

class KnownList : public Slots {
protected:
    std::optional<Kind> opening(const std::string& text, const KnownSlotList& known,
                                std::string_view given = "correct horse battery") const
    {
        return faultOf([&] {
            (void)KeySlots::parsed(text).open(SecretKind::passphrase, secret(given), known);
        });
    }
};

TEST_F(KnownList, IsTakenAsItIsAndAsItBecomes)
{
    const std::string first = list.text(key);
    const KnownSlotList known = list.known();
    EXPECT_EQ(known, KeySlots::parsed(first).known());
    EXPECT_EQ(known.generation, 1U);
    EXPECT_FALSE(opening(first, known));
    list.remove(key, account_);
    EXPECT_FALSE(opening(list.text(key), known));
}

TEST_F(KnownList, IsNotReplacedByAnOlderOne)
{
    const std::string first = list.text(key);
    (void)list.text(key);
    EXPECT_EQ(opening(first, list.known()), Kind::older);
}

// One machine takes a slot out while another one puts one in: the last to store would undo it.
TEST_F(KnownList, IsNotReplacedByAnotherOfTheSameGeneration)
{
    const std::string first = list.text(key);
    KeySlots one = KeySlots::parsed(first);
    KeySlots other = KeySlots::parsed(first);
    one.remove(key, account_);
    (void)one.text(key);
    (void)other.add(key, SecretKind::passphrase, secret("battery horse correct"), "", kCheap);
    const std::string text = other.text(key);
    ASSERT_EQ(one.generation(), other.generation());
    EXPECT_EQ(opening(text, one.known()), Kind::forked);
    EXPECT_FALSE(opening(text, other.known()));
}

// Of a list that is known byte for byte a change is told as that, not as a wrong passphrase.
TEST_F(KnownList, TellsAChangeFromAWrongSecret)
{
    const std::string text = list.text(key);
    const auto place = text.find("\"box\"", text.find("Ann")) + 20;
    std::string changed = text;
    changed[place] = changed[place] == '0' ? '1' : '0';
    EXPECT_EQ(opening(changed, list.known()), Kind::forked);
    const auto sentence = [&](const std::optional<KnownSlotList>& known) -> std::string {
        try {
            (void)list.open(SecretKind::passphrase, secret("wrong horse battery"), known);
        } catch (const KeyFault& fault) {
            return fault.what();
        }
        return "";
    };
    EXPECT_EQ(sentence(std::nullopt),
              "What was given as a passphrase opens no slot of the key, or the list was changed.");
    EXPECT_EQ(sentence(list.known()), "What was given as a passphrase opens no slot of the key.");
}

TEST(SlotList, ThatIsTooLongSaysSo)
{
    try {
        (void)KeySlots::parsed(std::string(kLongestSlotList, ' ') + "\n");
        FAIL();
    } catch (const KeyFault& fault) {
        EXPECT_NE(std::string_view(fault.what()).find("longer"), std::string_view::npos);
    }
}

std::string slotLine(int number, std::uint64_t operations, std::uint64_t memoryKib)
{
    KeySlot slot{.identifier = "00112233445566" + std::to_string(10 + number),
                 .kind = SecretKind::passphrase,
                 .label = {},
                 .cost = {.operations = operations, .memoryKib = memoryKib},
                 .salt = std::string(16, 's'),
                 .box = std::string(72, 'b')};
    return lineOf(slot);
}

TEST(SlotList, IsRefusedWhenItsSlotsTakeTooLongTogether)
{
    const auto faultWith = [](int slots, std::uint64_t operations, std::uint64_t memoryKib) {
        std::string text =
            lineOf(SlotListHead{.generation = 1, .keyName = std::string(kKeyNameSize, 'n')});
        for (int i = 0; i < slots; ++i)
            text += slotLine(i, operations, memoryKib);
        text += lineOf(
            SlotListEnd{.slots = static_cast<std::size_t>(slots), .seal = std::string(32, 's')});
        return faultOf([&] { (void)KeySlots::parsed(text); });
    };
    EXPECT_FALSE(faultWith(64, 3, 262144)) << "as many as there can be, at the usual cost";
    EXPECT_FALSE(faultWith(3, 16, 1048576));
    EXPECT_EQ(faultWith(4, 16, 1048576), Kind::damaged);
    EXPECT_EQ(faultWith(64, 16, 1048576), Kind::damaged);
}

TEST(SlotLines, OfALaterKindOrWithALabelThatIsNoneAreRefused)
{
    const auto faultWith = [](const std::string& what, const std::string& with) {
        std::string line = slotLine(1, 1, 8);
        line.replace(line.find(what), what.size(), with);
        return faultOf([&] { (void)keySlotOf(line); });
    };
    EXPECT_FALSE(faultWith("passphrase", "account"));
    EXPECT_EQ(faultWith("passphrase", "thought"), Kind::tooNew);
    EXPECT_FALSE(faultWith(R"("label":"")", R"("label":"fine")"));
    EXPECT_EQ(faultWith(R"("label":"")", R"("label":"\u001b[2J")"), Kind::damaged);
    EXPECT_EQ(faultWith(R"("label":"")", R"("label":"a\nb")"), Kind::damaged);
    EXPECT_EQ(faultWith(R"("label":"")", R"("label":"\u202e")"), Kind::damaged);
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

} // namespace
} // namespace stowline::backup
