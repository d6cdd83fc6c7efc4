#include "stowline/logging/DDASLLogger.h"

#include "stowline/platform/desktop/SystemLog.h"

namespace stowline {

namespace {

using platform::SystemLogPriority;

SystemLogPriority priorityOf(std::int32_t level)
{
    switch (level) {
    case 1:
        return SystemLogPriority::critical;
    case 2:
        return SystemLogPriority::error;
    case 3:
        return SystemLogPriority::warning;
    default:
        return SystemLogPriority::notice;
    }
}

} // namespace

std::shared_ptr<DDASLLogger> DDASLLogger::sharedInstance()
{
    static auto& instance = *new std::shared_ptr<DDASLLogger>(new DDASLLogger);
    return instance;
}

std::shared_ptr<DDASLLogger> DDASLLogger::init()
{
    (void)sharedInstance();
    return nullptr;
}

void DDASLLogger::logMessage(const DDLogMessage& message)
{
    if (const auto text = formattedText(message))
        platform::systemLog(priorityOf(message.logLevel), text->view());
}

} // namespace stowline
