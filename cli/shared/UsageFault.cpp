#include "cli/shared/UsageFault.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace stowline::cli {

namespace {

std::vector<std::string> namesOfSubcommands(const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* subcommand : command.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(subcommand->get_name());
    return names;
}

/// For a command that does nothing by itself.
std::string subcommandSentence(const CLI::App& app, const CLI::App& command)
{
    for (const std::string& word : app.remaining(true)) {
        if (!word.starts_with('-'))
            return fmt::format("There is no command \"{}\"", word);
    }
    return fmt::format("Please name one of its commands: {}",
                       fmt::join(namesOfSubcommands(command), ", "));
}

} // namespace

std::string usageSentence(const CLI::App& app, const CLI::ParseError& fault)
{
    const CLI::App* command = &app; // the last one that was named
    std::string words = app.get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().back();
        words += " " + command->get_name();
    }
    std::string sentence = fault.what();
    if (fault.get_name() == "RequiredError" && command->get_require_subcommand_min() > 0)
        sentence = subcommandSentence(app, *command);
    else if (const std::string_view told = "Could not convert: "; sentence.starts_with(told))
        sentence = "This is no number: " + sentence.substr(told.size());
    return fmt::format("{}. \"{} --help\" tells more.", sentence, words);
}

} // namespace stowline::cli
