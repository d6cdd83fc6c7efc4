// The list of slots as lines of text, and back: docs/formats/key-slots.md has the form.
#pragma once

#include "stowline/backup/content/KeySlots.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace stowline::backup {

/// What the first line tells.
struct SlotListHead {
    std::uint64_t generation = 0;
    std::string keyName;
};

/// What the last line tells.
struct SlotListEnd {
    std::size_t slots = 0;
    std::string seal; ///< over all bytes before the line
};

[[nodiscard]] std::string lineOf(const SlotListHead& head);
[[nodiscard]] std::string lineOf(const KeySlot& slot);
[[nodiscard]] std::string lineOf(const SlotListEnd& end);

/// Lines that others wrote: nothing in them is trusted. What is not of the form throws KeyFault,
/// `tooNew` for a first line of a later format, else `damaged`.
[[nodiscard]] SlotListHead slotListHeadOf(std::string_view line);
[[nodiscard]] KeySlot keySlotOf(std::string_view line);
[[nodiscard]] SlotListEnd slotListEndOf(std::string_view line);

} // namespace stowline::backup
