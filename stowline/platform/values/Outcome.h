// What an operation came to: its value, or why there is none.
#pragma once

#include <utility>
#include <variant>

namespace stowline::platform {

/// A value or a failure, which are of different types; each converts to an outcome by itself.
template <class Value, class Failure> class Outcome {
public:
    Outcome() = default; ///< a value that is default-constructed
    Outcome(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
    Outcome(Failure failure) : content_(std::in_place_index<1>, std::move(failure)) {}

    [[nodiscard]] bool has_value() const { return content_.index() == 0; }
    [[nodiscard]] explicit operator bool() const { return has_value(); }

    /// Only with a value.
    [[nodiscard]] Value& operator*() & { return *std::get_if<0>(&content_); }
    [[nodiscard]] const Value& operator*() const& { return *std::get_if<0>(&content_); }
    [[nodiscard]] Value&& operator*() && { return std::move(*std::get_if<0>(&content_)); }
    [[nodiscard]] Value* operator->() { return std::get_if<0>(&content_); }
    [[nodiscard]] const Value* operator->() const { return std::get_if<0>(&content_); }

    /// Only without a value.
    [[nodiscard]] const Failure& error() const { return *std::get_if<1>(&content_); }

private:
    std::variant<Value, Failure> content_;
};

} // namespace stowline::platform
