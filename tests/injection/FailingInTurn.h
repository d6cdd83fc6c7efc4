// One path through the system, in which everything that can fail does, one call after the other.
#pragma once

#include "tests/injection/Injection.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace stowline::test {

/// A function that fails once, or from some call on.
struct Failing {
    std::string function;
    bool isPersistent = false;
};

std::ostream& operator<<(std::ostream& stream, const Failing& failing);

/// Each function both ways, and a name for each test.
[[nodiscard]] std::vector<Failing> bothWays(const std::vector<std::string>& functions);
[[nodiscard]] std::string nameOf(const testing::TestParamInfo<Failing>& info);

struct Path {
    std::function<void()> attempt; ///< runs while something may fail; must not look at the outcome
    std::function<void()> check;   ///< whether the attempt ended in a documented way
    std::function<void()> works;   ///< runs undisturbed, and must succeed
};

/// Runs a path again and again, with the first, second, … call of the function failing, until all
/// its calls have. After each run: the outcome is a documented one; no descriptor, thread or child
/// process more than before is there; and the path works. Of many allocations every one fails in
/// the long tests, some tenth of them in the others.
void failInTurn(const Failing& failing, const Path& path);

/// The injectable functions that an undisturbed run of the path calls and that are not listed.
[[nodiscard]] std::vector<std::string> unlisted(const std::vector<std::string>& functions,
                                                const Path& path);

} // namespace stowline::test
