// Whose backup it is, and where it goes.
#pragma once

#include <string>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// A signed-in account, and what a machine calls itself there. A plain value; the password is kept
/// in memory only.
struct Account {
    std::string username;
    std::string password;
    std::string server;     ///< the account's backup server, as the sign-in names it
    std::string systemName; ///< this machine's name on the service
};

/// Whose chain of records it is. A host name is not an identity: machines are reinstalled and
/// renamed.
struct ChainIdentity {
    std::string machine; ///< General::hardwareId()
    std::string user;    ///< name of the local user
    std::string profile = "default";
    bool operator==(const ChainIdentity&) const = default;
};

/// That of this machine and the user that this process acts as ("uid" and the number where the user
/// has no name), with the default profile.
[[nodiscard]] ChainIdentity identityOfThisUser();

} // namespace stowline::backup
#pragma GCC visibility pop
