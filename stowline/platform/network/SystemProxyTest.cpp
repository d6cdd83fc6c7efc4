#include "stowline/platform/network/SystemProxy.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace stowline::platform {
namespace {

TEST(SystemProxy, TakesTheFirstProxyThatCanBeUsed)
{
    const char* const direct[] = {"direct://", "http://p:1", nullptr};
    const char* const plain[] = {"http://p:3128", "direct://", nullptr};
    const char* const socks[] = {"socks://p:1080", nullptr};
    const char* const odd[] = {"quic://p:1", nullptr};
    EXPECT_EQ(usableProxy(direct), "");
    EXPECT_EQ(usableProxy(plain), "http://p:3128");
    EXPECT_EQ(usableProxy(socks), "socks5://p:1080");
    EXPECT_EQ(usableProxy(odd), "");
    EXPECT_EQ(usableProxy(nullptr), "");
}

TEST(SystemProxy, TheEnvironmentComesFirst)
{
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);
    EXPECT_EQ(systemProxyFor("http://example.invalid/"), "");
    ::unsetenv("http_proxy");
}

} // namespace
} // namespace stowline::platform
