#include "cli/shared/Secret.h"

#include "cli/shared/Output.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/CommandOutput.h"
#include "stowline/platform/processes/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>
#include <span>

namespace stowline::cli {

namespace {

constexpr std::chrono::minutes kCommandLimit{2};

std::string withoutLineBreak(std::string text)
{
    if (text.ends_with('\n'))
        text.pop_back();
    if (text.ends_with('\r'))
        text.pop_back();
    return text;
}

/// What stood in the variables of secrets, by name.
std::map<std::string, std::string>& takenVariables()
{
    static std::map<std::string, std::string> taken;
    return taken;
}

/// Takes a secret out of the environment, and overwrites it there, so that no child inherits it and
/// a list of processes does not show it.
void take(const std::string& variable)
{
    char* set = std::getenv(variable.c_str());
    if (!set)
        return;
    const std::span<char> text(set, std::strlen(set));
    takenVariables()[variable] = std::string(text.begin(), text.end());
    std::ranges::fill(text, '*');
    ::unsetenv(variable.c_str());
}

} // namespace

void SecretOptions::declare(const Command& command, const std::string& name,
                            const std::string& variable)
{
    name_ = name;
    variable_ = variable;
    take(variable);
    const Option fromStdin = command.addFlag("--" + name + "-stdin", fromStdin_,
                                             "Read the " + name + " from standard input");
    const Option file =
        command.addOption("--" + name + "-file", file_, "Read the " + name + " from a file");
    const Option run = command
                           .addOption("--" + name + "-command", command_,
                                      "Run a command (no shell) that prints the " + name)
                           .accepts(platform::faultInCommand);
    fromStdin.excludes(file).excludes(run);
    file.excludes(run);
    if (takenVariables().contains(variable_)) {
        for (const Option& source : {fromStdin, file, run})
            (void)source.passedOverInFile();
    }
}

std::optional<std::string> SecretOptions::readNamed() const
{
    std::optional<std::string> text;
    if (fromStdin_)
        text = std::string(std::istreambuf_iterator<char>(std::cin), {});
    else if (!file_.empty())
        text = platform::readFile(file_);
    else
        text = platform::outputOfCommand(command_, kCommandLimit);
    if (!text)
        output().complain(file_.empty()
                              ? fmt::format("The command for the {} failed: {}", name_, command_)
                              : fmt::format("The {} cannot be read from {}.", name_, file_));
    return text ? std::optional(withoutLineBreak(*text)) : std::nullopt;
}

std::optional<std::string> SecretOptions::required(std::optional<std::string> secret) const
{
    if (secret && secret->empty()) {
        output().complain(fmt::format("The {} is empty.", name_));
        return std::nullopt;
    }
    return secret;
}

std::optional<std::string> SecretOptions::readIfGiven() const
{
    if (isNamed())
        return readNamed();
    const auto set = takenVariables().find(variable_);
    return set != takenVariables().end() ? std::optional(set->second) : std::nullopt;
}

std::optional<std::string> SecretOptions::readNew(const std::string& prompt) const
{
    auto typed = read(prompt);
    if (!typed || isNamed() || takenVariables().contains(variable_))
        return typed;
    if (platform::readHiddenLine(fmt::format("The same {} again: ", name_)) == typed)
        return typed;
    output().complain(fmt::format("The two {}s differ. Nothing was changed.", name_));
    return std::nullopt;
}

std::optional<std::string> SecretOptions::read(const std::string& prompt) const
{
    if (isNamed() || takenVariables().contains(variable_))
        return required(readIfGiven());
    auto typed = platform::readHiddenLine(prompt);
    if (!typed)
        output().complain(fmt::format("No {0} was given. Please give --{0}-stdin, --{0}-file, "
                                      "--{0}-command or {1}.",
                                      name_, variable_));
    return required(std::move(typed));
}

} // namespace stowline::cli
