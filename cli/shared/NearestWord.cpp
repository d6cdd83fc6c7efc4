#include "cli/shared/NearestWord.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace stowline::cli {

namespace {

/// Slips between two words: the restricted Damerau-Levenshtein distance, row by row.
std::size_t slipsBetween(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(right.size() + 1);
    std::iota(last.begin(), last.end(), 0U);
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::vector<std::size_t> row(right.size() + 1, i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            row[j + 1] =
                std::min({last[j + 1] + 1, row[j] + 1, last[j] + (left[i] == right[j] ? 0U : 1U)});
            if (i > 0 && j > 0 && left[i] == right[j - 1] && left[i - 1] == right[j])
                row[j + 1] = std::min(row[j + 1], beforeLast[j - 1] + 1);
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last.back();
}

} // namespace

std::string nearestWord(std::string_view given, const std::vector<std::string>& known)
{
    std::string nearest;
    std::size_t fewest = std::max<std::size_t>(1, given.size() / 3) + 1;
    for (const std::string& word : known) {
        const std::size_t slips = slipsBetween(given, word);
        if (slips < fewest) {
            fewest = slips;
            nearest = word;
        }
    }
    return nearest;
}

std::string suggestion(std::string_view given, const std::vector<std::string>& known)
{
    const std::string nearest = nearestWord(given, known);
    return nearest.empty() ? "" : " Did you mean \"" + nearest + "\"?";
}

} // namespace stowline::cli
