// What the benchmarks of logging share.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

namespace stowline::bench {

inline constexpr int kMessages = 200'000;
inline constexpr std::size_t kQueueBound = 1000;

/// Calls `log` with a number for each message, from so many threads at once.
template <class Log> void produce(int producers, Log log)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < producers; ++t) {
        threads.emplace_back([producers, log] {
            for (int i = 0; i < kMessages / producers; ++i)
                log(i);
        });
    }
    for (auto& thread : threads)
        thread.join();
}

} // namespace stowline::bench
