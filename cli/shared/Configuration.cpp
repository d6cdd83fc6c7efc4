#include "cli/shared/Configuration.h"

#include "stowline/platform/files/Files.h"

#include <CLI/CLI.hpp>

#include <cstdlib>

namespace stowline::cli {

namespace {

/// The usual file format, less the entries whose environment variable is set: the library on its
/// own lets the file win over the environment.
class ConfigurationFormat final : public CLI::ConfigTOML {
public:
    explicit ConfigurationFormat(const CLI::App& app) : app_(app) {}

    std::vector<CLI::ConfigItem> from_config(std::istream& input) const override
    {
        auto entries = CLI::ConfigTOML::from_config(input);
        std::erase_if(entries, [this](const auto& entry) { return isInEnvironment(entry); });
        return entries;
    }

private:
    [[nodiscard]] bool isInEnvironment(const CLI::ConfigItem& entry) const
    {
        const CLI::App* command = &app_;
        for (const std::string& name : entry.parents) {
            const auto found = command->get_subcommands(
                [&name](const CLI::App* candidate) { return candidate->get_name() == name; });
            if (found.empty())
                return false;
            command = found.front();
        }
        const CLI::Option* option = command->get_option_no_throw("--" + entry.name);
        return option && !option->get_envname().empty() &&
               std::getenv(option->get_envname().c_str());
    }

    const CLI::App& app_;
};

} // namespace

void declareConfiguration(CLI::App& app)
{
    const auto folder = platform::configurationFolder();
    app.config_formatter(std::make_shared<ConfigurationFormat>(app));
    app.set_config("--config", folder ? (*folder / "config.toml").string() : "",
                   "Configuration file");
}

} // namespace stowline::cli
