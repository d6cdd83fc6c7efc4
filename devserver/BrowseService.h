// The web methods that list and search what is stored.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/ServiceMethod.h"

namespace stowline::devserver {

/// The service at "/BrowseService.asmx". The context must outlive it.
[[nodiscard]] Service browseService(const AccountServiceContext& context);

} // namespace stowline::devserver
