// The accounts of the service, in SQLite.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include "devserver/StatementCache.h"
#include "stowline/platform/values/Value.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

/// What the service tells of an account.
struct AccountDetails {
    std::int64_t number = 0; ///< the same for the account's life
    std::string firstName;
    std::string email;
    std::string status;
    std::string opened; ///< "2026-01-31 23:59:59", universal time
};

/// What came of opening an account or changing its password.
enum class AccountOutcome {
    success,
    invalidUserName,
    invalidPassword, ///< an empty one
    invalidEmailAddress,
    userNameAlreadyExists,
    invalidUserNameOrPassword,
};

/// As the service's answers tell it ("InvalidUserName").
[[nodiscard]] std::string codeOf(AccountOutcome outcome);

/// Passwords and secret answers are kept as salted hashes only. Any thread.
class Accounts {
public:
    /// Opens or makes the database. Throws SQLite::Exception when it cannot be used.
    explicit Accounts(const std::filesystem::path& databaseFile);

    /// Opens an account.
    /// @return anything but invalidUserNameOrPassword
    [[nodiscard]] AccountOutcome open(const NewAccount& account);

    /// The account's status ("Active") when user name and password are right; else absent.
    /// A password that was right once is known again at once until it is changed or the service
    /// ends.
    [[nodiscard]] std::optional<std::string> signIn(const std::string& userName,
                                                    const std::string& password);

    /// Gives an account another password.
    /// @return success, invalidUserNameOrPassword or invalidPassword (an empty new one)
    [[nodiscard]] AccountOutcome changePassword(const std::string& userName,
                                                const std::string& password,
                                                const std::string& newPassword);

    /// A text that is another once the account has another password, and tells nothing of it.
    /// Absent when there is no such account.
    [[nodiscard]] std::optional<std::string> passwordMark(const std::string& userName);

    /// The user names of all accounts, in their order.
    [[nodiscard]] std::vector<std::string> names();

    /// Absent when there is no such account.
    [[nodiscard]] std::optional<AccountDetails> details(const std::string& userName);

private:
    [[nodiscard]] bool isRight(const std::string& userName, const std::string& password);
    [[nodiscard]] std::optional<std::string> storedPasswordOf(const std::string& userName);

    [[nodiscard]] bool isKnown(const std::string& userName, const std::string& digest);

    std::mutex hashing_; ///< one password at a time: each takes 16 MiB; before the other mutex
    std::mutex mutex_;
    SQLite::Database database_;
    StatementCache statements_{database_};
    const Data sessionKey_;                       ///< of this run
    std::map<std::string, std::string> verified_; ///< keyed digests of right passwords, by user
};

} // namespace stowline::devserver
