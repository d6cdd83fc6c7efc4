// Requests whose end the system's buffers hold while a slow server reads it.
#include "stowline/platform/http/HttpExchange.h"
#include "tests/support/SlowServer.h"

#include <gtest/gtest.h>

#include <memory>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBodyBytes = 400'000;

TEST(SlowUpload, MovesAsLongAsTheServerReads)
{
    const test::SlowServer server(kBodyBytes, kBodyBytes, 4000,
                                  20ms); // some 2 s for what is handed over at once
    const std::string body(kBodyBytes, 'x');
    HttpExchange exchange({.url = server.url(), .body = body}, {});
    int silences = 0;
    while (!exchange.hasEnded())
        silences += exchange.waitForEvent(700ms) ? 0 : 1;
    EXPECT_EQ(silences, 0);
    EXPECT_EQ(exchange.takeOutcome().body, "ok");
}

TEST(SlowUpload, IsSilentWhenTheServerReadsNoMore)
{
    const auto server = std::make_unique<test::SlowServer>(kBodyBytes, 40'000, 4000, 1ms);
    const std::string body(kBodyBytes, 'x');
    {
        HttpExchange exchange({.url = server->url(), .body = body}, {});
        const auto end = std::chrono::steady_clock::now() + 20s;
        bool moved = true;
        while (moved && std::chrono::steady_clock::now() < end)
            moved = exchange.waitForEvent(700ms);
        EXPECT_FALSE(moved);
        EXPECT_FALSE(exchange.hasEnded());
    }
}

} // namespace
} // namespace stowline::platform
