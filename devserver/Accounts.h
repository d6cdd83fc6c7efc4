// The accounts of the service, in SQLite.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace stowline::devserver {

struct NewAccount {
    std::string userName;
    std::string password;
    std::string firstName;
    std::string email;
    std::string customerType;
    bool isSealGuard = false;
    std::string secretQuestion;
    std::string secretAnswer;
    std::string referralCode;
};

/// Passwords and secret answers are kept as salted hashes only. Any thread.
class Accounts {
public:
    /// Opens or makes the database. Throws SQLite::Exception when it cannot be used.
    explicit Accounts(const std::filesystem::path& databaseFile);

    /// Opens an account.
    /// @return "Success", "InvalidUserName", "InvalidPassword", "InvalidEmailAddress" or
    ///         "UserNameAlreadyExists".
    [[nodiscard]] std::string open(const NewAccount& account);

    /// The account's status ("Active") when user name and password are right; else absent.
    [[nodiscard]] std::optional<std::string> signIn(const std::string& userName,
                                                    const std::string& password);

private:
    [[nodiscard]] std::optional<std::string> storedPasswordOf(const std::string& userName);

    std::mutex mutex_;
    SQLite::Database database_;
};

} // namespace stowline::devserver
