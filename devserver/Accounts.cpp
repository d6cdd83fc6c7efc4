#include "devserver/Accounts.h"

#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/Sha256.h"

#include <sqlite3.h>

namespace stowline::devserver {

namespace {

constexpr const char* kSchema = R"sql(
    PRAGMA journal_mode = WAL;
    CREATE TABLE IF NOT EXISTS accounts (
        user_name       TEXT PRIMARY KEY,
        password        TEXT NOT NULL,
        first_name      TEXT NOT NULL,
        email           TEXT NOT NULL,
        customer_type   TEXT NOT NULL,
        seal_guard      INTEGER NOT NULL,
        secret_question TEXT NOT NULL,
        secret_answer   TEXT NOT NULL,
        referral_code   TEXT NOT NULL,
        status          TEXT NOT NULL DEFAULT 'Active',
        opened          TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP
    ) STRICT;
)sql";

constexpr int kBusyMilliseconds = 5000;
constexpr std::size_t kSessionKeyBytes = 32;

bool isEmailAddress(const std::string& text)
{
    const auto at = text.find('@');
    return at != std::string::npos && at > 0 && at + 1 < text.size() &&
           text.find(' ') == std::string::npos;
}

} // namespace

Accounts::Accounts(const std::filesystem::path& databaseFile)
    : database_(databaseFile.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                kBusyMilliseconds),
      sessionKey_(platform::randomBytes(kSessionKeyBytes))
{
    database_.exec(kSchema);
}

std::string codeOf(AccountOutcome outcome)
{
    switch (outcome) {
    case AccountOutcome::success:
        return "Success";
    case AccountOutcome::invalidUserName:
        return "InvalidUserName";
    case AccountOutcome::invalidPassword:
        return "InvalidPassword";
    case AccountOutcome::invalidEmailAddress:
        return "InvalidEmailAddress";
    case AccountOutcome::userNameAlreadyExists:
        return "UserNameAlreadyExists";
    case AccountOutcome::invalidUserNameOrPassword:
        return "InvalidUserNameOrPassword";
    }
    return "";
}

AccountOutcome Accounts::open(const NewAccount& account)
{
    if (account.userName.empty())
        return AccountOutcome::invalidUserName;
    if (account.password.empty())
        return AccountOutcome::invalidPassword;
    if (!isEmailAddress(account.email))
        return AccountOutcome::invalidEmailAddress;
    const std::string password = platform::storedPassword(account.password);
    const std::string answer = platform::storedPassword(account.secretAnswer);

    const std::lock_guard lock(mutex_);
    SQLite::Statement insert(database_,
                             "INSERT INTO accounts (user_name, password, first_name, email,"
                             " customer_type, seal_guard, secret_question, secret_answer,"
                             " referral_code) VALUES (?,?,?,?,?,?,?,?,?)"
                             " ON CONFLICT DO NOTHING");
    insert.bind(1, account.userName);
    insert.bind(2, password);
    insert.bind(3, account.firstName);
    insert.bind(4, account.email);
    insert.bind(5, account.customerType);
    insert.bind(6, account.isSealGuard ? 1 : 0);
    insert.bind(7, account.secretQuestion);
    insert.bind(8, answer);
    insert.bind(9, account.referralCode);
    return insert.exec() == 1 ? AccountOutcome::success : AccountOutcome::userNameAlreadyExists;
}

std::optional<std::string> Accounts::storedPasswordOf(const std::string& userName)
{
    const std::lock_guard lock(mutex_);
    KeptStatement query(statements_, "SELECT password FROM accounts WHERE user_name = ?");
    query->bind(1, userName);
    return query->executeStep() ? std::optional(query->getColumn(0).getString()) : std::nullopt;
}

bool Accounts::isRight(const std::string& userName, const std::string& password)
{
    // Hashing takes its time, so it is done outside the lock, and for unknown users too.
    static const std::string nobody = platform::storedPassword("");
    const auto stored = storedPasswordOf(userName);
    // With what is stored, so that nothing is known of a password that was changed.
    const std::string digest = platform::keyedDigest(
        userName + '\0' + password + '\0' + stored.value_or(nobody), sessionKey_);
    if (isKnown(userName, digest))
        return true;
    const std::lock_guard hashing(hashing_);
    if (isKnown(userName, digest)) // somebody else asked the same
        return true;
    const bool matches = platform::passwordMatches(password, stored.value_or(nobody));
    if (!stored || !matches)
        return false;
    const std::lock_guard lock(mutex_);
    verified_.insert_or_assign(userName, digest);
    return true;
}

bool Accounts::isKnown(const std::string& userName, const std::string& digest)
{
    const std::lock_guard lock(mutex_);
    const auto known = verified_.find(userName);
    return known != verified_.end() && known->second == digest;
}

AccountOutcome Accounts::changePassword(const std::string& userName, const std::string& password,
                                        const std::string& newPassword)
{
    if (!isRight(userName, password))
        return AccountOutcome::invalidUserNameOrPassword;
    if (newPassword.empty())
        return AccountOutcome::invalidPassword;
    const std::string stored = platform::storedPassword(newPassword);
    const std::lock_guard lock(mutex_);
    SQLite::Statement update(database_, "UPDATE accounts SET password = ? WHERE user_name = ?");
    update.bind(1, stored);
    update.bind(2, userName);
    update.exec();
    return AccountOutcome::success;
}

std::optional<std::string> Accounts::passwordMark(const std::string& userName)
{
    const auto stored = storedPasswordOf(userName);
    return stored ? std::optional(platform::Sha256::of(*stored)) : std::nullopt;
}

std::vector<std::string> Accounts::names()
{
    const std::lock_guard lock(mutex_);
    SQLite::Statement query(database_, "SELECT user_name FROM accounts ORDER BY user_name");
    std::vector<std::string> found;
    while (query.executeStep())
        found.push_back(query.getColumn(0).getString());
    return found;
}

std::optional<std::string> Accounts::signIn(const std::string& userName,
                                            const std::string& password)
{
    if (!isRight(userName, password))
        return std::nullopt;
    const auto found = details(userName);
    return found ? std::optional(found->status) : std::nullopt;
}

std::optional<AccountDetails> Accounts::details(const std::string& userName)
{
    const std::lock_guard lock(mutex_);
    KeptStatement query(statements_, "SELECT rowid, first_name, email, status, opened"
                                     " FROM accounts WHERE user_name = ?");
    query->bind(1, userName);
    if (!query->executeStep())
        return std::nullopt;
    return AccountDetails{query->getColumn(0).getInt64(), query->getColumn(1).getString(),
                          query->getColumn(2).getString(), query->getColumn(3).getString(),
                          query->getColumn(4).getString()};
}

} // namespace stowline::devserver
