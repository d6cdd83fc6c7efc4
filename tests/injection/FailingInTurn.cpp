#include "tests/injection/FailingInTurn.h"

#include "tests/support/Program.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>
#include <thread>

namespace stowline::test {

namespace {

std::size_t threadCount()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

/// Threads end, and connections that are kept for a while are closed, in their own time.
bool isSoonNoMoreThan(std::size_t (*counted)(), std::size_t count)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (counted() > count && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return counted() <= count;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const Failing& failing)
{
    return stream << failing.function << (failing.isPersistent ? " from some call on" : " once");
}

std::vector<Failing> bothWays(const std::vector<std::string>& functions)
{
    std::vector<Failing> all;
    all.reserve(functions.size() * 2);
    for (const std::string& function : functions) {
        all.push_back({function, false});
        all.push_back({function, true});
    }
    return all;
}

std::string nameOf(const testing::TestParamInfo<Failing>& info)
{
    return info.param.function + (info.param.isPersistent ? "_always" : "_once");
}

void failInTurn(const Failing& failing, const Path& path)
{
    path.works();
    path.works(); // what is made once and kept is there now
    const std::size_t descriptors = openDescriptorCount();
    const std::size_t threads = threadCount();
    const std::size_t children = childCount();
    std::size_t failures = 0;
    for (std::size_t call = 1; !testing::Test::HasFailure(); ++call) {
        SCOPED_TRACE(failing.function + ", call " + std::to_string(call));
        arm({failing.function, call, failing.isPersistent});
        path.attempt();
        const Counts counts = disarm();
        failures += counts.failures;
        path.check();
        path.works();
        EXPECT_TRUE(isSoonNoMoreThan(threadCount, threads))
            << threadCount() << ", before " << threads;
        EXPECT_TRUE(isSoonNoMoreThan(openDescriptorCount, descriptors))
            << openDescriptorCount() << ", before " << descriptors;
        EXPECT_EQ(childCount(), children);
        if (counts.failures == 0)
            break;
    }
    EXPECT_GT(failures, 0U) << "the path calls " << failing.function << " no more";
    std::cout << failures << " calls of " << failing.function << " failed\n";
}

std::vector<std::string> unlisted(const std::vector<std::string>& functions, const Path& path)
{
    path.works();
    std::vector<std::string> missing;
    for (const std::string& function : injectableFunctions()) {
        arm({function, std::numeric_limits<std::size_t>::max(), false});
        path.attempt();
        const Counts counts = disarm();
        path.check();
        if (counts.calls > 0 &&
            std::find(functions.begin(), functions.end(), function) == functions.end())
            missing.push_back(function);
    }
    return missing;
}

} // namespace stowline::test
