// The page at "/": what the service is doing, for people.
#pragma once

#include "devserver/Deletions.h"
#include "devserver/Journal.h"
#include "devserver/Storage.h"

#include <string>

namespace stowline::devserver {

/// Machines, their last backups, events, and deletions. Plain HTML that reads well without script;
/// a few lines of it fetch the page again every two seconds. Everything that came from outside is
/// escaped. Any thread.
[[nodiscard]] std::string statusPage(Storage& storage, Journal& journal, Deletions& deletions);

} // namespace stowline::devserver
