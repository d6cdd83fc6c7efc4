// The log dispatcher beside spdlog's asynchronous logger: the same bound on the queue, callers wait
// when it is full, one sink that counts.
#include "bench/LogWork.h"
#include "bench/Measure.h"
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/LogMacros.h"

#include <fmt/format.h>
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>

#include <cstdlib>
#include <thread>

namespace stowline::bench {

namespace {

constexpr int kRounds = 9;

class CountingSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    std::atomic<std::size_t> count = 0;

private:
    void sink_it_(const spdlog::details::log_msg&) override
    {
        count.fetch_add(1, std::memory_order_relaxed);
    }
    void flush_() override {}
};

void requireCount(std::size_t counted)
{
    if (counted == static_cast<std::size_t>(kMessages))
        return;
    fmt::print(stderr, "{} of {} messages arrived\n", counted, kMessages);
    std::exit(1);
}

double oursPerSecond(int producers)
{
    const auto logger = std::make_shared<CountingLogger>(CountingLogger::Keep::nothing);
    DDLog::addLogger(logger);
    const double time = microsecondsFor([&] {
        produce(producers, [](int i) { STOWLINE_LOG_INFO("file %@, part %d", "letter.txt", i); });
        DDLog::flushLog();
    });
    requireCount(logger->count());
    DDLog::removeLogger(logger);
    DDLog::flushLog();
    return kMessages / time * 1e6;
}

double spdlogPerSecond(int producers)
{
    const auto sink = std::make_shared<CountingSink>();
    double time = 0;
    {
        auto pool = std::make_shared<spdlog::details::thread_pool>(kQueueBound, 1);
        auto logger = std::make_shared<spdlog::async_logger>("bench", sink, pool,
                                                             spdlog::async_overflow_policy::block);
        time = microsecondsFor([&] {
            produce(producers, [&logger](int i) {
                logger->log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::info,
                            "file {}, part {}", "letter.txt", i);
            });
            logger.reset();
            pool.reset(); // returns when everything is written
        });
    }
    requireCount(sink->count);
    return kMessages / time * 1e6;
}

} // namespace

void measureLogging()
{
    std::vector<Row> rows;
    for (const int producers : {1, 4}) {
        std::vector<double> ours;
        std::vector<double> peer;
        for (int round = 0; round < kRounds; ++round) {
            ours.push_back(oursPerSecond(producers));
            peer.push_back(spdlogPerSecond(producers));
        }
        const double ratio = median(ours) / median(peer);
        rows.push_back({fmt::format("asynchronous messages/s, {} producer(s)", producers),
                        fmt::format("{:.0f}", median(ours)),
                        fmt::format("spdlog {:.0f}", median(peer)), ratio, "≥ 1.0", ratio >= 1});
    }
    print(rows);
}

} // namespace stowline::bench
