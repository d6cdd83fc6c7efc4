// The rules of a backup as its record notes them (docs/formats/record.md).
#pragma once

#include <string>
#include <string_view>

namespace stowline::backup {

/// One rule. A plain value.
struct NotedRule {
    enum class Kind {
        include,     ///< text: a pattern
        exclude,     ///< the same
        excludeFrom, ///< text: the lines of a file of patterns
        skipsHidden, ///< from here on without a text
        skipsCaches,
        staysOnFileSystem,
        tooLong, ///< in the place of rules that were too many for the record
        unknown, ///< text: the whole, of a rule that this program does not know
    };
    Kind kind = Kind::unknown;
    std::string text;
    bool operator==(const NotedRule&) const = default;
};

/// The rule as a record holds it. Pure.
[[nodiscard]] std::string textOf(const NotedRule& rule);

/// The reverse.
[[nodiscard]] NotedRule parsedRule(std::string_view text);

} // namespace stowline::backup
