// Who is signed in to the page.
#pragma once

#include "devserver/Accounts.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace stowline::devserver {

/// A moment by both clocks: one that is set back lengthens no session, nor does one that stands
/// still while the machine sleeps.
struct SessionMoment {
    std::chrono::steady_clock::time_point passed;
    std::chrono::system_clock::time_point clock;

    [[nodiscard]] static SessionMoment now()
    {
        return {std::chrono::steady_clock::now(), std::chrono::system_clock::now()};
    }
};

/// A session begins with a right password and is known by a random text of 128 bits, of which only
/// the digest is kept, in memory. It ends after an hour, when it is ended, when its account has
/// another password, when the service ends, and when its account has begun sixteen more or all
/// accounts a thousand more. Any thread.
class Sessions {
public:
    static constexpr std::chrono::seconds kLifetime = std::chrono::hours(1);
    static constexpr std::size_t kMostOfAccount = 16;
    static constexpr std::size_t kMost = 1000;

    /// The accounts must outlive the sessions.
    explicit Sessions(Accounts& accounts, std::function<SessionMoment()> now = SessionMoment::now);

    /// Begins a session of an account whose password was just found right.
    /// @return its text, 32 hexadecimal digits
    [[nodiscard]] std::string begin(const std::string& userName);

    /// Whose session it is; absent when there is none of this text, or it is over.
    [[nodiscard]] std::optional<std::string> userOf(const std::string& text);

    void end(const std::string& text);

private:
    struct Session {
        std::string userName;
        std::string passwordMark;
        SessionMoment begun;
        std::uint64_t number = 0; ///< later ones are higher
    };
    [[nodiscard]] bool isOver(const Session& session, const SessionMoment& now) const;
    void makeRoom(const std::string& userName);

    Accounts& accounts_;
    const std::function<SessionMoment()> now_;
    std::mutex mutex_;
    std::map<std::string, Session> sessions_; ///< by digest
    std::uint64_t lastNumber_ = 0;
};

} // namespace stowline::devserver
