#include "stowline/platform/network/LineCost.h"

#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace stowline::platform {
namespace {

/// The desktop's monitor is made once in a process, so there is one answer in each test.
class LineCostOf : public testing::TestWithParam<std::pair<std::uint32_t, bool>> {};

TEST_P(LineCostOf, IsNetworkManagersWord)
{
    if (!test::PrivateBus::isInstalled())
        GTEST_SKIP() << "dbus-daemon is not installed; see packaging/apt-packages.txt.";
    const test::PrivateBus bus;
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
    const auto manager = test::networkManager(bus, GetParam().first);
    EXPECT_EQ(lineCost(), GetParam().second ? LineCost::byVolume : LineCost::notByVolume);
}

INSTANTIATE_TEST_SUITE_P(Answers, LineCostOf,
                         testing::Values(std::pair(1U, true), std::pair(2U, false),
                                         std::pair(3U, true), std::pair(4U, false)));

TEST(LineCost, IsNotKnownWhereNobodyCanTell)
{
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_EQ(lineCost(), LineCost::unknown);
}

} // namespace
} // namespace stowline::platform
