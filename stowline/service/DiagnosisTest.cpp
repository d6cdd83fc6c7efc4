// What doctor sees on a network that has only the desktop's proxy.
#include "stowline/service/Diagnosis.h"
#include "tests/support/DesktopProxy.h"
#include "tests/support/RawServer.h"

#include <gtest/gtest.h>

#include <cstdlib>

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
