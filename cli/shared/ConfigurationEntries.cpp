#include "cli/shared/ConfigurationEntries.h"

#include "cli/shared/CommandLine.h"
#include "cli/shared/NearestWord.h"
#include "stowline/util/General.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <optional>

namespace stowline::cli {

namespace {

constexpr const char* kProfileTable = "profile";
constexpr const char* kBackup = "backup";
constexpr const char* kPaths = "paths";  ///< of a profile
constexpr const char* kOperand = "PATH"; ///< of "backup"
/// Of "schedule install": what a profile says of when it is backed up.
constexpr std::array kOfSchedule{"daily", "on-mains"};
/// What else says what to back up.
constexpr std::array kSources{"files-from", "stdin"};

std::vector<CLI::App*> subcommandsOf(CLI::App& command)
{
    return command.get_subcommands([](CLI::App*) { return true; });
}

std::vector<std::string> namesOfSubcommands(CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* subcommand : subcommandsOf(command))
        names.push_back(subcommand->get_name());
    return names;
}

/// What may stand in the file for a command: its options with long names, but those that ask for
/// something else than the command's work.
CLI::Option* optionOf(CLI::App& command, const std::string& name)
{
    CLI::Option* option = command.get_option_no_throw("--" + name);
    const bool isAsked = option == command.get_config_ptr() || option == command.get_help_ptr() ||
                         option == command.get_version_ptr();
    return isAsked ? nullptr : option;
}

std::vector<std::string> optionNamesOf(CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            if (optionOf(command, name) && option->get_configurable())
                names.push_back(name);
        }
    }
    return names;
}

bool isInEnvironment(const CLI::Option& option)
{
    const char* value =
        option.get_envname().empty() ? nullptr : std::getenv(option.get_envname().c_str());
    return value && *value != '\0';
}

/// Whether the command line has chosen otherwise. Two sources of one password exclude each other;
/// that in the file gives way.
bool isExcluded(const CLI::Option& option)
{
    return std::ranges::any_of(option.get_excludes(),
                               [](const CLI::Option* other) { return other->count() > 0; });
}

bool isSource(const std::string& name)
{
    return name == kPaths || std::ranges::find(kSources, name) != kSources.end();
}

/// What the option's own checks say of a value; empty when it is right.
std::string faultInValue(CLI::Option& option, std::string value)
{
    for (int index = 0;; ++index) {
        const CLI::Validator* check = nullptr;
        try {
            check = option.get_validator(index);
        } catch (const CLI::OptionNotFound&) {
            return {};
        }
        if (std::string fault = (*check)(value); !fault.empty())
            return fault;
    }
}

/// What a flag wants, and what somebody may have meant who wrote a word or a number.
std::string flagSentence(const ConfigurationEntry& entry)
{
    std::string sentence = fmt::format("\"{}\" takes true or false.", entry.name);
    const std::string value = entry.values.empty() ? "" : entry.values.front();
    if (value == "true" || value == "yes" || value == "1")
        sentence += " Did you mean true?";
    if (value == "false" || value == "no" || value == "0")
        sentence += " Did you mean false?";
    return sentence;
}

/// A path of a profile: it means the same wherever the command is run.
std::optional<std::string> wholePath(const std::string& path)
{
    if (path.starts_with('/'))
        return path;
    const std::string home = General::pathRepresentedByDirectoryString("home directory");
    if ((path == "~" || path.starts_with("~/")) && home.starts_with('/'))
        return home + path.substr(1);
    return std::nullopt;
}

} // namespace

CLI::App& ConfigurationEntries::backup() const
{
    return *app_.get_subcommand(kBackup);
}

CLI::App& ConfigurationEntries::schedule() const
{
    return *app_.get_subcommand("schedule")->get_subcommand("install");
}

void ConfigurationEntries::addProblem(FilePlace place, std::string sentence)
{
    const bool isTold = std::ranges::any_of(problems_, [&](const ConfigurationProblem& problem) {
        return problem.place == place && problem.sentence == sentence;
    });
    if (!isTold) // once for all the commands that it is said for
        problems_.push_back({place, std::move(sentence)});
}

std::string ConfigurationEntries::chosenProfile(const ConfigurationText& text) const
{
    if (const CLI::Option* given = backup().get_option_no_throw("--profile");
        given && given->count() > 0)
        return given->results().front();
    std::string chosen = "default";
    bool isOfCommand = false;
    for (const ConfigurationEntry& entry : text.entries) {
        const bool isHere = entry.tables == std::vector<std::string>{kBackup};
        if (entry.name != kProfileTable || entry.values.size() != 1 ||
            (!entry.tables.empty() && !isHere) || (isOfCommand && !isHere))
            continue;
        chosen = entry.values.front();
        isOfCommand = isHere;
    }
    return chosen;
}

/// The profile that "schedule install" is for.
std::string ConfigurationEntries::scheduledProfile() const
{
    const CLI::Option& given = *schedule().get_option("--profile");
    return given.count() > 0 ? given.results().front() : "default";
}

void ConfigurationEntries::take(const ConfigurationText& text)
{
    text_ = &text;
    profile_ = chosenProfile(text);
    CLI::App& command = backup();
    areSourcesOnLine_ = command.get_option(kOperand)->count() > 0;
    for (const char* source : kSources) {
        if (const CLI::Option* option = optionOf(command, source))
            areSourcesOnLine_ = areSourcesOnLine_ || option->count() > 0;
    }
    for (const ConfigurationTable& table : text.tables)
        checkTable(table);
    // A profile comes before a command's own table, and that before what is said for all.
    const auto order = [](const ConfigurationEntry& entry) {
        const bool isOfProfile = !entry.tables.empty() && entry.tables.front() == kProfileTable;
        return isOfProfile ? std::size_t(0) : 100 - std::min<std::size_t>(entry.tables.size(), 99);
    };
    std::vector<ConfigurationEntry> entries = text.entries;
    std::ranges::stable_sort(entries, {}, order);
    for (const ConfigurationEntry& entry : entries)
        takeEntry(entry);
    // An empty list says "none", against one that is said for all commands.
    std::erase_if(items_, [](const CLI::ConfigItem& item) { return item.inputs.empty(); });
    std::ranges::stable_sort(problems_, {}, [](const ConfigurationProblem& problem) {
        return std::pair(problem.place.line, problem.place.column);
    });
}

void ConfigurationEntries::checkTable(const ConfigurationTable& table)
{
    const auto& names = table.names;
    if (names.front() != kProfileTable) {
        const std::vector<std::string> above(names.begin(), names.end() - 1);
        if (CLI::App* command = commandOf(above); command && !commandOf(names))
            addProblem(table.place, fmt::format("[{}] is not a command.{}", fmt::join(names, "."),
                                                suggestion(names.back(), tablesBelow(*command))));
        return; // what stands below a table that is told is not told too
    }
    if (table.names.size() == 2)
        profiles_.push_back(table.names.back());
    if (table.names.size() > 2)
        addProblem(table.place,
                   fmt::format("[{}] is neither a command nor a profile. A profile is "
                               "[profile.NAME], and holds options of \"stowline backup\" itself.",
                               fmt::join(table.names, ".")));
}

/// @return null when there is no such command
CLI::App* ConfigurationEntries::commandOf(const std::vector<std::string>& names) const
{
    CLI::App* command = &app_;
    for (const std::string& name : names) {
        const auto known = namesOfSubcommands(*command);
        if (std::ranges::find(known, name) == known.end())
            return nullptr;
        command = command->get_subcommand(name);
    }
    return command;
}

/// What may stand in brackets behind a command's words.
std::vector<std::string> ConfigurationEntries::tablesBelow(CLI::App& command) const
{
    std::vector<std::string> names = namesOfSubcommands(command);
    if (&command == &app_)
        names.emplace_back(kProfileTable);
    return names;
}

void ConfigurationEntries::takeEntry(const ConfigurationEntry& entry)
{
    if (!entry.tables.empty() && entry.tables.front() == kProfileTable)
        return takeOfProfile(entry);
    CLI::App* command = commandOf(entry.tables);
    if (!command)
        return; // the table itself is told
    if (CLI::Option* option = optionOf(*command, entry.name))
        return add(
            {*option, entry, entry.tables, entry.tables.empty() ? Rank::forAll : Rank::ofCommand});
    std::vector<std::string> known = optionNamesOf(*command);
    if (!entry.tables.empty())
        return addProblem(entry.place,
                          fmt::format("\"{}\" is not an option of \"stowline {}\".{}", entry.name,
                                      fmt::join(entry.tables, " "), suggestion(entry.name, known)));
    if (!addToAll(*command, entry, {}, known))
        addProblem(entry.place, fmt::format("\"{}\" is not an option of any command.{}", entry.name,
                                            suggestion(entry.name, known)));
}

void ConfigurationEntries::takeOfProfile(const ConfigurationEntry& entry)
{
    if (entry.tables.size() == 1)
        return addProblem(entry.place, fmt::format("\"{}\" stands in no profile. Please name it: "
                                                   "[profile.NAME].",
                                                   entry.name));
    if (entry.tables.size() > 2)
        return; // the table itself is told
    if (entry.name == kPaths)
        return takePaths(entry);
    CLI::App& command = backup();
    CLI::Option* option = entry.name == kProfileTable ? nullptr : optionOf(command, entry.name);
    if (option)
        return add({*option, entry, {kBackup}, Rank::ofProfile});
    if (std::ranges::find(kOfSchedule, entry.name) != kOfSchedule.end())
        return add(
            {*optionOf(schedule(), entry.name), entry, {"schedule", "install"}, Rank::ofProfile});
    std::vector<std::string> known = optionNamesOf(command);
    known.emplace_back(kPaths);
    std::ranges::copy(kOfSchedule, std::back_inserter(known));
    std::erase(known, kProfileTable);
    addProblem(entry.place, fmt::format("\"{}\" is not an option of \"stowline backup\" that a "
                                        "profile can set.{}",
                                        entry.name, suggestion(entry.name, known)));
}

void ConfigurationEntries::takePaths(const ConfigurationEntry& entry)
{
    if (entry.isBoolean)
        return addProblem(entry.place, "\"paths\" takes paths, not true or false.");
    CLI::ConfigItem item;
    item.parents = {kBackup};
    item.name = kOperand;
    for (const std::string& value : entry.values) {
        const auto path = wholePath(value);
        if (!path)
            return addProblem(entry.place,
                              fmt::format("\"{}\" is not a whole path. Please begin it with \"/\" "
                                          "or \"~/\".",
                                          value));
        item.inputs.push_back(*path);
    }
    if (item.inputs.empty())
        return addProblem(entry.place, "\"paths\" is empty.");
    if (entry.tables.back() != profile_ || areSourcesOnLine_)
        return;
    hasProfileSources_ = true;
    items_.push_back(std::move(item));
}

/// Adds an entry that stands above all tables to every command that has such an option.
bool ConfigurationEntries::addToAll(CLI::App& command, const ConfigurationEntry& entry,
                                    const std::vector<std::string>& parents,
                                    std::vector<std::string>& known)
{
    bool isKnown = false;
    for (CLI::App* subcommand : subcommandsOf(command)) {
        std::vector<std::string> tables = parents;
        tables.push_back(subcommand->get_name());
        const auto names = optionNamesOf(*subcommand);
        known.insert(known.end(), names.begin(), names.end());
        if (CLI::Option* option = optionOf(*subcommand, entry.name)) {
            isKnown = true;
            add({*option, entry, tables, Rank::forAll});
        }
        isKnown = addToAll(*subcommand, entry, tables, known) || isKnown;
    }
    return isKnown;
}

std::string ConfigurationEntries::faultIn(const Meant& meant) const
{
    CLI::Option& option = meant.option;
    const ConfigurationEntry& entry = meant.entry;
    if (!option.get_configurable())
        return fmt::format("\"{}\" can be given on the command line only.", entry.name);
    const bool isFlag = option.get_expected_max() == 0 || option.get_items_expected_min() == 0;
    if (isFlag && !entry.isBoolean)
        return flagSentence(entry);
    if (!isFlag && entry.isBoolean)
        return fmt::format("\"{}\" takes a value, not true or false.", entry.name);
    if (entry.isList && option.get_items_expected_max() == 1)
        return fmt::format("\"{}\" takes one value.", entry.name);
    for (const std::string& value : entry.values) {
        if (std::string fault = isFlag ? "" : faultInValue(option, value); !fault.empty())
            return fmt::format("\"{}\": {}{}", entry.name, fault,
                               fault.ends_with('.') || fault.ends_with('?') ? "" : ".");
    }
    for (const CLI::Option* other : option.get_excludes()) {
        if (const std::string& name = other->get_lnames().front(); isEarlierBeside(entry, name))
            return fmt::format("\"{}\" and \"{}\" exclude each other. Please keep one of them.",
                               name, entry.name);
    }
    return {};
}

/// Whether the entry's own table has this name above it.
bool ConfigurationEntries::isEarlierBeside(const ConfigurationEntry& entry,
                                           const std::string& name) const
{
    const auto place = [](const ConfigurationEntry& any) {
        return std::pair(any.place.line, any.place.column);
    };
    return std::ranges::any_of(text_->entries, [&](const ConfigurationEntry& other) {
        return other.tables == entry.tables && other.name == name && place(other) < place(entry);
    });
}

/// Whether something that counts more has been said.
bool ConfigurationEntries::givesWay(const Meant& meant) const
{
    const bool isTaken = std::ranges::any_of(items_, [&](const CLI::ConfigItem& item) {
        return item.parents == meant.tables && item.name == meant.entry.name;
    });
    const bool isOvertaken =
        std::ranges::any_of(meant.option.get_excludes(), [&](const CLI::Option* other) {
            const auto rank = ranks_.find(other);
            return rank != ranks_.end() && rank->second > meant.rank;
        });
    const bool isOtherSource =
        isSource(meant.entry.name) && meant.tables == std::vector<std::string>{kBackup} &&
        (meant.rank == Rank::ofProfile ? areSourcesOnLine_ : hasProfileSources_);
    return isTaken || isOvertaken || isOtherSource || isInEnvironment(meant.option) ||
           isExcluded(meant.option) || isPassedOverInFile(meant.option);
}

bool ConfigurationEntries::isOfOtherProfile(const Meant& meant) const
{
    const bool isOfBackup = meant.tables == std::vector<std::string>{kBackup};
    return meant.rank == Rank::ofProfile &&
           meant.entry.tables.back() != (isOfBackup ? profile_ : scheduledProfile());
}

void ConfigurationEntries::add(const Meant& meant)
{
    if (std::string fault = faultIn(meant); !fault.empty())
        return addProblem(meant.entry.place, std::move(fault));
    if (isOfOtherProfile(meant) || givesWay(meant))
        return;
    ranks_.emplace(&meant.option, meant.rank);
    hasProfileSources_ =
        hasProfileSources_ || (meant.rank == Rank::ofProfile && isSource(meant.entry.name));
    CLI::ConfigItem item;
    item.parents = meant.tables;
    item.name = meant.entry.name;
    item.inputs = meant.entry.values;
    items_.push_back(std::move(item));
}

} // namespace stowline::cli
