// The web methods on what was deleted and is still kept.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/ServiceMethod.h"

#include <vector>

namespace stowline::devserver {

/// "GetDeletedFiles" and "UndeleteFiles". There is none that ends the days of grace. The context
/// must outlive them.
[[nodiscard]] std::vector<ServiceMethod> graceMethods(const AccountServiceContext& context);

} // namespace stowline::devserver
