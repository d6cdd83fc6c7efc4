// Exercises the reader of key slots: whatever the service sends is a list or is refused, its lines
// come back as they were, and no list that was not written with the key opens.
#include "stowline/backup/content/KeySlotLines.h"
#include "stowline/backup/content/KeySlots.h"

#include <algorithm>
#include <cstdlib>

namespace {

using namespace stowline;
using backup::KeySlot;

/// So that no input takes memory and time with what its slots are said to cost.
bool isCheap(const KeySlot& slot)
{
    return slot.cost.operations <= 2 && slot.cost.memoryKib <= 64;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    static const auto secret = platform::SecretBytes::copyOf("secret");
    try {
        const backup::KeySlots list = backup::KeySlots::parsed(input);
        for (const KeySlot& slot : list.slots()) {
            if (backup::keySlotOf(backup::lineOf(slot)) != slot)
                std::abort();
        }
        if (std::ranges::all_of(list.slots(), isCheap)) {
            (void)list.open(backup::SecretKind::passphrase, secret);
            std::abort(); // nobody here has written one
        }
    } catch (const backup::KeyFault&) {
        return 0; // refused
    }
    return 0;
}
