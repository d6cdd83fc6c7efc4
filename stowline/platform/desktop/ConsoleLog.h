// The machine's own log, for the few lines that must not depend on the log dispatcher.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Writes a line to the system log (syslog, facility user, priority notice). The text is never
/// taken as a format; of its control characters line feeds and tabs stay, the others become "?".
/// Any thread.
void consoleLog(std::string_view text);

/// Hands every console line to a function instead of the system log; an empty function restores
/// the system log. For tests. The function may be called from any thread, one call at a time.
void setConsoleLogSink(std::function<void(std::string_view)> sink);

} // namespace stowline::platform
#pragma GCC visibility pop
