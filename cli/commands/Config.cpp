// stowline config check
#include "cli/commands/Commands.h"
#include "cli/shared/Configuration.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "stowline/platform/files/Files.h"

#include <fmt/format.h>

#include <filesystem>

namespace stowline::cli {

namespace {

void show(const std::string& file, const ConfigurationProblem& problem)
{
    output().item(fmt::format("{}:{}:{}: {}", file, problem.place.line, problem.place.column,
                              problem.sentence),
                  "fault",
                  {{"file", file},
                   {"line", static_cast<std::uint64_t>(problem.place.line)},
                   {"column", static_cast<std::uint64_t>(problem.place.column)},
                   {"message", problem.sentence}});
}

ExitStatus check(CLI::App& app, std::string file)
{
    if (file.empty())
        file = configurationFile(app);
    if (file.empty())
        return output().fail(ExitStatus::failed, "The home folder was not found. Please set HOME.");
    std::error_code unknown;
    if (std::filesystem::status(file, unknown).type() == std::filesystem::file_type::not_found)
        return output().fail(ExitStatus::notFound,
                             "The configuration file " + file + " was not found.");
    const auto text = platform::readFile(file);
    if (!text)
        return output().fail(ExitStatus::notFound, "The file " + file + " cannot be read.");
    auto problems = problemsInConfiguration(app, *text);
    if (const auto fault = untrustedConfiguration(app); fault && file == configurationFile(app))
        problems.insert(problems.begin(), {{1, 1}, *fault});
    for (const ConfigurationProblem& problem : problems)
        show(file, problem);
    if (!problems.empty())
        return output().fail(
            ExitStatus::settingsInvalid,
            fmt::format("{} has {}.", file, countText(problems.size(), "fault", "faults")));
    output().note(file + " is in order.");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareConfig(const Command& app, CLI::App& program)
{
    const Command config = app.addCommand("config", "The configuration file");
    config.needsSubcommand();
    auto file = std::make_shared<std::string>();
    const Command command = config.addCommand(
        "check", "List every fault of a configuration file with its line and column");
    command.addOption("FILE", *file, "Configuration file; the user's own when not given");
    command.runs([file, &program] { return check(program, *file); });
}

} // namespace stowline::cli
