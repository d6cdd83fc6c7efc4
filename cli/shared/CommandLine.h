// Commands and options as the command line has them. The library that reads it stands behind this,
// so that a change of one command compiles in a moment.
#pragma once

#include "cli/shared/ExitStatus.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace stowline::cli {

/// An option, operand or flag that has been declared. Each operation gives the option back, so that
/// they can be chained. Copies are the same option.
class Option {
public:
    explicit Option(CLI::Option& option) : option_(&option) {}

    /// Leaving it out is a usage error.
    Option required() const;
    /// When it is not given, the environment variable that bears its long name is asked:
    /// STOWLINE_PART_SIZE for --part-size. For flags "1" and "true" are yes.
    Option fromVariable() const;
    /// It cannot be set in the configuration file.
    Option notInFile() const;
    /// What the configuration file says of it is passed over.
    Option passedOverInFile() const;
    /// Another value than the variable has, and said in the help.
    Option defaultsTo(const std::string& value) const;
    /// The value that the variable has is said in the help.
    Option showsDefault() const;

    Option oneOf(const std::vector<std::string>& values) const;
    /// Both ends belong to it. Number is int, double or std::uint64_t.
    template <class Number> Option between(Number least, Number most) const;
    Option positive() const;
    Option notNegative() const;
    /// "4m" is 4 times 1024 times 1024, and so on.
    Option asSize() const;

    /// @param faultIn what is wrong with a value, a sentence without its full stop; empty: nothing
    Option accepts(std::string (*faultIn)(const std::string& value)) const;

    /// Giving both is a usage error.
    Option excludes(const Option& other) const;

private:
    CLI::Option* option_;
};

/// Whether passedOverInFile() was said of an option.
[[nodiscard]] bool isPassedOverInFile(const CLI::Option& option);

/// What the chosen subcommand does; called when all options are known.
using Chosen = std::function<ExitStatus()>;

/// A command or subcommand that is being declared. Copies are the same command.
class Command {
public:
    /// @param chosen takes what is to be run; it and `app` outlive this
    Command(CLI::App& app, Chosen& chosen) : app_(&app), chosen_(&chosen) {}

    [[nodiscard]] Command addCommand(const std::string& name, const std::string& description) const;
    /// On its own it is a usage error.
    void needsSubcommand() const;

    /// @param name "-j,--jobs", or "PATH" for an operand
    /// @param value set when the command line is read; it must still be there then. Of the types
    ///        that CommandLine.cpp names.
    template <class Value>
    Option addOption(const std::string& name, Value& value, const std::string& description) const;
    /// @param value true when it was given
    Option addFlag(const std::string& name, bool& value, const std::string& description) const;

    /// What to do when this command is chosen.
    void runs(Chosen work) const;

private:
    CLI::App* app_;
    Chosen* chosen_;
};

} // namespace stowline::cli
