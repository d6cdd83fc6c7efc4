// A few pieces of work at the same time.
#pragma once

#include <cstddef>
#include <functional>

namespace stowline::backup {

/// Does work(0) to work(count - 1), each on a thread of its own as far as the system has threads,
/// and waits for all. Throws what the first of them that threw has thrown.
void sideBySide(std::size_t count, const std::function<void(std::size_t)>& work);

} // namespace stowline::backup
