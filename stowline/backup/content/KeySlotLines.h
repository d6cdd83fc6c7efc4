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

/// @param earlier the line in whose place it stands: what a later version put into it stays
[[nodiscard]] std::string lineOf(const SlotListHead& head, std::string_view earlier = {});
[[nodiscard]] std::string lineOf(const KeySlot& slot);
[[nodiscard]] std::string lineOf(const SlotListEnd& end);

/// Whether a label is text of at most kLongestSlotLabel bytes that is harmless to show: without
/// control characters, line ends, and what turns or hides text.
[[nodiscard]] bool isSlotLabel(std::string_view label);

/// Lines that others wrote: nothing in them is trusted. What is not of the form throws KeyFault,
/// `tooNew` for a first line of a later format and for a slot of an unknown kind, else `damaged`.
[[nodiscard]] SlotListHead slotListHeadOf(std::string_view line);
[[nodiscard]] KeySlot keySlotOf(std::string_view line);
[[nodiscard]] SlotListEnd slotListEndOf(std::string_view line);

} // namespace stowline::backup
