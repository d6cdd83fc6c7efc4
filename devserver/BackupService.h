// The web methods of a backup server: upload paths, registration, restore, deletion of versions.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/ServiceMethod.h"

namespace stowline::devserver {

/// The service at "/BackupService.asmx". The context must outlive it.
[[nodiscard]] Service backupService(const AccountServiceContext& context);

} // namespace stowline::devserver
