// Signing in, for commands that work on an account.
#pragma once

#include "cli/ExitStatus.h"
#include "cli/Result.h"
#include "cli/Secret.h"
#include "stowline/platform/Error.h"

#include <initializer_list>
#include <string>

namespace stowline::cli {

/// A signed-in account.
struct Session {
    std::string username;
    std::string password;
    std::string server; ///< the account's backup server
};

/// The options of every command that signs in.
class SessionOptions {
public:
    void declare(CLI::App& command);

    [[nodiscard]] const std::string& username() const { return username_; }

    /// Checks the settings for the web methods, reads the password and signs in. Says what goes
    /// wrong.
    [[nodiscard]] Result<Session> open(std::initializer_list<const char*> webMethods) const;

private:
    std::string username_;
    SecretOptions password_;
};

/// Ends the output for a call that the service refused or that failed; `what` leads the sentence
/// ("The folder cannot be listed").
[[nodiscard]] ExitStatus refusal(const std::string& what, const std::optional<Error>& error);

} // namespace stowline::cli
