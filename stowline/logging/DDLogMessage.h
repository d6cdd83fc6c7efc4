// One line on its way to the loggers.
#pragma once

#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// A log call as the loggers see it, made on the calling thread. Immutable; any thread may read it.
///
/// The names derived from it (threadID, fileName, methodName) are made when first asked for and
/// kept, because most loggers never ask.
class DDLogMessage {
public:
    /// Takes timestamp, thread and queue label from the calling thread.
    /// @param file     source path; kept by reference, so it must live as long as the program
    /// @param function operation name, likewise; may be null
    DDLogMessage(std::string logMsg, std::int32_t logLevel, std::int32_t logFlag,
                 std::int32_t logContext, const char* file, const char* function,
                 std::int32_t lineNumber);

    const std::string logMsg;
    const std::int32_t logLevel;
    const std::int32_t logFlag;
    const std::int32_t logContext;
    const char* const file;
    const char* const function;
    const std::int32_t lineNumber;
    const Date timestamp;
    const std::uint32_t machThreadID; ///< the kernel's number of the calling thread
    /// Label of the serial queue current at the call; absent when there was none or it has none.
    const std::optional<std::string> queueLabel;

    /// machThreadID in lower-case hexadecimal, without prefix and leading zeros.
    [[nodiscard]] const std::string& threadID() const;

    /// Last path component of file without its extension; refers to the bytes of file.
    [[nodiscard]] std::string_view fileName() const;

    /// function as text; absent when it is null.
    [[nodiscard]] std::optional<std::string_view> methodName() const;

private:
    mutable std::once_flag threadIDMade_;
    mutable std::string threadID_;
};

} // namespace stowline
#pragma GCC visibility pop
