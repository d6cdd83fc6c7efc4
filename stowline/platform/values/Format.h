// Run-time formats: texts from settings and log calls with "%@" and friends, filled safely.
#pragma once

#include "stowline/platform/values/Error.h"
#include "stowline/platform/values/Value.h"

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// One argument of a format: a piece of text, a number, or an object that may be absent. Refers to
/// what it was made from, so it must not outlive the call it is made for.
class FormatArgument {
public:
    FormatArgument(std::nullopt_t) {}
    FormatArgument(const char* text) : content_(text ? Content(std::string_view(text)) : Content())
    {
    }
    FormatArgument(std::string_view text) : content_(text) {}
    FormatArgument(const std::string& text) : content_(std::string_view(text)) {}
    template <class T>
    FormatArgument(const std::optional<T>& maybe)
        : content_(maybe ? FormatArgument(*maybe).content_ : Content())
    {
    }
    FormatArgument(const Value& object) : content_(&object) {}
    FormatArgument(const Value* object) : content_(object ? Content(object) : Content()) {}
    FormatArgument(const Error& error) : content_(&error) {}
    template <std::signed_integral T>
    FormatArgument(T number) : content_(static_cast<std::int64_t>(number))
    {
    }
    template <std::unsigned_integral T>
    FormatArgument(T number) : content_(static_cast<std::uint64_t>(number))
    {
    }
    FormatArgument(double number) : content_(number) {}

    /// As "%@" shows it: text and objects in their textual form, numbers in decimal, "(null)" for
    /// what is absent.
    [[nodiscard]] std::string text() const;

    /// The same, added to the end of a text.
    void appendTo(std::string& result) const;

    /// The low 64 bits as a number; a text counts as the number it starts with, absent as 0.
    [[nodiscard]] std::int64_t integer() const;
    [[nodiscard]] double real() const;

private:
    // Only views and numbers, so that making and dropping arguments costs nothing.
    using Content = std::variant<std::monostate, std::string_view, const Value*, const Error*,
                                 std::int64_t, std::uint64_t, double>;
    Content content_;
};

/// Fills a format that may come from anywhere.
///
/// Knows %@ (any argument as text), %s (the same), %c (a character), %d %i %u %x %X (32 bits), the
/// same after l, ll and q (64 bits), %f (with precision, 6 when none is given) and %%; each with an
/// optional "-" or "0" flag and a width up to 4096. An argument may stand for any specifier and is
/// converted. A specifier of any other kind, one without an argument left, and a "%" at the end
/// are copied as they stand: no format reads an argument that is not there. Arguments left over
/// are ignored. Reentrant.
[[nodiscard]] std::string formatWithArguments(std::string_view format,
                                              std::span<const FormatArgument> arguments);

template <class... Arguments>
[[nodiscard]] std::string formatText(std::string_view format, const Arguments&... arguments)
{
    const std::initializer_list<FormatArgument> list{FormatArgument(arguments)...};
    return formatWithArguments(format, std::span(list.begin(), list.size()));
}

/// How many arguments the format asks for ("%%" asks for none).
[[nodiscard]] std::size_t formatArgumentCount(std::string_view format);

} // namespace stowline::platform
#pragma GCC visibility pop
