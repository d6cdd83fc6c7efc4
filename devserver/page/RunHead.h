// What the first line of a run's record says.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::devserver {

/// The machine's own word: the service can neither check nor complete it.
struct RunHead {
    std::uint64_t items = 0;
    std::uint64_t failed = 0; ///< that the run could not look at, read or store
    std::uint64_t newBytes = 0;
    std::uint64_t bytes = 0;
};

/// Reads it from a record's stored bytes (docs/formats/record.md). Needs no key.
/// @param beginning hands over at most so many of them from the start
/// @return absent for what is no record of a known format, or not within its first 8 MiB
[[nodiscard]] std::optional<RunHead>
readRunHead(const std::function<std::string(std::size_t)>& beginning);

/// A chain's name for people: "ann, profile default" of "MACHINE.ann.default"; the name itself
/// where it is of another form.
[[nodiscard]] std::string chainText(std::string_view chain);

/// "x" of the same; empty for every other text.
[[nodiscard]] std::string profileOfChain(std::string_view chain);

} // namespace stowline::devserver
