#include "stowline/backup/content/KeySlotCost.h"

#include <algorithm>

namespace stowline::backup {

bool isAllowed(const platform::PassphraseCost& cost)
{
    return cost.operations >= kLeastPassphraseCost.operations &&
           cost.operations <= kMostPassphraseCost.operations &&
           cost.memoryKib >= kLeastPassphraseCost.memoryKib &&
           cost.memoryKib <= kMostPassphraseCost.memoryKib;
}

std::uint64_t workOf(const platform::PassphraseCost& cost)
{
    return cost.operations * cost.memoryKib;
}

std::uint64_t workOf(const std::vector<KeySlot>& slots, SecretKind kind)
{
    std::uint64_t work = 0;
    for (const KeySlot& slot : slots)
        work += slot.kind == kind ? workOf(slot.cost) : 0;
    return work;
}

std::vector<const KeySlot*> slotsToTry(const std::vector<KeySlot>& slots, SecretKind kind)
{
    std::vector<const KeySlot*> tried;
    for (const KeySlot& slot : slots) {
        if (slot.kind == kind)
            tried.push_back(&slot);
    }
    std::ranges::stable_sort(tried, {}, [](const KeySlot* slot) { return workOf(slot->cost); });
    return tried;
}

} // namespace stowline::backup
