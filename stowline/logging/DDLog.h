// The logging hub: one call in, every registered logger out.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"
#include "stowline/logging/DDLogMessage.h"
#include "stowline/platform/values/Format.h"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <typeindex>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

inline constexpr std::int32_t kLogFlagError = 1;
inline constexpr std::int32_t kLogFlagWarning = 2;
inline constexpr std::int32_t kLogFlagInfo = 4;
inline constexpr std::int32_t kLogFlagVerbose = 8;

/// The level at which the system logs: the union of the flags that pass.
inline constexpr std::int32_t kSystemLogLevel = kLogFlagError | kLogFlagWarning | kLogFlagInfo;

/// A class with a log level of its own.
template <class T>
concept HasLogLevel = requires(std::int32_t level)
{
    {
        T::ddLogLevel()
        } -> std::convertible_to<std::int32_t>;
    T::ddSetLogLevel(level);
};

/// Hands messages to the registered loggers on the serial queue "com.Stowline.logging", each logger
/// on its own serial queue: all in parallel for one message, and in the order logged for each
/// logger.
///
/// At most 1000 messages wait; then the callers wait, until there are fewer, and none is lost. A
/// logger that throws loses its own line only. A call from inside a logger, and from whatever else
/// runs on a logger's queue, never waits: it is queued. Loggers are flushed
/// when the application tells that it will terminate and when the process exits. In the child of a
/// fork() logging works, with the loggers of the parent, also those whose addition was waiting;
/// lines that were waiting are the parent's. Where no thread can be had callers deliver their own
/// lines.
///
/// Every operation may be called from any thread.
class DDLog {
public:
    DDLog() = delete;

    /// Formats a text and passes it on as a message. Nothing is filtered here: callers test
    /// `level & flag` first, as the macros of LogMacros.h do.
    /// @param asynchronous false waits until every logger has handled the message
    /// @param file, function kept by reference
    /// @param format absent, or null, logs nothing; see platform::formatWithArguments
    template <class... Arguments>
    static void log(bool asynchronous, std::int32_t level, std::int32_t flag, std::int32_t context,
                    const char* file, const char* function, std::int32_t line,
                    std::optional<std::string_view> format, const Arguments&... arguments)
    {
        try {
            const std::initializer_list<platform::FormatArgument> list{
                platform::FormatArgument(arguments)...};
            if (format)
                logFormatted(asynchronous, level, flag, context, file, function, line, *format,
                             std::span(list.begin(), list.size()));
        } catch (const std::bad_alloc&) { // NOLINT: the line is lost
        }
    }

    template <class... Arguments>
    static void log(bool asynchronous, std::int32_t level, std::int32_t flag, std::int32_t context,
                    const char* file, const char* function, std::int32_t line, const char* format,
                    const Arguments&... arguments)
    {
        if (format)
            log(asynchronous, level, flag, context, file, function, line,
                std::optional<std::string_view>(format), arguments...);
    }

    /// Waits while 1000 messages are queued, then queues this one.
    static void queueLogMessage(std::shared_ptr<const DDLogMessage> message, bool asynchronously);

    /// Changes of the list take effect in turn with the messages, without waiting: a logger that is
    /// removed may still be busy. An absent logger changes nothing; removing finds the logger by
    /// identity.
    static void addLogger(std::shared_ptr<DDLogger> logger);
    static void removeLogger(std::shared_ptr<DDLogger> logger);
    static void removeAllLoggers();

    /// Returns when everything logged before is handled and every logger has flushed. From inside a
    /// logger it does nothing, because it would wait for itself.
    static void flushLog();

    /// Whether the calling thread is inside of a logger's operation, or of a task on the queue of a
    /// logger or of the log. Who is must not wait for either queue: it would wait for itself.
    [[nodiscard]] static bool isInsideLogger();

    /// For loggers that must coordinate with the hub.
    [[nodiscard]] static platform::SerialQueue& loggingQueue();

    /// Makes a class known with its two operations ddLogLevel() and ddSetLogLevel(level). Once a
    /// class, usually by a static `const DDLog::ClassRegistration<Thing> thing{"Thing"};`.
    template <HasLogLevel T> static void registerClass(std::string name)
    {
        registerClass({typeid(T), std::move(name), [] { return std::int32_t(T::ddLogLevel()); },
                       [](std::int32_t level) { T::ddSetLogLevel(level); }});
    }
    template <HasLogLevel T> struct ClassRegistration {
        explicit ClassRegistration(std::string name) { registerClass<T>(std::move(name)); }
    };

    /// Registered classes, in order of registration, and their names.
    [[nodiscard]] static std::vector<std::type_index> registeredClasses();
    [[nodiscard]] static std::vector<std::string> registeredClassNames();
    template <class T> [[nodiscard]] static bool isRegisteredClass()
    {
        return isRegisteredClass(typeid(T));
    }
    [[nodiscard]] static bool isRegisteredClass(std::type_index type);

    /// The level of a class; -1 for one that is not registered.
    template <class T> [[nodiscard]] static std::int32_t logLevelForClass()
    {
        return logLevelForClass(typeid(T));
    }
    [[nodiscard]] static std::int32_t logLevelForClass(std::type_index type);
    [[nodiscard]] static std::int32_t logLevelForClassWithName(std::string_view name);

    /// Sets the level of a registered class; does nothing for others.
    template <class T> static void setLogLevelForClass(std::int32_t level)
    {
        setLogLevelForClass(level, typeid(T));
    }
    static void setLogLevelForClass(std::int32_t level, std::type_index type);
    static void setLogLevelForClassWithName(std::int32_t level, std::string_view name);

private:
    struct RegisteredClass {
        std::type_index type;
        std::string name;
        std::int32_t (*level)();
        void (*setLevel)(std::int32_t);
    };
    class ClassRegistry;
    class Hub;

    static void logFormatted(bool asynchronous, std::int32_t level, std::int32_t flag,
                             std::int32_t context, const char* file, const char* function,
                             std::int32_t line, std::string_view format,
                             std::span<const platform::FormatArgument> arguments);
    static void registerClass(RegisteredClass registered);
};

} // namespace stowline
#pragma GCC visibility pop
