// Leave to read content, for a time: what a signed-in user is given and part requests carry.
#pragma once

#include "devserver/Accounts.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>

namespace stowline::devserver {

/// Tickets are random texts, kept as digests only, over restarts too. One is good for one account,
/// until its time is over or the account has another password. Any thread.
class Tickets {
public:
    using Clock = std::chrono::system_clock;

    /// Opens or makes the database. Throws SQLite::Exception when it cannot be used. The accounts
    /// must outlive the tickets.
    Tickets(const std::filesystem::path& databaseFile, Accounts& accounts,
            std::chrono::seconds lifetime, std::function<Clock::time_point()> now = Clock::now);

    /// A new ticket for an account whose password was just found right; forgets those that are
    /// over.
    [[nodiscard]] std::string give(const std::string& userName);

    [[nodiscard]] bool isGood(const std::string& ticket, const std::string& userName);

    [[nodiscard]] std::chrono::seconds lifetime() const { return lifetime_; }

private:
    [[nodiscard]] std::int64_t secondsNow() const;

    Accounts& accounts_;
    const std::chrono::seconds lifetime_;
    const std::function<Clock::time_point()> now_;
    std::mutex mutex_;
    SQLite::Database database_;
};

} // namespace stowline::devserver
