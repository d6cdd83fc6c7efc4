// What a running service does by itself.
#include "devserver/Housekeeping.h"

#include "tests/support/DevServerProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace stowline::devserver {
namespace {

namespace fs = std::filesystem;

TEST(Housekeeping, OfARunningServiceDropsWhatWasAbandonedForSevenDays)
{
    const test::TemporaryFolder data;
    const fs::path old = data.write("vol1/ann/1/old", "a part that was never registered");
    const fs::path fresh = data.write("vol1/ann/1/fresh", "a part of today");
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(8 * 24));
    const test::DevServerProcess server({}, data.path());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (fs::exists(old) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // another process's file
    EXPECT_FALSE(fs::exists(old));
    EXPECT_TRUE(fs::exists(fresh));
}

} // namespace
} // namespace stowline::devserver
