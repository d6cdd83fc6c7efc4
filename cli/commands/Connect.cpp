// stowline connect
#include "cli/commands/Commands.h"
#include "cli/shared/FailureStatus.h"
#include "cli/shared/Output.h"
#include "cli/shared/SettingsFaults.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/ProviderSettings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

ExitStatus statusOf(const SettingsRefusal& refusal)
{
    switch (refusal.kind) {
    case SettingsRefusal::Kind::address:
        return ExitStatus::usage;
    case SettingsRefusal::Kind::unreachable: // an answer without end is not a service's
        return refusal.reason == FailureKind::tooLarge ? ExitStatus::temporary
                                                       : statusFor(refusal.reason);
    case SettingsRefusal::Kind::notFound:
        return ExitStatus::notFound;
    case SettingsRefusal::Kind::faulty:
        return ExitStatus::settingsInvalid;
    }
    return ExitStatus::failed;
}

ExitStatus refuse(const SettingsRefusal& refusal, const std::string& address)
{
    showFaults(address, refusal.faults);
    return output().fail(statusOf(refusal), refusal.sentence);
}

/// Calls go where a bundle says that was named, whatever is kept.
void noteBundle(const std::string& bundle)
{
    output().complain("The bundle " + bundle +
                      " is named (--bundle, STOWLINE_BUNDLE, or in config.toml), and its settings "
                      "come first: calls go where they say.");
}

ExitStatus connect(const std::string& address, const std::string& bundle)
{
    const auto file = keptProviderSettings();
    if (!file)
        return output().fail(ExitStatus::failed, "The home folder was not found. Please set HOME.");
    const auto fetched = fetchProviderSettings(address);
    if (const auto* refusal = std::get_if<SettingsRefusal>(&fetched))
        return refuse(*refusal, address);
    const auto& settings = std::get<ProviderSettings>(fetched);
    if (!platform::makePrivateFolder(file->parent_path()) ||
        !platform::writeFileAtomically(*file, settings.bytes))
        return output().fail(ExitStatus::failed,
                             file->string() +
                                 " cannot be written. Please check the owner and the "
                                 "mode of its folder, and the free space on the disk.");
    const std::string origins = fmt::format("{}", fmt::join(settings.origins, ", "));
    if (bundle.empty())
        output().note("Calls go to " + origins + " from now on.");
    else
        noteBundle(bundle);
    output().note("Next: \"stowline signup\" opens an account, \"stowline signin\" tries one.");
    return output().finish(ExitStatus::done, {{"settings", file->string()}, {"calls", origins}});
}

ExitStatus disconnect(const std::string& bundle)
{
    const auto file = keptProviderSettings();
    std::error_code fault;
    if (!file || !fs::exists(*file, fault))
        return output().fail(ExitStatus::notFound,
                             "No provider's settings are kept; those that came with the program "
                             "are in use.");
    if (!fs::remove(*file, fault))
        return output().fail(ExitStatus::failed,
                             file->string() + " cannot be removed: " + fault.message() + ".");
    if (bundle.empty())
        output().note("The settings that came with the program are in use again.");
    else
        noteBundle(bundle);
    return output().finish(ExitStatus::done);
}

} // namespace

void declareConnect(const Command& app, const std::string& bundle)
{
    auto address = std::make_shared<std::string>();
    const Command command = app.addCommand(
        "connect", "Fetch a provider's settings from its address and use them from now on");
    command
        .addOption("ADDRESS", *address,
                   "The provider's address, as https://backup.example.com; http:// on this machine "
                   "only")
        .required();
    command.runs([address, &bundle] { return connect(*address, bundle); });
}

void declareDisconnect(const Command& app, const std::string& bundle)
{
    app.addCommand("disconnect", "Use the settings again that came with the program")
        .runs([&bundle] { return disconnect(bundle); });
}

} // namespace stowline::cli
