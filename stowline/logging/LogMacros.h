// The log calls of the system. Macros, because they note the place they stand at and must not
// evaluate their arguments when the level lets nothing through.
#pragma once

#include "stowline/logging/DDLog.h"

/// Queued; returns at once unless 1000 messages wait.
#define STOWLINE_LOG_INFO(...) STOWLINE_LOG_INFO_OF(__FILE__, __VA_ARGS__)

/// Written by every logger before it returns.
#define STOWLINE_LOG_ERROR(...) STOWLINE_LOG_ERROR_OF(__FILE__, __VA_ARGS__)

/// The same for a class whose operations stand in several files: names the class's own file, by
/// which readers of the log know it.
#define STOWLINE_LOG_INFO_OF(file, ...)                                                            \
    STOWLINE_LOG_WITH(true, ::stowline::kLogFlagInfo, file, __VA_ARGS__)
#define STOWLINE_LOG_ERROR_OF(file, ...)                                                           \
    STOWLINE_LOG_WITH(false, ::stowline::kLogFlagError, file, __VA_ARGS__)

#define STOWLINE_LOG_WITH(asynchronous, flag, file, ...)                                           \
    do {                                                                                           \
        if ((::stowline::kSystemLogLevel & (flag)) != 0)                                           \
            ::stowline::DDLog::log((asynchronous), ::stowline::kSystemLogLevel, (flag), 0, file,   \
                                   __func__, __LINE__, __VA_ARGS__);                               \
    } while (false)
