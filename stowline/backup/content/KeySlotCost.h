// What trying slots costs, and how much of that a list may ask for.
#pragma once

#include "stowline/backup/content/KeySlots.h"

#include <cstdint>
#include <vector>

namespace stowline::backup {

/// What all slots of one kind may cost together, in passes times KiB: as much as the most slots
/// that there can be at the usual cost. A secret that opens none of them takes the time of all.
constexpr std::uint64_t kMostCostOfAKind =
    kMostKeySlots * platform::PassphraseCost().operations * platform::PassphraseCost().memoryKib;

/// Whether one slot may cost so much.
[[nodiscard]] bool isAllowed(const platform::PassphraseCost& cost);

/// Passes times KiB. Of costs that are allowed.
[[nodiscard]] std::uint64_t workOf(const platform::PassphraseCost& cost);

/// Of all slots of a kind together.
[[nodiscard]] std::uint64_t workOf(const std::vector<KeySlot>& slots, SecretKind kind);

/// The slots of a kind in the order in which they are to be tried: the cheapest first, else as
/// they are in the list.
[[nodiscard]] std::vector<const KeySlot*> slotsToTry(const std::vector<KeySlot>& slots,
                                                     SecretKind kind);

} // namespace stowline::backup
