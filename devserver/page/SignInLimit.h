// How often passwords may be tried on the page.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace stowline::devserver {

/// A user name has five tries at once and one more each minute, all names together thirty and one
/// more every two seconds; a try that succeeds does not count. Names without an account are counted
/// as those with one are, so that a refusal tells nothing of it. A try counts from its beginning:
/// many at the same time are no more than many in turn. Any thread.
class SignInLimit {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int kTriesOfName = 5;
    static constexpr std::chrono::seconds kAnotherOfName{60};
    static constexpr int kTriesOfAll = 30;
    static constexpr std::chrono::seconds kAnotherOfAll{2};

    explicit SignInLimit(std::function<Clock::time_point()> now = Clock::now) : now_(std::move(now))
    {
    }

    /// Takes a try for a name. @return false when there is none left: the password must not be
    /// looked at then
    [[nodiscard]] bool take(const std::string& userName);

    /// Gives back a try, which succeeded.
    void giveBack(const std::string& userName);

private:
    /// Tries that fill up with time.
    struct Tries {
        double left = 0;
        Clock::time_point lookedAt;
    };
    static void fill(Tries& tries, int most, std::chrono::seconds another, Clock::time_point now);
    void forgetFull(Clock::time_point now);

    const std::function<Clock::time_point()> now_;
    std::mutex mutex_;
    Tries ofAll_{kTriesOfAll, now_()};
    std::map<std::string, Tries> ofNames_; ///< that have not all; by digest, as names may be long
};

} // namespace stowline::devserver
