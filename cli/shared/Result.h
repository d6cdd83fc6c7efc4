// A value, or the status that the command ends with instead.
#pragma once

#include "cli/shared/ExitStatus.h"

#include <optional>
#include <utility>

namespace stowline::cli {

/// What a step of a command came to. When it is not a value, the output is ended already.
template <class Value> class Result {
public:
    Result(Value value) : value_(std::move(value)) {}
    Result(ExitStatus status) : status_(status) {}

    explicit operator bool() const { return value_.has_value(); }
    [[nodiscard]] const Value& operator*() const { return *value_; }
    [[nodiscard]] const Value* operator->() const { return &*value_; }

    /// The status to end with. Only without a value.
    [[nodiscard]] ExitStatus status() const { return status_; }

private:
    std::optional<Value> value_;
    ExitStatus status_ = ExitStatus::done;
};

} // namespace stowline::cli
