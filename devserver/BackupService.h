// The web methods of a backup server: upload paths, registration, restore, deletion.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/Deletions.h"
#include "devserver/ServiceMethod.h"

namespace stowline::devserver {

/// The service at "/BackupService.asmx". What it is given must outlive it.
[[nodiscard]] Service backupService(const AccountServiceContext& context, Deletions& deletions);

} // namespace stowline::devserver
