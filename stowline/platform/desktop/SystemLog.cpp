#include "stowline/platform/desktop/SystemLog.h"

#include "stowline/platform/text/Text.h"

#include <syslog.h>

namespace stowline::platform {

void systemLog(SystemLogPriority priority, std::string_view text)
{
    ::syslog(LOG_USER | static_cast<int>(priority), "%s", withoutControls(text).c_str());
}

} // namespace stowline::platform
