#include "stowline/platform/desktop/ConsoleLog.h"

#include "stowline/platform/desktop/SystemLog.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <mutex>

namespace stowline::platform {

namespace {

struct ConsoleSink {
    ForkSafeMutex mutex;
    std::function<void(std::string_view)> function;
};

ConsoleSink& consoleSink()
{
    static auto& sink = *new ConsoleSink; // never destroyed: late threads may still log
    return sink;
}

} // namespace

void consoleLog(std::string_view text)
{
    const std::string shown = withoutControls(text);
    ConsoleSink& sink = consoleSink();
    const std::lock_guard lock(sink.mutex);
    if (sink.function)
        sink.function(shown);
    else
        systemLog(SystemLogPriority::notice, shown);
}

void setConsoleLogSink(std::function<void(std::string_view)> function)
{
    ConsoleSink& sink = consoleSink();
    const std::lock_guard lock(sink.mutex);
    sink.function = std::move(function);
}

} // namespace stowline::platform
