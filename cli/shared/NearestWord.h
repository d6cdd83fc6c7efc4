// What somebody may have meant who mistyped a word.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace stowline::cli {

/// The known word that the fewest slips of the keyboard turn into the given one: letters left out,
/// added, mistaken or exchanged with their neighbour. ASCII.
/// @return empty when none is near, that is when more than a third of the letters are slips
[[nodiscard]] std::string nearestWord(std::string_view given,
                                      const std::vector<std::string>& known);

/// " Did you mean "X"?", to stand after a sentence; empty when no word is near.
[[nodiscard]] std::string suggestion(std::string_view given, const std::vector<std::string>& known);

} // namespace stowline::cli
