// Expanding a call of 13 parameters.
#include "bench/Measure.h"
#include "stowline/soap/TemplateExpansion.h"

#include <fmt/format.h>

#include <cstdlib>

namespace stowline::bench {

namespace {

constexpr int kParameters = 13;
constexpr int kRounds = 2001;
constexpr double kMostMicroseconds = 10;

} // namespace

void measureExpansion()
{
    std::vector<std::string> templates;
    SubstitutionMap values;
    for (int i = 0; i < kParameters; ++i) {
        const std::string placeholder = fmt::format("<<PARAMETER_{}>>", i);
        templates.push_back(placeholder);
        values.emplace(placeholder, fmt::format("value {} of <this> & that", i));
    }
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round) {
        times.push_back(microsecondsFor([&] {
            if (soap::expandTemplates(templates, values, true)->size() != kParameters)
                std::exit(1);
        }));
    }
    const double time = median(times);
    print({{"expanding a call of 13 parameters", fmt::format("{:.2f} µs", time), "10 µs",
            time / kMostMicroseconds, "≤ 1.0", time <= kMostMicroseconds}});
}

} // namespace stowline::bench
