// The report of a backup without any markup, and as a whole message with both.
#pragma once

#include "cli/shared/RunFigures.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// The report as plain text in UTF-8: all that the HTML says.
[[nodiscard]] std::string reportText(const RunFigures& figures);

/// The report as a message that mail programs send and open (RFC 5322, RFC 2046 section 5.1.4): the
/// text, and beside it the HTML for who can show it.
/// @param to empty: the message names no recipient, nor a sender
/// @return absent without the template of the HTML
[[nodiscard]] std::optional<std::string>
reportMessage(const std::string& to, const std::string& from, const RunFigures& figures);

} // namespace stowline::cli
