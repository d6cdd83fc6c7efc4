// What the command prints: results on standard output, text for people on standard error.
#pragma once

#include "cli/shared/ExitStatus.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace stowline::cli {

/// What an object of the JSON output says of one item, or of the whole run, in this order. A text
/// that is not UTF-8, as a path may be, stands there in Base64 under its name and "_b64";
/// docs/formats/command-output.md has the names.
using FieldValue = std::variant<std::string, std::int64_t, std::uint64_t, double, bool>;
using Fields = std::vector<std::pair<std::string, FieldValue>>;

/// A name as it is shown to people: control characters and line breaks are "?".
[[nodiscard]] std::string onOneLine(std::string_view name);

/// One run's output. With JSON every line on standard output is an object, and exactly one of type
/// "result" comes last, whatever happens. Any thread.
class Output {
public:
    void useJson(bool json) { json_ = json; }
    void beQuiet(bool quiet) { quiet_ = quiet; }
    void setCommand(std::string command) { command_ = std::move(command); }

    [[nodiscard]] bool isQuiet() const { return quiet_; }
    [[nodiscard]] bool isJson() const { return json_; }

    /// A sentence for people; not shown when quiet. Control characters in it are "?" here and
    /// below.
    void note(std::string_view sentence) const;

    /// A sentence about what went wrong; always shown.
    void complain(std::string_view sentence) const;

    /// The heading of a table of items for people: a line, before the first of them. JSON has none.
    void heading(std::string_view line) const;

    /// One item of the result: a line or lines of text, or an object.
    /// @param type what the object is of ("file"), its "type"
    void item(std::string_view text, std::string_view type, const Fields& fields) const;

    /// Ends the output. Only the first call counts.
    /// @param fields shown as a small table, or as entries of the result object
    /// @return the status; that of a failure when standard output did not take everything
    ExitStatus finish(ExitStatus status, const Fields& fields = {});

    /// Ends the output with one text: by itself on standard output, or as an entry of the result.
    ExitStatus finishWithText(const std::string& name, const std::string& text);

    /// Says what went wrong and ends the output; the sentence is the result object's "message".
    /// @param cause the failure's kind in a word, the result object's "cause"; empty when it has
    /// none
    ExitStatus fail(ExitStatus status, const std::string& sentence, std::string_view cause = {});

    /// What fail() said as it ended the output, both empty when it did not.
    struct Failure {
        std::string sentence;
        std::string cause;
    };
    [[nodiscard]] const Failure& failure() const { return failure_; }

private:
    void print(std::string_view line) const;
    void noteBroken() const;
    ExitStatus end(ExitStatus status);
    void printResult(ExitStatus status, const Fields& fields) const;

    bool json_ = false;
    bool quiet_ = false;
    bool finished_ = false;
    Failure failure_;
    mutable bool isBroken_ = false; ///< standard output does not take what it is given
    mutable std::string whyBroken_;
    std::string command_;
};

/// The one output of the process.
[[nodiscard]] Output& output();

} // namespace stowline::cli
