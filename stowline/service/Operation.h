// The frame of every operation of the broker: its name in the log, how it fails, how it ends.
#pragma once

#include "stowline/logging/DDLog.h"
#include "stowline/platform/values/Error.h"

#include <string_view>
#include <type_traits>

namespace stowline {

/// The source file that every line of the broker carries.
inline constexpr const char* kBrokerSource = "WebServiceBroker";

/// One operation of WebServiceBroker while it runs. For the thread that runs it. Operations nest:
/// what one of them fails of, the ones around it have failed of too, and the first reason counts.
class Operation {
public:
    /// @param name the whole name with those of its parameters; must live as long as the program
    /// @param error the caller's slot; may be null
    Operation(const char* name, ErrorSlot error) noexcept;
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    [[nodiscard]] const char* name() const noexcept { return name_; }

    /// Fails with an error that the caller gets.
    void fail(const Error& error) const;
    /// The same with one of the layer's own: code 250.
    void fail(FailureKind kind, std::string_view sentence) const;
    /// Fails because the service said no. The error's user-info map holds its code under
    /// kServiceCodeKey, unless that is empty.
    void failRefused(std::string_view code, std::string_view sentence) const;
    /// Fails in a way that the slot does not tell of; watches do.
    void failUntold(const Error& error) const { note(error); }
    void failUntold(FailureKind kind, std::string_view sentence) const;
    /// Fails with the exception that is being handled.
    void failWithException() const noexcept;

    /// Empties the slot: where an absent error has a meaning of its own.
    void clearError() const noexcept;

    /// Whether something has failed since the operation began.
    [[nodiscard]] bool hasFailed() const noexcept { return hasFailed_; }

private:
    void note(const Error& error) const;

    const char* const name_;
    ErrorSlot const error_;
    const Operation* const outer_;
    mutable bool hasFailed_ = false;
};

/// Runs the work of an operation; nothing is thrown out of it. Where an exception ends the work,
/// the caller gets its error and the result that says "no".
template <class Work, class Result = std::invoke_result_t<Work, const Operation&>>
Result runOperation(const char* name, ErrorSlot error, std::type_identity_t<Result> otherwise,
                    Work work) noexcept
{
    const Operation operation(name, error);
    try {
        return work(operation);
    } catch (...) {
        operation.failWithException();
        return otherwise;
    }
}

/// The same of work that hands nothing back.
template <class Work> void runOperation(const char* name, ErrorSlot error, Work work) noexcept
{
    const Operation operation(name, error);
    try {
        work(operation);
    } catch (...) {
        operation.failWithException();
    }
}

/// Runs work that only puts texts together; where an exception ends it, the caller gets an empty
/// result.
template <class Work> std::invoke_result_t<Work> orEmpty(Work work) noexcept
{
    try {
        return work();
    } catch (...) {
        return {};
    }
}

} // namespace stowline

/// Log lines of an operation, from wherever it calls: they name the broker and the operation.
#define OPERATION_LOG_INFO(operation, ...)                                                         \
    ::stowline::DDLog::log(true, ::stowline::kSystemLogLevel, ::stowline::kLogFlagInfo, 0,         \
                           ::stowline::kBrokerSource, (operation).name(), __LINE__, __VA_ARGS__)
#define OPERATION_LOG_ERROR(operation, ...)                                                        \
    ::stowline::DDLog::log(false, ::stowline::kSystemLogLevel, ::stowline::kLogFlagError, 0,       \
                           ::stowline::kBrokerSource, (operation).name(), __LINE__, __VA_ARGS__)
