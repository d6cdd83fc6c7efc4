// Signing in, for commands that work on an account.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/ExitStatus.h"
#include "cli/shared/Result.h"
#include "cli/shared/Secret.h"
#include "stowline/platform/values/Error.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace stowline::cli {

/// A signed-in account.
struct Session {
    std::string username;
    std::string password;
    std::string server; ///< the account's backup server
};

/// -u and --username, which may come from STOWLINE_USERNAME.
void declareUsername(const Command& command, std::string& username);

/// Whether the answer to a sign-in says yes. Absent when it says neither yes nor no: it is not the
/// answer of a service that signs in.
[[nodiscard]] std::optional<bool> saysSignedIn(const Dictionary& answer);

/// Signs in. Says what goes wrong.
/// @param atMostSeconds how long to wait for the answer, and for a service that cannot be reached
///        (of that four at most); absent: as long as any call may take, once
/// @return what the service tells of the account
[[nodiscard]] Result<Dictionary> signIn(const std::string& username, const std::string& password,
                                        std::optional<double> atMostSeconds = std::nullopt);

/// The options of every command that signs in.
class SessionOptions {
public:
    void declare(const Command& command);

    [[nodiscard]] const std::string& username() const { return username_; }

    /// Reads the password. Says what goes wrong.
    [[nodiscard]] std::optional<std::string> readPassword() const;

    /// Checks the settings for the web methods, reads the password and signs in. Says what goes
    /// wrong.
    /// @param atMostSeconds as signIn()
    [[nodiscard]] Result<Session> open(std::initializer_list<const char*> webMethods,
                                       std::optional<double> atMostSeconds = std::nullopt) const;

private:
    std::string username_;
    SecretOptions password_;
};

/// Ends the output for a call that the service refused or that failed; `what` leads the sentence
/// ("The folder cannot be listed").
[[nodiscard]] ExitStatus refusal(const std::string& what, const std::optional<Error>& error);

} // namespace stowline::cli
