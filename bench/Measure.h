// Medians, ratios and the table that the benchmarks print.
#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace stowline::bench {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

template <class Work> double microsecondsFor(Work work)
{
    const auto start = Clock::now();
    work();
    return Microseconds(Clock::now() - start).count();
}

/// The value in the middle; these machines are noisy.
[[nodiscard]] inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

/// What was measured beside what, and the ratio that is asked for.
struct Row {
    std::string subject;
    std::string ours;
    std::string peer;
    double ratio = 0;
    std::string wanted; ///< as "≤ 1.3"
    bool isMet = true;
};

[[nodiscard]] std::string inMilliseconds(double microseconds);
void print(const std::vector<Row>& rows);

// One function a subject; each prints its rows. They end the program with a sentence when something
// they need is missing.
void measureCalls();
void measureContent();
void measureLogging();
void measureFileLogging();
void measureParsing();
void measureExpansion();
void measureUtilities();
void measureStore();
void measureUploads();
void measureSmallFiles();
void measureTrees();
void measureRestores();
void measureForgetting();
/// @param part of the whole: 1, or less to try it out
void measureDay(double part);

} // namespace stowline::bench
