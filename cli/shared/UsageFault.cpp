#include "cli/shared/UsageFault.h"

#include "cli/shared/NearestWord.h"

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
            return fmt::format("\"{}\" is not a command.{}", word,
                               suggestion(word, namesOfSubcommands(command)));
    }
    return fmt::format("Please name one of its commands: {}.",
                       fmt::join(namesOfSubcommands(command), ", "));
}

void addOptionNames(const CLI::App& command, std::vector<std::string>& names)
{
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
}

/// For a word that nothing takes.
std::string extraWordSentence(const CLI::App& app, const CLI::App& command,
                              const std::string& words)
{
    for (const std::string& word : app.remaining(true)) {
        if (!word.starts_with("--"))
            continue;
        const std::string name = word.substr(0, word.find('='));
        std::vector<std::string> known;
        addOptionNames(command, known);
        addOptionNames(app, known);
        return fmt::format("\"{}\" is not an option of \"{}\".{}", name, words,
                           suggestion(name, known));
    }
    return {};
}

/// Ending as a sentence does.
std::string ended(const std::string& text)
{
    return text.ends_with('.') || text.ends_with('?') ? text : text + ".";
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
    if (fault.get_name() == "ConfigError")
        return fault.what();
    std::string sentence = ended(fault.what());
    if (fault.get_name() == "RequiredError" && command->get_require_subcommand_min() > 0)
        sentence = subcommandSentence(app, *command);
    else if (const auto extra = extraWordSentence(app, *command, words);
             dynamic_cast<const CLI::ExtrasError*>(&fault) && !extra.empty())
        sentence = extra;
    return fmt::format("{} \"{} --help\" tells more.", sentence, words);
}

} // namespace stowline::cli
