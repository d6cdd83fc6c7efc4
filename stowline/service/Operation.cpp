#include "stowline/service/Operation.h"

#include "stowline/platform/values/HandledException.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <string>

namespace stowline {

namespace {

// Of this thread, the innermost each.
thread_local FailureWatch* watch = nullptr;
thread_local const Operation* running = nullptr;

Error layersError(FailureKind kind, std::string_view sentence)
{
    return platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                               std::string(sentence), kind);
}

/// The exception that is being handled, as an error.
Error errorOfHandledException()
{
    const platform::HandledException handled = platform::handledException();
    if (handled.kind != FailureKind::unexpected)
        return layersError(handled.kind, handled.sentence);
    return layersError(FailureKind::unexpected,
                       handled.sentence.empty()
                           ? "The operation failed unexpectedly."
                           : "The operation failed unexpectedly: " + handled.sentence + ".");
}

} // namespace

FailureWatch::FailureWatch() noexcept : outer_(watch)
{
    watch = this;
}

FailureWatch::~FailureWatch()
{
    watch = outer_;
}

Operation::Operation(const char* name, ErrorSlot error) noexcept
    : name_(name), error_(error), outer_(running)
{
    running = this;
    if (outer_)
        return;
    for (FailureWatch* one = watch; one; one = one->outer_)
        one->failure_.reset();
}

Operation::~Operation()
{
    running = outer_;
}

void Operation::note(const Error& error) const
{
    for (const Operation* one = this; one; one = one->outer_)
        one->hasFailed_ = true;
    for (FailureWatch* one = watch; one; one = one->outer_) {
        if (!one->failure_)
            one->failure_ = error;
    }
}

void Operation::fail(const Error& error) const
{
    if (error_)
        *error_ = error;
    note(error);
}

void Operation::fail(FailureKind kind, std::string_view sentence) const
{
    fail(layersError(kind, sentence));
}

void Operation::failRefused(std::string_view code, std::string_view sentence) const
{
    Error error = layersError(FailureKind::refusedByService, sentence);
    if (!code.empty())
        error.userInfo.emplace(platform::kServiceCodeKey, code);
    fail(error);
}

void Operation::failUntold(FailureKind kind, std::string_view sentence) const
{
    note(layersError(kind, sentence));
}

void Operation::failWithException() const noexcept
{
    try {
        const Error error = errorOfHandledException();
        fail(error);
        if (error.kind == FailureKind::unexpected)
            OPERATION_LOG_ERROR(*this, "%@ ended by an exception: %@", name_, error);
    } catch (...) {
        clearError(); // nothing is left to make an error of
    }
}

void Operation::clearError() const noexcept
{
    if (error_)
        error_->reset();
}

} // namespace stowline
