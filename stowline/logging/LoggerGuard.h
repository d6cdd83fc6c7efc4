// What loggers, formatters and managers of files throw ends here.
#pragma once

#include "stowline/platform/desktop/ConsoleLog.h"

#include <exception>
#include <new>
#include <string>

namespace stowline {

/// Does what can be left undone when there is no memory.
template <class Work> void whereMemoryAllows(Work&& work) noexcept
{
    try {
        work();
    } catch (const std::bad_alloc&) { // NOLINT: a line is lost
    }
}

/// Runs something of a logger's; what it throws is told to the machine's log.
template <class Work> void guarded(const std::string& loggerName, Work&& work) noexcept
{
    whereMemoryAllows([&] {
        try {
            work();
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& fault) {
            platform::consoleLog("The logger " + loggerName + " failed: " + fault.what());
        } catch (...) {
            platform::consoleLog("The logger " + loggerName + " failed.");
        }
    });
}

} // namespace stowline
