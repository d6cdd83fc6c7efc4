// The lines of a record as text, and back. docs/formats/record.md has the form.
#pragma once

#include "stowline/backup/index/PlaceNote.h"
#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/record/RecordHead.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace stowline::backup {

/// The newest format that this program reads, and the one that it writes.
inline constexpr std::uint64_t kRecordFormat = 2;

/// A path that a difference tells is there no more, with all that is below it.
struct GoneItem {
    std::string path;
};

/// What a record tells of a place besides the item there.
struct PlaceLine {
    std::string path;
    std::optional<PlaceNote> note; ///< absent, in a difference: there is none any more
};

/// The last line.
struct RecordEnd {
    std::uint64_t items = 0; ///< lines between the first and this one
    std::string digest;      ///< SHA-256 of all bytes before this line
};

[[nodiscard]] std::string lineOf(const RecordHead& head);
[[nodiscard]] std::string lineOf(const StoredItem& stored);
[[nodiscard]] std::string lineOf(const GoneItem& gone);
[[nodiscard]] std::string lineOf(const PlaceLine& place);
[[nodiscard]] std::string lineOf(const RecordEnd& end);

/// Lines that others wrote: nothing in them is trusted. What is not of the form, or could not be of
/// any tree (a path that is not absolute, with "..", an empty name or NUL), throws RecordFault:
/// `tooNew` for a first line of a later format, else `damaged`. Keys that are not known are passed
/// over.
[[nodiscard]] RecordHead headOf(std::string_view line);
using RecordLine = std::variant<StoredItem, GoneItem, PlaceLine, RecordEnd>;
[[nodiscard]] RecordLine recordLineOf(std::string_view line);

/// Whether a path could be one of ItemRecord.
[[nodiscard]] bool isItemPath(std::string_view path);

} // namespace stowline::backup
