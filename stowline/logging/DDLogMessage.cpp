#include "stowline/logging/DDLogMessage.h"

#include "stowline/platform/threads/SerialQueue.h"
#include "stowline/platform/threads/ThreadNumber.h"
#include "stowline/platform/values/Format.h"

namespace stowline {

namespace {

std::optional<std::string> currentQueueLabel()
{
    const char* label = platform::SerialQueue::currentLabel();
    return label ? std::optional<std::string>(label) : std::nullopt;
}

} // namespace

DDLogMessage::DDLogMessage(std::string message, std::int32_t level, std::int32_t flag,
                           std::int32_t context, const char* sourceFile, const char* operation,
                           std::int32_t line)
    : logMsg(std::move(message)), logLevel(level), logFlag(flag), logContext(context),
      file(sourceFile), function(operation), lineNumber(line), timestamp(platform::currentDate()),
      machThreadID(platform::currentThreadNumber()), queueLabel(currentQueueLabel())
{
}

const std::string& DDLogMessage::threadID() const
{
    std::call_once(threadIDMade_, [this] { threadID_ = platform::formatText("%x", machThreadID); });
    return threadID_;
}

std::string_view DDLogMessage::fileName() const
{
    const std::string_view path(file ? file : "");
    const auto slash = path.rfind('/');
    const auto begin = slash == std::string_view::npos ? 0 : slash + 1;
    const auto dot = path.rfind('.');
    const auto end = dot == std::string_view::npos || dot < begin ? path.size() : dot;
    return path.substr(begin, end - begin);
}

std::optional<std::string_view> DDLogMessage::methodName() const
{
    return function ? std::optional<std::string_view>(function) : std::nullopt;
}

} // namespace stowline
