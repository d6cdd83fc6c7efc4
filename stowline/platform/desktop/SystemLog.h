// The machine's log service, with a priority.
#pragma once

#include <string_view>

namespace stowline::platform {

enum class SystemLogPriority { critical = 2, error = 3, warning = 4, notice = 5 };

/// Sends a text to the system log (syslog(3), facility user). The text is never taken as a format;
/// control characters, which could forge lines, are written as "?". Any thread.
void systemLog(SystemLogPriority priority, std::string_view text);

} // namespace stowline::platform
