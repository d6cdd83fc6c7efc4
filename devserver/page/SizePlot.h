// A plot of what an account held over time.
#pragma once

#include "devserver/AccountFigures.h"

#include <string>
#include <string_view>
#include <vector>

namespace stowline::devserver {

/// "From 1.0 MB at … to 3.0 MB at … . The most was …": the plot in words.
[[nodiscard]] std::string plotInWords(const std::vector<SpaceNote>& notes);

/// A figure with the plot, its words, and its numbers as a table that can be opened. Each note
/// holds until the next. Of very many the plot shows the largest of each piece of time, so that no
/// peak is lost.
/// @param notes the oldest first, one at least
/// @param id of the figure, which no other element of the page has
[[nodiscard]] std::string plotFigure(std::string_view id, std::string_view userName,
                                     const std::vector<SpaceNote>& notes);

} // namespace stowline::devserver
