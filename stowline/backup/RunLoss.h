// What a run found gone of what the one before it held.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// Items that a record held and the next one of its chain does not hold any more, or without the
/// content that they had: deleted, moved, emptied, or left out by other rules. A plain value.
struct RunLoss {
    std::uint64_t run = 0;   ///< that found them gone
    std::uint64_t gone = 0;  ///< so many
    std::uint64_t items = 0; ///< of so many; 0: the record before could not be read, nobody knows
    bool operator==(const RunLoss&) const = default;
};

/// Whether it is so much that runs are not forgotten by themselves until a person has said that it
/// was meant: more than 30 %, or nobody knows how much.
[[nodiscard]] constexpr bool holdsForgettingBack(const RunLoss& loss)
{
    constexpr std::uint64_t percent = 30;
    return loss.items == 0 || loss.gone * 100 > loss.items * percent;
}

/// "Run 5 found 40 items gone or emptied, of the 100 items that the run before it held."
[[nodiscard]] std::string sentenceOf(const RunLoss& loss);

} // namespace stowline::backup
#pragma GCC visibility pop
