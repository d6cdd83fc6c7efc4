#include "cli/shared/Configuration.h"

#include "cli/shared/CommandLine.h"
#include "cli/shared/ConfigurationFile.h"
#include "cli/shared/NearestWord.h"
#include "stowline/platform/files/Files.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace stowline::cli {

namespace {

std::string defaultFile()
{
    const auto folder = platform::configurationFolder();
    return folder ? (*folder / "config.toml").string() : "";
}

std::vector<const CLI::App*> subcommandsOf(const CLI::App& command)
{
    return command.get_subcommands([](const CLI::App*) { return true; });
}

/// What may stand in the file for a command: its options with long names, but those that ask for
/// something else than the command's work.
const CLI::Option* optionOf(const CLI::App& command, const std::string& name)
{
    const CLI::Option* option = command.get_option_no_throw("--" + name);
    const bool isAsked = option == command.get_config_ptr() || option == command.get_help_ptr() ||
                         option == command.get_version_ptr();
    return isAsked ? nullptr : option;
}

std::vector<std::string> optionNamesOf(const CLI::App& command)
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

/// The entries of one file as options of the program and its commands.
class Entries {
public:
    explicit Entries(const CLI::App& app) : app_(app) {}

    std::vector<CLI::ConfigItem> from(const ConfigurationText& text)
    {
        for (const ConfigurationTable& table : text.tables)
            (void)commandOf(table.names, table.place);
        // A command's own table comes before what is said for all.
        std::vector<ConfigurationEntry> entries = text.entries;
        std::ranges::stable_sort(entries, [](const auto& left, const auto& right) {
            return left.tables.size() > right.tables.size();
        });
        for (const ConfigurationEntry& entry : entries)
            take(entry);
        // An empty list says "none", against one that is said for all commands.
        std::erase_if(items_, [](const CLI::ConfigItem& item) { return item.inputs.empty(); });
        return std::move(items_);
    }

private:
    const CLI::App& commandOf(const std::vector<std::string>& names, FilePlace place) const
    {
        const CLI::App* command = &app_;
        for (const std::string& name : names) {
            std::vector<std::string> known;
            const CLI::App* next = nullptr;
            for (const CLI::App* candidate : subcommandsOf(*command)) {
                known.push_back(candidate->get_name());
                if (candidate->get_name() == name)
                    next = candidate;
            }
            if (!next)
                throw ConfigurationFault(place, fmt::format("[{}] is not a command.{}",
                                                            fmt::join(names, "."),
                                                            suggestion(name, known)));
            command = next;
        }
        return *command;
    }

    void take(const ConfigurationEntry& entry)
    {
        const CLI::App& command = commandOf(entry.tables, entry.place);
        if (const CLI::Option* option = optionOf(command, entry.name))
            return add(*option, entry, entry.tables);
        std::vector<std::string> known = optionNamesOf(command);
        if (!entry.tables.empty())
            throw ConfigurationFault(entry.place,
                                     fmt::format("\"{}\" is not an option of "
                                                 "\"stowline {}\".{}",
                                                 entry.name, fmt::join(entry.tables, " "),
                                                 suggestion(entry.name, known)));
        if (!addToAll(command, entry, {}, known))
            throw ConfigurationFault(entry.place,
                                     fmt::format("\"{}\" is not an option of any command.{}",
                                                 entry.name, suggestion(entry.name, known)));
    }

    /// Adds an entry that stands above all tables to every command that has such an option.
    bool addToAll(const CLI::App& command, const ConfigurationEntry& entry,
                  const std::vector<std::string>& parents, std::vector<std::string>& known)
    {
        bool isKnown = false;
        for (const CLI::App* subcommand : subcommandsOf(command)) {
            std::vector<std::string> tables = parents;
            tables.push_back(subcommand->get_name());
            const auto names = optionNamesOf(*subcommand);
            known.insert(known.end(), names.begin(), names.end());
            if (const CLI::Option* option = optionOf(*subcommand, entry.name)) {
                isKnown = true;
                add(*option, entry, tables);
            }
            isKnown = addToAll(*subcommand, entry, tables, known) || isKnown;
        }
        return isKnown;
    }

    void add(const CLI::Option& option, const ConfigurationEntry& entry,
             const std::vector<std::string>& tables)
    {
        if (!option.get_configurable())
            throw ConfigurationFault(
                entry.place,
                fmt::format("\"{}\" can be given on the command line only.", entry.name));
        const bool isFlag = option.get_expected_max() == 0 || option.get_items_expected_min() == 0;
        if (isFlag != entry.isBoolean)
            throw ConfigurationFault(entry.place, fmt::format("\"{}\" takes {}.", entry.name,
                                                              isFlag ? "true or false"
                                                                     : "a value, not true or "
                                                                       "false"));
        if (entry.isList && option.get_items_expected_max() == 1)
            throw ConfigurationFault(entry.place,
                                     fmt::format("\"{}\" takes one value.", entry.name));
        const bool isTaken = std::ranges::any_of(items_, [&](const CLI::ConfigItem& item) {
            return item.parents == tables && item.name == entry.name;
        });
        if (isTaken || isInEnvironment(option) || isExcluded(option) || isPassedOverInFile(option))
            return;
        CLI::ConfigItem item;
        item.parents = tables;
        item.name = entry.name;
        item.inputs = entry.values;
        items_.push_back(std::move(item));
    }

    const CLI::App& app_;
    std::vector<CLI::ConfigItem> items_;
};

/// The library's own reader takes what it does not know for text, and lets the file win over the
/// environment.
class ConfigurationFormat final : public CLI::ConfigTOML {
public:
    explicit ConfigurationFormat(const CLI::App& app) : app_(app) {}

    std::vector<CLI::ConfigItem> from_config(std::istream& input) const override
    {
        const std::string text(std::istreambuf_iterator<char>(input), {});
        try {
            return Entries(app_).from(readConfiguration(text));
        } catch (const ConfigurationFault& fault) {
            throw CLI::ConfigError(fmt::format("{}:{}:{}: {}",
                                               app_.get_config_ptr()->as<std::string>(),
                                               fault.place.line, fault.place.column, fault.what()),
                                   CLI::ExitCodes::ConfigError);
        }
    }

private:
    const CLI::App& app_;
};

} // namespace

void declareConfiguration(CLI::App& app)
{
    app.config_formatter(std::make_shared<ConfigurationFormat>(app));
    app.set_config("--config", defaultFile(), "Configuration file");
}

std::optional<std::string> unreadConfiguration(const CLI::App& app)
{
    std::error_code unknown;
    const std::string file = defaultFile();
    // The library notes a file that it has read, and leaves out in silence one that it cannot read.
    if (file.empty() || app.get_config_ptr()->count() > 0 ||
        std::filesystem::symlink_status(file, unknown).type() ==
            std::filesystem::file_type::not_found) // else it may be there, behind a closed folder
        return std::nullopt;
    return "The configuration file " + file +
           " cannot be read. Please check what it is, its owner and its mode.";
}

} // namespace stowline::cli
