// The helper programs of a host: nurseries, their children, and those that were started alone.
#pragma once

#include <vector>

namespace stowline::test {

/// Process ids of the nurseries that a process has begun and that have not ended.
[[nodiscard]] std::vector<int> nurseriesOf(int host);

/// Process ids of the helpers at work for a process, however they were started.
[[nodiscard]] std::vector<int> helpersOf(int host);

} // namespace stowline::test
