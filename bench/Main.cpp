// stowline-bench: measures side by side with a peer, in one run, and prints ratios of medians.
#include "bench/Measure.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>

namespace stowline::bench {

std::string inMilliseconds(double microseconds)
{
    return fmt::format("{:.2f} ms", microseconds / 1000);
}

void print(const std::vector<Row>& rows)
{
    fmt::print("| {:<44} | {:>16} | {:>22} | {:>6} | {:>8} |\n", "measured", "ours", "peer",
               "ratio", "wanted");
    fmt::print("|{:-<46}|{:->18}|{:->24}|{:->8}|{:->10}|\n", "", ":", ":", ":", ":");
    for (const Row& row : rows)
        fmt::print("| {:<44} | {:>16} | {:>22} | {:>6.2f} | {:>8} |{}\n", row.subject, row.ours,
                   row.peer, row.ratio, row.wanted, row.isMet ? "" : " not met");
    std::fflush(stdout);
}

} // namespace stowline::bench

int main(int count, char** words)
{
    using namespace stowline::bench;
    const std::map<std::string, std::vector<std::function<void()>>> subjects{
        {"call", {measureCalls, measureParsing, measureExpansion}},
        {"log", {measureLogging, measureFileLogging}},
        {"util", {measureUtilities, measureStore}},
        {"upload", {measureUploads, measureSmallFiles}},
        {"small", {measureSmallFiles}},
        {"tree", {measureTrees}},
        {"restore", {measureRestores}},
        {"forget", {measureForgetting}},
        {"content", {measureContent}}};
    const std::string named = count == 2 || count == 3 ? words[1] : "";
    if (named == "day") {
        measureDay(count == 3 ? std::strtod(words[2], nullptr) : 1);
        return 0;
    }
    const auto subject = subjects.find(count == 2 ? named : "");
    if (subject == subjects.end()) {
        fmt::print(stderr, "usage: stowline-bench "
                           "call|log|util|upload|small|tree|restore|forget|content|day [PART]\n");
        return 2;
    }
    for (const auto& measure : subject->second)
        measure();
}
