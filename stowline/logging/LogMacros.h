// The two log calls of the system. Macros, because they note the place they stand at and must not
// evaluate their arguments when the level lets nothing through.
#pragma once

#include "stowline/logging/DDLog.h"

/// Queued; returns at once unless 1000 messages wait.
#define STOWLINE_LOG_INFO(...) STOWLINE_LOG_WITH(true, ::stowline::kLogFlagInfo, __VA_ARGS__)

/// Written by every logger before it returns.
#define STOWLINE_LOG_ERROR(...) STOWLINE_LOG_WITH(false, ::stowline::kLogFlagError, __VA_ARGS__)

#define STOWLINE_LOG_WITH(asynchronous, flag, ...)                                                 \
    do {                                                                                           \
        if ((::stowline::kSystemLogLevel & (flag)) != 0)                                           \
            ::stowline::DDLog::log((asynchronous), ::stowline::kSystemLogLevel, (flag), 0,         \
                                   __FILE__, __func__, __LINE__, __VA_ARGS__);                     \
    } while (false)
