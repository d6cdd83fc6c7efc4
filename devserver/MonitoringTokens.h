// Who may report to central monitoring.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace stowline::devserver {

/// Tokens that were given out, each good for some time from its first use. Any thread.
class MonitoringTokens {
public:
    using Clock = std::chrono::steady_clock;

    explicit MonitoringTokens(std::function<Clock::time_point()> now = Clock::now)
        : now_(std::move(now))
    {
    }

    void add(const std::string& token, std::chrono::seconds lifetime);
    [[nodiscard]] bool isGood(const std::string& token);

private:
    struct Token {
        std::chrono::seconds lifetime;
        Clock::time_point firstUse = Clock::time_point::max();
    };
    const std::function<Clock::time_point()> now_;
    std::mutex mutex_;
    std::map<std::string, Token> tokens_;
};

} // namespace stowline::devserver
