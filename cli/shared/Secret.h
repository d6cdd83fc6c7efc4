// Where passwords come from: never from an argument.
#pragma once

#include "cli/shared/CommandLine.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// The options that name the source of one secret, and the reading of it.
class SecretOptions {
public:
    /// Adds --<name>-stdin, --<name>-file and --<name>-command to a subcommand. Naming two of them
    /// is a usage error.
    /// @param variable environment variable that is asked when none is named; it is taken out of
    ///        the environment here, so that children do not inherit it
    void declare(const Command& command, const std::string& name, const std::string& variable);

    /// Reads the secret: the named source, else the variable, else a prompt on the terminal without
    /// echo. One line break at the end is not part of it. An empty one is refused.
    /// @return absent after saying why.
    [[nodiscard]] std::optional<std::string> read(const std::string& prompt) const;

    /// The same for a secret that is new: at a prompt it is asked for twice, and two that differ
    /// are refused.
    [[nodiscard]] std::optional<std::string> readNew(const std::string& prompt) const;

    /// The same, but absent without a word or a prompt when no source is named and no variable set.
    [[nodiscard]] std::optional<std::string> readIfGiven() const;

private:
    [[nodiscard]] std::optional<std::string> readNamed() const;
    [[nodiscard]] std::optional<std::string> required(std::optional<std::string> secret) const;
    [[nodiscard]] bool isNamed() const { return fromStdin_ || !file_.empty() || !command_.empty(); }

    std::string name_;
    std::string variable_;
    bool fromStdin_ = false;
    std::string file_;
    std::string command_;
};

} // namespace stowline::cli
