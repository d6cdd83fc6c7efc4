#include "cli/shared/Configuration.h"

#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/files/Files.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace stowline::cli {

namespace {

std::string defaultFile()
{
    const auto folder = platform::configurationFolder();
    return folder ? (*folder / "config.toml").string() : "";
}

/// Whether somebody has put there what may never come to an end: a pipe, a device.
bool isEndless(const std::string& file)
{
    std::error_code fault;
    const auto type = std::filesystem::status(file, fault).type();
    return type == std::filesystem::file_type::fifo ||
           type == std::filesystem::file_type::character ||
           type == std::filesystem::file_type::block || type == std::filesystem::file_type::socket;
}

/// What the file has told, for what is asked later.
struct Told {
    ConfigurationText text;
    std::vector<std::string> profiles;
};

Told& told()
{
    static Told all;
    return all;
}

/// The library's own reader takes what it does not know for text, and lets the file win over the
/// environment.
class ConfigurationFormat final : public CLI::ConfigTOML {
public:
    explicit ConfigurationFormat(CLI::App& app) : app_(app) {}

    std::vector<CLI::ConfigItem> from_config(std::istream& input) const override
    {
        if (app_.got_subcommand("config"))
            return {}; // which looks at files itself
        if (const auto fault = untrustedConfiguration(app_))
            throw CLI::ConfigError(*fault, CLI::ExitCodes::ConfigError);
        const std::string text(std::istreambuf_iterator<char>(input), {});
        ConfigurationEntries entries(app_);
        try {
            told().text = readConfiguration(text);
            entries.take(told().text);
        } catch (const ConfigurationFault& fault) {
            refuse({fault.place, fault.what()});
        }
        if (!entries.problems().empty())
            refuse(entries.problems().front());
        told().profiles = entries.profiles();
        return entries.items();
    }

private:
    [[noreturn]] void refuse(const ConfigurationProblem& problem) const
    {
        throw CLI::ConfigError(fmt::format("{}:{}:{}: {}", app_.get_config_ptr()->as<std::string>(),
                                           problem.place.line, problem.place.column,
                                           problem.sentence),
                               CLI::ExitCodes::ConfigError);
    }

    CLI::App& app_;
};

} // namespace

void declareConfiguration(CLI::App& app)
{
    app.config_formatter(std::make_shared<ConfigurationFormat>(app));
    const std::string file = defaultFile();
    // One that is not opened is told by unreadConfiguration().
    app.set_config("--config", isEndless(file) ? "" : file, "Configuration file");
}

std::string configurationFile(const CLI::App& app)
{
    return app.get_config_ptr()->as<std::string>();
}

std::vector<ConfigurationProblem> problemsInConfiguration(CLI::App& app, std::string_view text)
{
    ConfigurationEntries entries(app);
    try {
        entries.take(readConfiguration(text));
    } catch (const ConfigurationFault& fault) {
        return {{fault.place, fault.what()}};
    }
    return entries.problems();
}

const std::vector<std::string>& configuredProfiles()
{
    return told().profiles;
}

bool isConfiguredForBackup(const std::string& profile, const std::string& name)
{
    return std::ranges::any_of(told().text.entries, [&](const ConfigurationEntry& entry) {
        const auto& tables = entry.tables;
        const bool isHere = tables.empty() || tables == std::vector<std::string>{"backup"} ||
                            tables == std::vector<std::string>{"profile", profile};
        return isHere && entry.name == name && !entry.values.empty();
    });
}

bool isConfigurationNamed(const CLI::App& app)
{
    return configurationFile(app) != defaultFile();
}

std::optional<std::string> unreadConfiguration(const CLI::App& app)
{
    std::error_code unknown;
    const std::string file = defaultFile();
    // The library notes a file that it has read, and leaves out in silence one that it cannot read.
    if (file.empty() || app.get_config_ptr()->count() > 0 || app.got_subcommand("config") ||
        std::filesystem::symlink_status(file, unknown).type() ==
            std::filesystem::file_type::not_found) // else it may be there, behind a closed folder
        return std::nullopt;
    return "The configuration file " + file +
           " cannot be read. Please check that it is a file, and check its owner and mode.";
}

std::optional<std::string> untrustedConfiguration(const CLI::App& app)
{
    const std::string file = configurationFile(app);
    if (file.empty() || isConfigurationNamed(app) || !platform::mayOthersWrite(file))
        return std::nullopt;
    return "Other users may change the configuration file " + file +
           ". Please make it and its folder your own, writable by nobody else.";
}

} // namespace stowline::cli
