// What the tests of the log have in common.
#pragma once

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"

#include <memory>

namespace stowline {

inline void logText(const char* text, bool asynchronous = true)
{
    DDLog::log(asynchronous, kSystemLogLevel, kLogFlagInfo, 0, "dir/File.cpp", "function", 7, "%@",
               text);
}

inline std::shared_ptr<CountingLogger>
addedLogger(CountingLogger::Keep keep = CountingLogger::Keep::texts)
{
    auto logger = std::make_shared<CountingLogger>(keep);
    DDLog::addLogger(logger);
    return logger;
}

} // namespace stowline
