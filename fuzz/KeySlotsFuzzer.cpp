// Exercises the reader of key slots: whatever the service sends is a list or is refused, its lines
// come back as they were, and no list that was not written with the key opens. Then, because
// without the key nothing gets past the seal, an input is what a later version or another machine
// put behind a genuine slot before it sealed the list: it opens, and is written again.
#include "stowline/backup/content/KeySlotLines.h"
#include "stowline/backup/content/KeySlots.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace {

using namespace stowline;
using backup::KeyFault;
using backup::KeySlot;
using backup::KeySlots;

const platform::SecretBytes& secret()
{
    static const auto bytes = platform::SecretBytes::copyOf("a secret of the fuzzer's");
    return bytes;
}

const backup::MasterKey& someKey()
{
    static const backup::MasterKey key{platform::SecretBytes(platform::kSealingKeySize)};
    return key;
}

const std::string& genuineSlot()
{
    static const std::string line = [] {
        KeySlots list(someKey());
        (void)list.add(someKey(), backup::SecretKind::passphrase, secret(), "",
                       {.operations = 1, .memoryKib = 8});
        return backup::lineOf(list.slots().front());
    }();
    return line;
}

std::optional<KeySlots> listOf(std::string_view text)
{
    try {
        return KeySlots::parsed(text);
    } catch (const KeyFault&) {
        return std::nullopt; // refused
    }
}

/// So that no input takes memory and time with what its slots are said to cost.
bool isCheap(const KeySlots& list)
{
    return std::ranges::all_of(list.slots(), [](const KeySlot& slot) {
        return slot.cost.operations <= 2 && slot.cost.memoryKib <= 64;
    });
}

/// Ends the process where what was read is not read again.
void readAgain(const KeySlots& list)
{
    for (const KeySlot& slot : list.slots()) {
        if (backup::keySlotOf(backup::lineOf(slot)) != slot)
            std::abort();
    }
}

bool isOpened(const KeySlots& list)
{
    try {
        return list.open(backup::SecretKind::passphrase, secret())
            .bytes()
            .isSameAs(someKey().bytes());
    } catch (const KeyFault&) {
        return false;
    }
}

/// The input as lines behind a genuine slot, sealed with the key.
std::string sealedWith(std::string_view input)
{
    std::string lines =
        backup::lineOf(backup::SlotListHead{.generation = 1, .keyName = someKey().name()}) +
        genuineSlot() + std::string(input);
    if (!lines.ends_with('\n'))
        lines += '\n';
    const auto slots = static_cast<std::size_t>(std::ranges::count(lines, '\n')) - 1;
    const auto key = platform::derivedKey(someKey().bytes(), "stowline: list of slots");
    return lines + backup::lineOf(backup::SlotListEnd{
                       .slots = slots, .seal = platform::keyedBlake2b(key, lines, 32)});
}

void writeAgain(KeySlots list)
{
    const auto slots = list.slots();
    std::string text;
    try {
        text = list.text(someKey());
    } catch (const KeyFault& fault) {
        if (fault.kind() != KeyFault::Kind::notPossible)
            std::abort();
        return; // its first line became too long for the list
    }
    if (KeySlots::parsed(text).slots() != slots)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    if (const auto list = listOf(input)) {
        readAgain(*list);
        if (isCheap(*list) && isOpened(*list))
            std::abort(); // nobody here has written one
    }
    if (const auto list = listOf(sealedWith(input))) {
        readAgain(*list);
        if (isCheap(*list) && !isOpened(*list))
            std::abort();
        writeAgain(*list);
    }
    return 0;
}
