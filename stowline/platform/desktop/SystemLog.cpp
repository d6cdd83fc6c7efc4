#include "stowline/platform/desktop/SystemLog.h"

#include "stowline/platform/text/Text.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <syslog.h>

namespace stowline::platform {

void systemLog(SystemLogPriority priority, std::string_view text)
{
    const std::string shown = withoutControls(text);
    const LibraryCall call(LibraryCall::To::systemLog);
    ::syslog(LOG_USER | static_cast<int>(priority), "%s", shown.c_str());
}

} // namespace stowline::platform
