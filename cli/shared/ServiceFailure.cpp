#include "cli/shared/ServiceFailure.h"

#include "cli/shared/FailureWords.h"
#include "cli/shared/Output.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/Diagnosis.h"
#include "stowline/service/FailureSentence.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace stowline::cli {

std::string infoFault(const std::string& lack)
{
    const auto file = platform::Bundle::folder() / "Info.plist";
    std::error_code unknown;
    if (std::filesystem::status(file, unknown).type() == std::filesystem::file_type::not_found)
        return file.string() + " is missing.";
    const auto bytes = platform::readRegularFile(file);
    if (!bytes)
        return file.string() + " cannot be read. Is it a file, and may this user read it?";
    const auto reading = platform::readPropertyList(*bytes);
    if (!reading.value)
        return file.string() + " is not a property list: " + reading.fault;
    if (!reading.value->dictionary())
        return file.string() + " is not a dictionary.";
    return file.string() + " " + lack + ".";
}

std::string unnamedSettingsFault()
{
    return infoFault("does not name the settings file (TW_WebServicesSettingsFilename)");
}

std::optional<ExitStatus> settingsFailure(const std::string& webMethod)
{
    // Secrets have left the environment by now: they are taken when the options are declared.
    WebServiceBroker::beginNursery();
    const auto place = WebServicesSettings::file();
    if (!place)
        return output().fail(ExitStatus::settingsInvalid, unnamedSettingsFault());
    const std::string file = place->string();
    if (!WebServicesSettings::settingsDictionary())
        return output().fail(ExitStatus::settingsInvalid,
                             fmt::format("The settings {} cannot be read. \"stowline settings "
                                         "check\" tells why.",
                                         file));
    if (!WebServicesSettings::webMethodInfo(webMethod))
        return output().fail(ExitStatus::settingsInvalid,
                             fmt::format("The settings {} have no entry \"{}\" under "
                                         "\"WebServices\". Please add it.",
                                         file, webMethod));
    return std::nullopt;
}

namespace {

constexpr const char* kDoctor = " \"stowline doctor\" looks into it.";

/// Whether looking again can say more than the kind does.
bool isWorthALook(FailureKind kind)
{
    return kind == FailureKind::certificate || kind == FailureKind::connection ||
           kind == FailureKind::nameNotFound || kind == FailureKind::proxyRefused ||
           kind == FailureKind::helperFailed || kind == FailureKind::invalidSettings ||
           kind == FailureKind::hostUnreachable || kind == FailureKind::unspecified;
}

ExitStatus tell(const Finding& trouble)
{
    return output().fail(statusFor(trouble.kind), trouble.text + kDoctor,
                         platform::nameOf(trouble.kind));
}

} // namespace

ExitStatus callFailure(const std::optional<Error>& error)
{
    const FailureKind kind = error ? error->kind : FailureKind::unspecified;
    if (isWorthALook(kind)) {
        const auto trouble = firstTrouble();
        // Without descriptors or processes nothing can be reached either.
        const bool isWithoutMeans = kind == FailureKind::hostUnreachable && trouble &&
                                    trouble->kind == FailureKind::helperFailed;
        if (trouble &&
            (kind == FailureKind::unspecified || trouble->kind == kind || isWithoutMeans))
            return tell(*trouble);
    }
    if (!error)
        return tell({.text = sentenceFor(kind, "the service")});
    if (error->code == kFaultErrorCode)
        return tell({.text = sentenceFor(kind, "the service"), .kind = kind});
    if (kind == FailureKind::hostUnreachable)
        return tell({.text = error->localizedDescription() + " (" +
                             WebServicesSettings::reachabilityHost().value_or("no host") + ")",
                     .kind = kind});
    return output().fail(kind == FailureKind::unspecified ? ExitStatus::failed : statusFor(kind),
                         error->localizedDescription(), platform::nameOf(kind));
}

ExitStatus callFailure(const std::optional<Error>& failure, const std::string& refusal)
{
    const FailureKind kind = failure ? failure->kind : FailureKind::unspecified;
    if (kind != FailureKind::refusedByService && kind != FailureKind::unspecified)
        return callFailure(failure);
    if (const auto trouble = firstTrouble())
        return tell(*trouble);
    return output().fail(ExitStatus::refused, refusal,
                         platform::nameOf(FailureKind::refusedByService));
}

bool isRefusal(const std::optional<Error>& error)
{
    return error && error->kind == FailureKind::refusedByService;
}

} // namespace stowline::cli
