// What doctor sees on a network that has only the desktop's proxy.
#include "stowline/service/Diagnosis.h"
#include "tests/support/DesktopProxy.h"
#include "tests/support/RawServer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>

namespace stowline {
namespace {

/// Looks at an address through a proxy that answers everything so.
Finding findingThrough(const std::string& answer, const std::string& requestLine)
{
    for (const char* variable : {"http_proxy", "all_proxy", "ALL_PROXY"})
        ::unsetenv(variable);
    const test::RawServer proxy(answer);
    test::setDesktopProxy("http://127.0.0.1:" + std::to_string(proxy.port()));
    Finding finding = lookAtAddress("http://grün.example/");
    EXPECT_TRUE(proxy.requests().at(0).starts_with(requestLine)) << proxy.requests().at(0);
    return finding;
}

constexpr const char* kRequestLine = "GET http://xn--grn-ioa.example";

TEST(Diagnosis, LooksThroughTheDesktopsProxy)
{
    const Finding finding = findingThrough(test::httpAnswer("ok"), kRequestLine);
    EXPECT_TRUE(finding.isWell) << finding.text;
}

TEST(Diagnosis, ComparesTheClockWithTheServers)
{
    const auto answer = [](const std::string& date) {
        return "HTTP/1.1 200 OK\r\n" + date + "Content-Length: 0\r\n\r\n";
    };
    const test::RawServer old(answer("Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n"));
    const auto ahead = lookAtClock(old.url());
    ASSERT_TRUE(ahead);
    EXPECT_FALSE(ahead->isWell);
    EXPECT_NE(ahead->text.find(" ahead of that of 127.0.0.1. Please set it"), std::string::npos)
        << ahead->text;
    const test::RawServer far(answer("Date: Sun, 06 Nov 2394 08:49:37 GMT\r\n"));
    EXPECT_NE(lookAtClock(far.url())->text.find(" behind that of "), std::string::npos);
    std::time_t now = std::time(nullptr);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "Date: %a, %d %b %Y %H:%M:%S GMT\r\n",
                  std::gmtime(&now));
    const test::RawServer right(answer(text.data()));
    EXPECT_TRUE(lookAtClock(right.url())->isWell);
    for (const char* other : {"", "Date: today\r\n", "Date: Sun, 06 Foo 1994 08:49:37 GMT\r\n"}) {
        const test::RawServer silent(answer(other));
        EXPECT_FALSE(lookAtClock(silent.url())) << other;
    }
    EXPECT_FALSE(lookAtClock("http://127.0.0.1:" + std::to_string(test::closedPort()) + "/"));
}

TEST(Diagnosis, TellsAProxyThatWantsAPassword)
{
    const Finding finding = findingThrough("HTTP/1.1 407 Proxy Authentication Required\r\n"
                                           "Content-Length: 0\r\n\r\n",
                                           kRequestLine);
    EXPECT_FALSE(finding.isWell);
    EXPECT_EQ(finding.kind, FailureKind::proxyRefused);
}

} // namespace
} // namespace stowline
