// Calls on a network that has only the proxy of the desktop's settings.
#include "tests/support/DesktopProxy.h"
#include "stowline/service/Diagnosis.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SilentNames.h"
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

/// A method and a template at a host that nobody but the proxy knows.
Dictionary settingsBehindTheProxy(const std::string& reachabilityHost)
{
    Dictionary settings = test::settingsWith(
        "M", Dictionary{{"URL", "http://service.test/soap"}, {"namespace", "urn:t"}},
        reachabilityHost);
    settings.emplace("Templates", Dictionary{{"T", Dictionary{{"URL", "http://service.test/t"},
                                                              {"body", "text"}}}});
    return settings;
}

TEST(ProxyOnlyNetwork, NeedsNoNameOfTheService)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    leaveItToTheDesktop();
    const RawServer proxy(test::soapAnswer("<a>x</a>"));
    test::setDesktopProxy(addressOf(proxy));
    const test::TestBundle bundle(settingsBehindTheProxy("service.test"));
    for (const bool isEnvironments : {false, true}) {
        if (isEnvironments)
            ::setenv("http_proxy", addressOf(proxy).c_str(), 1);
        const auto before = proxy.requests().size();
        EXPECT_TRUE(call());
        EXPECT_TRUE(WebServiceBroker::sendTemplateRequestWithName("T", {}, "", {}));
        const Finding finding = lookAtNetwork();
        EXPECT_TRUE(finding.isWell);
        EXPECT_EQ(finding.text, "There is a route to the proxy 127.0.0.1");
        EXPECT_EQ(proxy.requests().size(), before + 2);
    }
    EXPECT_FALSE(names.isAsked(0ms));
}

TEST(ProxyOnlyNetwork, TheServiceItselfCountsWhereNoProxyCarriesTheCall)
{
    leaveItToTheDesktop();
    const RawServer proxy(test::soapAnswer("<a>x</a>"));
    ::setenv("http_proxy", addressOf(proxy).c_str(), 1);
    ::setenv("no_proxy", "service.test", 1);
    const test::TestBundle bundle(settingsBehindTheProxy("a..b")); // which cannot be looked up
    const FailureWatch watch;
    EXPECT_FALSE(call());
    EXPECT_EQ(watch.kind(), FailureKind::hostUnreachable);
    EXPECT_FALSE(WebServiceBroker::sendTemplateRequestWithName("T", {}, "", {}));
    EXPECT_FALSE(lookAtNetwork().isWell);
    EXPECT_TRUE(proxy.requests().empty());
}

TEST(ProxyOnlyNetwork, NoProxyLeadsToAnExample)
{
    leaveItToTheDesktop();
    const RawServer proxy(test::soapAnswer("<a>x</a>"));
    ::setenv("http_proxy", addressOf(proxy).c_str(), 1);
    const test::TestBundle bundle(settingsBehindTheProxy("service..example"));
    EXPECT_FALSE(call());
    EXPECT_NE(lookAtNetwork().text.find("is an example."), std::string::npos);
    EXPECT_TRUE(proxy.requests().empty());
}

TEST(ProxyOnlyNetwork, AServiceThatIsReachableIsCalledThoughTheProxysNameIsNotKnown)
{
    leaveItToTheDesktop();
    ::setenv("http_proxy", "http://a..b:1", 1);
    const test::TestBundle bundle(settingsBehindTheProxy("127.0.0.1"));
    const FailureWatch watch;
    EXPECT_FALSE(call());
    EXPECT_NE(watch.kind(), FailureKind::hostUnreachable); // the call says what is wrong
    EXPECT_EQ(lookAtNetwork().text, "There is a route to 127.0.0.1");
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

TEST(DesktopProxy, CarriesPartsAndTemplates)
{
    leaveItToTheDesktop();
    const RawServer proxy(test::httpAnswer("ok"));
    test::setDesktopProxy(addressOf(proxy));
    Dictionary all = settings();
    all.emplace("Templates", Dictionary{{"T", Dictionary{{"URL", "http://service.example/t"}}}});
    all.emplace("WebRequests",
                Dictionary{{"R", Dictionary{{"URL", "http://%@/part"}, {"httpMethod", "POST"}}}});
    const test::TestBundle bundle(all);
    EXPECT_TRUE(WebServiceBroker::sendTemplateRequestWithName("T", {}, "", {}));
    EXPECT_TRUE(WebServiceBroker::sendWebRequestWithURL("http://service.example/part", "R", {},
                                                        "0123", nullptr, nullptr));
    ASSERT_EQ(proxy.requests().size(), 2U);
    EXPECT_TRUE(proxy.requests()[0].starts_with("POST http://service.example/t HTTP/1.1\r\n"));
    EXPECT_TRUE(proxy.requests()[1].starts_with("POST http://service.example/part HTTP/1.1\r\n"));
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
