// Calls on a network that has only the proxy of the desktop's settings.
#include "tests/support/DesktopProxy.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::RawServer;

constexpr const char* kMethod = "http://service.example/soap";

Dictionary settings()
{
    return test::settingsWith("M", Dictionary{{"URL", kMethod}, {"namespace", "urn:t"}});
}

std::optional<Value> call()
{
    return WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, nullptr);
}

std::string addressOf(const RawServer& server)
{
    return "http://127.0.0.1:" + std::to_string(server.port());
}

void leaveItToTheDesktop()
{
    for (const char* variable : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                 "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(variable);
}

TEST(DesktopProxy, CarriesCalls)
{
    leaveItToTheDesktop();
    const RawServer proxy(test::soapAnswer("<a>x</a>"));
    test::setDesktopProxy(addressOf(proxy));
    const test::TestBundle bundle(settings());
    EXPECT_TRUE(call());
    EXPECT_TRUE(
        proxy.requests().at(0).starts_with("POST " + std::string(kMethod) + " HTTP/1.1\r\n"));
}

TEST(DesktopProxy, IsAskedForHostsOfAnyScriptInAscii)
{
    leaveItToTheDesktop();
    const RawServer proxy(test::soapAnswer("<a>x</a>"));
    test::setDesktopProxy(addressOf(proxy));
    const test::TestBundle bundle(test::settingsWith(
        "M", Dictionary{{"URL", "http://gr\u00fcn.example/gr\u00fcn"}, {"namespace", "urn:t"}}));
    EXPECT_TRUE(call());
    const std::string request = proxy.requests().at(0);
    EXPECT_TRUE(request.starts_with("POST http://xn--grn-ioa.example/gr%C3%BCn HTTP/1.1\r\n"));
    EXPECT_NE(request.find("Host: xn--grn-ioa.example\r\n"), std::string::npos);
}

TEST(DesktopProxy, GivesWayToTheEnvironments)
{
    leaveItToTheDesktop();
    const RawServer desktops(test::soapAnswer("<a>x</a>"));
    const RawServer environments(test::soapAnswer("<a>x</a>"));
    test::setDesktopProxy(addressOf(desktops));
    ::setenv("http_proxy", addressOf(environments).c_str(), 1);
    const test::TestBundle bundle(settings());
    EXPECT_TRUE(call());
    EXPECT_TRUE(desktops.requests().empty());
    EXPECT_EQ(environments.requests().size(), 1U);
}

TEST(DesktopProxy, ADesktopThatDoesNotAnswerHoldsNoCallUp)
{
    leaveItToTheDesktop();
    const RawServer server(test::soapAnswer("<a>x</a>"));
    test::setDesktopProxy("http://127.0.0.1:1", 60s);
    const test::TestBundle bundle(
        test::settingsWith("M", Dictionary{{"URL", server.url()}, {"namespace", "urn:t"}}));
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(call());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 15s);
    EXPECT_EQ(test::desktopProxyQuestions(), 1); // it is not asked again before it has answered
}

} // namespace
} // namespace stowline
