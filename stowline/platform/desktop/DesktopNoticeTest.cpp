#include "stowline/platform/desktop/DesktopNotice.h"

#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace stowline::platform {
namespace {

const DesktopNotice kNotice{
    .application = "App", .title = "Title <b>", .text = "One & <two>\nthree"};

TEST(DesktopNotice, IsShownByTheSessionsService)
{
    if (!test::PrivateBus::isInstalled())
        GTEST_SKIP() << "dbus-daemon is not installed; see packaging/apt-packages.txt.";
    const test::PrivateBus bus;
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    EXPECT_FALSE(showDesktopNotice(kNotice)) << "there is no service yet";
    const auto service = test::notificationService(bus);
    EXPECT_TRUE(showDesktopNotice(kNotice));
    ASSERT_EQ(service->calls().size(), 1U);
    EXPECT_EQ(
        service->calls()[0],
        "Notify('App', 0, 'dialog-warning', 'Title <b>', 'One &amp; &lt;two&gt;\\nthree', [], "
        "{'urgency': <byte 0x02>}, -1)");
}

TEST(DesktopNotice, IsNotShownWhereThereIsNoBus)
{
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    ::unsetenv("XDG_RUNTIME_DIR");
    ::setenv("DISPLAY", ":9999", 1); // a bus must not be started for it
    EXPECT_FALSE(showDesktopNotice(kNotice));
    const test::TemporaryFolder folder;
    ::setenv("XDG_RUNTIME_DIR", folder.path().c_str(), 1);
    EXPECT_FALSE(showDesktopNotice(kNotice));
    for (const char* address : {"autolaunch:", "unix:path=/nonexistent/bus", "no address"}) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
        EXPECT_FALSE(showDesktopNotice(kNotice)) << address;
    }
}

TEST(DesktopNotice, DoesNotWaitForABusThatSaysNothing)
{
    const test::TemporaryFolder folder;
    sockaddr_un place{.sun_family = AF_UNIX, .sun_path = {}};
    const std::string path = folder.path() / "bus";
    path.copy(place.sun_path, sizeof place.sun_path - 1);
    const int bus = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(bus, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    ASSERT_EQ(::listen(bus, 8), 0); // nobody takes what comes
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    ::setenv("XDG_RUNTIME_DIR", folder.path().c_str(), 1);
    EXPECT_FALSE(showDesktopNotice(kNotice));
    ::close(bus);
}

} // namespace
} // namespace stowline::platform
