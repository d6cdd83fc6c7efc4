// The web methods on accounts: sign-in, sign-up, string encryption, details.
#pragma once

#include "devserver/Accounts.h"
#include "devserver/ServiceMethod.h"
#include "devserver/Storage.h"
#include "devserver/Tickets.h"

#include <filesystem>
#include <string>

namespace stowline::devserver {

/// What the methods work on.
struct AccountServiceContext {
    Accounts& accounts;
    Storage& storage;
    Data encryptionKey;           ///< 32 bytes
    std::string backupServerName; ///< host and port that signed-in clients are sent to
    Tickets* tickets = nullptr;   ///< absent: none are given
};

/// The service at "/AccountService.asmx". The context must outlive it.
[[nodiscard]] Service accountService(const AccountServiceContext& context);

/// The service's encryption key, made on first use and kept in the file, which only its owner can
/// read. Throws std::runtime_error when it can be neither read nor written.
[[nodiscard]] Data encryptionKeyIn(const std::filesystem::path& file);

} // namespace stowline::devserver
