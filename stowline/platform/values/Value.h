// The one dynamic type: what settings, requests, results and user-info maps are made of.
#pragma once

#include "stowline/platform/text/Data.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/time/Date.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

class Value;

/// See the class; declared here too, because a friend that only its class declares is not exported.
bool operator==(const Value& left, const Value& right);

using Array = std::vector<Value>;

/// String-keyed map; iterates in the byte order of its keys, so that what is made from it is the
/// same in every run.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// A string (UTF-8), data, boolean, signed or unsigned 64-bit integer, double, date, array,
/// dictionary or URL (which property lists cannot hold). There is no "absent" kind: what may be
/// absent is a std::optional<Value>.
///
/// A plain value type. Distinct values may be used from distinct threads; one value may be read by
/// several threads at once.
class Value {
public:
    Value() = default; ///< the empty string
    Value(std::string text) : content_(std::move(text)) {}
    Value(std::string_view text) : content_(std::string(text)) {}
    Value(const char* text) : content_(std::string(text)) {}
    Value(Data bytes) : content_(std::move(bytes)) {}
    Value(bool truth) : content_(truth) {}
    template <std::signed_integral T>
    requires(!std::same_as<T, bool>) Value(T number) : content_(static_cast<std::int64_t>(number))
    {
    }
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) Value(T number) : content_(static_cast<std::uint64_t>(number))
    {
    }
    Value(double number) : content_(number) {}
    Value(Date moment) : content_(moment) {}
    Value(Url address) : content_(std::move(address)) {}
    Value(Array items);
    Value(Dictionary entries);

    /// The content when the value is of that kind, else null. Valid as long as the value is
    /// neither changed nor destroyed.
    [[nodiscard]] const std::string* string() const { return std::get_if<std::string>(&content_); }
    [[nodiscard]] const Data* data() const { return std::get_if<Data>(&content_); }
    [[nodiscard]] const Array* array() const;
    [[nodiscard]] const Dictionary* dictionary() const;
    /// For changing the content, which is then no longer shared with copies of the value.
    [[nodiscard]] Array* array();
    [[nodiscard]] Dictionary* dictionary();
    [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&content_); }
    [[nodiscard]] const std::int64_t* integer() const
    {
        return std::get_if<std::int64_t>(&content_);
    }
    [[nodiscard]] const std::uint64_t* unsignedInteger() const
    {
        return std::get_if<std::uint64_t>(&content_);
    }
    [[nodiscard]] const double* real() const { return std::get_if<double>(&content_); }
    [[nodiscard]] const Date* date() const { return std::get_if<Date>(&content_); }
    [[nodiscard]] const Url* url() const { return std::get_if<Url>(&content_); }

    /// The name of the kind as a settings author would say it ("string", "list", "dictionary", …).
    [[nodiscard]] std::string_view kindName() const;

    /// Textual form: a string itself; a number's decimal digits; "1" or "0" for a boolean; data as
    /// "<n bytes>" (its content is never shown); a URL as its text; a date as "2026-01-31 23:59:59
    /// +0000"; arrays as
    /// "(a, b)" and dictionaries as "{key = value; }". Never fails.
    [[nodiscard]] std::string text() const;

    /// Number of entries of an array or dictionary; absent for the other kinds.
    [[nodiscard]] std::optional<std::size_t> count() const;

    /// True when both are of one kind and hold the same. 1 as signed and 1 as unsigned are equal.
    friend bool operator==(const Value& left, const Value& right);

private:
    // Copies of a value share their containers until one of them is changed, so that a large answer
    // can be handed on without copying it.
    std::variant<std::string, Data, bool, std::int64_t, std::uint64_t, double, Date,
                 std::shared_ptr<Array>, std::shared_ptr<Dictionary>, Url>
        content_;
};

/// The value stored under a key; null when there is none. Valid until the dictionary changes.
[[nodiscard]] const Value* find(const Dictionary& dictionary, std::string_view key);

/// The string, dictionary or array stored under a key; null when there is none or it is of another
/// kind.
[[nodiscard]] const std::string* findString(const Dictionary& dictionary, std::string_view key);
[[nodiscard]] const Dictionary* findDictionary(const Dictionary& dictionary, std::string_view key);
[[nodiscard]] const Array* findArray(const Dictionary& dictionary, std::string_view key);

/// The textual form of the value under a key; empty when there is none.
[[nodiscard]] std::string findText(const Dictionary& dictionary, std::string_view key);

/// Follows a path of keys joined by "." from a value.
///
/// A dictionary is stepped into. An array is stepped over: the rest of the path is followed from
/// each element and what is found is collected in an array in the elements' order (elements
/// without it are left out; no elements give an empty array). An empty path is the value itself.
/// @return absent when a key is missing or a step meets anything else.
[[nodiscard]] std::optional<Value> valueAtKeyPath(const Value& root, std::string_view path);

} // namespace stowline::platform

namespace stowline {
using platform::Array;
using platform::Dictionary;
using platform::Value;
} // namespace stowline
#pragma GCC visibility pop
