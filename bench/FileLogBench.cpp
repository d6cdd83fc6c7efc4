// The rolling file logger beside spdlog's rotating file sink, a synchronous line beside a bare
// write, and the database logger.
#include "bench/LogWork.h"
#include "bench/Measure.h"
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/logging/SQLiteLogger.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

constexpr int kRounds = 9;
constexpr std::size_t kFileSize = 1048576;
constexpr std::size_t kFiles = 50;

[[noreturn]] void stop(const std::string& sentence)
{
    fmt::print(stderr, "stopped: {}\n", sentence);
    std::exit(1);
}

/// Lines in all files of a folder, which must be complete and, of each thread, in order.
void requireLines(const std::filesystem::path& folder)
{
    std::size_t lines = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
            ++lines;
    }
    if (lines != static_cast<std::size_t>(kMessages))
        stop(fmt::format("{} of {} lines are in the files", lines, kMessages));
}

/// Waits until a logger that was removed has closed its files.
void remove(std::shared_ptr<DDLogger> logger)
{
    const auto queue = logger->loggerQueue();
    DDLog::removeLogger(std::move(logger));
    DDLog::flushLog();
    queue->sync([] {});
}

struct Run {
    double perSecond = 0;
    std::vector<double> callerMicroseconds; ///< one of a hundred calls
};

template <class Log> Run timed(int producers, const std::function<void()>& flush, Log log)
{
    Run run;
    std::mutex mutex;
    const double time = microsecondsFor([&] {
        produce(producers, [&](int i) {
            if (i % 100 != 0)
                return log(i);
            const double taken = microsecondsFor([&] { log(i); });
            const std::lock_guard lock(mutex);
            run.callerMicroseconds.push_back(taken);
        });
        flush();
    });
    run.perSecond = kMessages / time * 1e6;
    return run;
}

Run ours(int producers)
{
    const test::TemporaryFolder folder;
    const auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    manager->setMaximumNumberOfLogFiles(kFiles);
    auto logger = std::make_shared<DDFileLogger>(manager);
    DDLog::addLogger(logger);
    DDLog::flushLog();
    const Run run = timed(
        producers, [] { DDLog::flushLog(); },
        [](int i) { STOWLINE_LOG_INFO("file %@, part %d", "letter.txt", i); });
    remove(std::move(logger));
    requireLines(folder.path());
    return run;
}

Run spdlogs(int producers, bool flushEach)
{
    const test::TemporaryFolder folder;
    const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        (folder.path() / "log.txt").string(), kFileSize, kFiles);
    Run run;
    {
        auto pool = std::make_shared<spdlog::details::thread_pool>(kQueueBound, 1);
        auto logger = std::make_shared<spdlog::async_logger>("bench", sink, pool,
                                                             spdlog::async_overflow_policy::block);
        logger->set_pattern("%Y/%m/%d %H:%M:%S:%e  %v");
        logger->flush_on(flushEach ? spdlog::level::trace : spdlog::level::off);
        run = timed(
            producers,
            [&] {
                logger.reset();
                pool.reset(); // ends when the queue is empty
                sink->flush();
            },
            [&](int i) {
                logger->log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::info,
                            "file {}, part {}", "letter.txt", i);
            });
    }
    requireLines(folder.path());
    return run;
}

double percentile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    return values.at(static_cast<std::size_t>(share * static_cast<double>(values.size() - 1)));
}

/// Medians of the rounds, done in turn.
struct Figures {
    std::vector<double> perSecond;
    std::vector<double> callers;
    void add(const Run& run)
    {
        perSecond.push_back(run.perSecond);
        callers.insert(callers.end(), run.callerMicroseconds.begin(), run.callerMicroseconds.end());
    }
    [[nodiscard]] std::string caller() const
    {
        return fmt::format("p50 {:.2f} µs, p99 {:.1f} µs", percentile(callers, 0.5),
                           percentile(callers, 0.99));
    }
};

void measureFiles(int producers)
{
    Figures our;
    Figures flushed;
    Figures unflushed;
    for (int round = 0; round < kRounds; ++round) {
        our.add(ours(producers));
        flushed.add(spdlogs(producers, true));
        unflushed.add(spdlogs(producers, false));
    }
    const double rate = median(our.perSecond);
    const auto row = [&](const std::string& how, const Figures& peer, const char* wanted,
                         bool isWanted) {
        const double ratio = rate / median(peer.perSecond);
        return Row{fmt::format("messages/s into files, {} producer(s)", producers),
                   fmt::format("{:.0f}", rate),
                   fmt::format("spdlog {} {:.0f}", how, median(peer.perSecond)),
                   ratio,
                   wanted,
                   !isWanted || ratio >= 1};
    };
    print({row("flushed", flushed, "≥ 1.0", true), row("unflushed", unflushed, "aim 1.0", false)});
    fmt::print("time of the caller: ours {}; spdlog flushed {}; unflushed {}\n", our.caller(),
               flushed.caller(), unflushed.caller());
}

void measureSynchronousLine()
{
    const test::TemporaryFolder folder;
    auto logger = std::make_shared<DDFileLogger>(
        std::make_shared<DDLogFileManagerDefault>(folder.path() / "logs"));
    logger->setMaximumFileSize(0);
    DDLog::addLogger(logger);
    const int file =
        ::open((folder.path() / "bare").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const std::string line = "2013/06/01 09:30:00:125  file letter.txt, part 12345\n";
    std::vector<double> ours;
    std::vector<double> bare;
    for (int i = 0; i < 20001; ++i) {
        ours.push_back(
            microsecondsFor([i] { STOWLINE_LOG_ERROR("file %@, part %d", "letter.txt", i); }));
        bare.push_back(microsecondsFor([&] {
            if (::write(file, line.data(), line.size()) < 0)
                std::exit(1);
        }));
    }
    ::close(file);
    remove(std::move(logger));
    const double ratio = median(ours) / median(bare);
    print({{"a synchronous error line", fmt::format("{:.2f} µs", median(ours)),
            fmt::format("write {:.2f} µs", median(bare)), ratio, "≤ 1.5", ratio <= 1.5}});
}

void measureDatabase()
{
    std::vector<double> perSecond;
    for (int round = 0; round < 5; ++round) {
        const test::TemporaryFolder folder;
        const std::string path = folder.path() / "log";
        auto logger = SQLiteLogger::open(path, nullptr);
        DDLog::addLogger(logger);
        DDLog::flushLog();
        const Run run = timed(
            1, [] { DDLog::flushLog(); },
            [](int i) { STOWLINE_LOG_INFO("file %@, part %d", "letter.txt", i); });
        perSecond.push_back(run.perSecond);
        remove(std::move(logger));
        const auto kept = SQLiteLogger::entries(path, {.limit = 1 << 30}, nullptr);
        if (!kept || kept->size() != static_cast<std::size_t>(kMessages))
            stop("rows are missing");
    }
    const double ratio = median(perSecond) / 200000;
    print({{"rows/s into the database", fmt::format("{:.0f}", median(perSecond)), "200000", ratio,
            "≥ 1.0", ratio >= 1}});
}

} // namespace

void measureFileLogging()
{
    measureFiles(1);
    measureFiles(4);
    measureSynchronousLine();
    measureDatabase();
}

} // namespace stowline::bench
