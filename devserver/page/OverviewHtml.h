// The overview as HTML.
#pragma once

#include "devserver/page/Overview.h"

#include <string>

namespace stowline::devserver {

/// The sections of the page, each with a heading and an identifier, in the order of the list of
/// sections that comes first. The same overview gives the same bytes, but for what it says of now.
[[nodiscard]] std::string overviewHtml(const Overview& overview);

} // namespace stowline::devserver
