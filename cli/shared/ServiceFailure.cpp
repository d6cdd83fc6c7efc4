#include "cli/shared/ServiceFailure.h"

#include "cli/shared/FailureStatus.h"
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

/// Whether a call that failed in such a way may have been carried out all the same.
bool isDoubtful(FailureKind kind)
{
    return kind == FailureKind::timeOut || kind == FailureKind::connection ||
           kind == FailureKind::helperFailed || kind == FailureKind::unreadableAnswer ||
           kind == FailureKind::tooLarge || kind == FailureKind::unavailable ||
           kind == FailureKind::stopped;
}

/// Of a failure whose kind says what there is to say.
std::string sentenceOf(const Error& error)
{
    std::string text = sentenceFor(error.kind, "the service");
    const std::string* reason = platform::findString(error.userInfo, platform::kFailureReasonKey);
    if (reason && text.find("(" + *reason + ")") == std::string::npos)
        text += " (" + *reason + ")";
    return text;
}

/// What stands between here and the service, where that is why a call failed.
std::optional<Finding> troubleBehind(FailureKind kind)
{
    if (!isWorthALook(kind))
        return std::nullopt;
    auto trouble = firstTrouble();
    // Without descriptors or processes nothing can be reached either.
    const bool isWithoutMeans = kind == FailureKind::hostUnreachable && trouble &&
                                trouble->kind == FailureKind::helperFailed;
    if (trouble && (kind == FailureKind::unspecified || trouble->kind == kind || isWithoutMeans))
        return trouble;
    return std::nullopt;
}

/// @param doubt is said too where the call may have been carried out; begins with a blank
ExitStatus failedCall(const std::optional<Error>& error, const std::string& doubt)
{
    const FailureKind kind = error ? error->kind : FailureKind::unspecified;
    if (const auto trouble = troubleBehind(kind))
        return tell(*trouble);
    const std::string more = isDoubtful(kind) ? doubt : "";
    if (!error)
        return tell({.text = sentenceFor(kind, "the service")});
    if (error->code == kFaultErrorCode)
        return tell({.text = sentenceOf(*error) + more, .kind = kind});
    if (kind == FailureKind::hostUnreachable)
        return tell({.text = error->localizedDescription() + " (" +
                             WebServicesSettings::reachabilityHost().value_or("no host") + ")",
                     .kind = kind});
    return output().fail(kind == FailureKind::unspecified ? ExitStatus::failed : statusFor(kind),
                         error->localizedDescription() + more, platform::nameOf(kind));
}

} // namespace

std::string failureSentence(const Error& error)
{
    return error.code == kFaultErrorCode ? sentenceOf(error) : error.localizedDescription();
}

ExitStatus callFailure(const std::optional<Error>& error)
{
    return failedCall(error, "");
}

ExitStatus callFailure(const std::optional<Error>& failure, const std::string& refusal,
                       const std::string& cure)
{
    const FailureKind kind = failure ? failure->kind : FailureKind::unspecified;
    if (kind != FailureKind::refusedByService && kind != FailureKind::unspecified)
        return failedCall(
            failure, cure.empty() ? "" : " The service may have done it all the same: " + cure);
    if (const auto trouble = firstTrouble())
        return tell(*trouble);
    return output().fail(ExitStatus::refused, refusal,
                         platform::nameOf(FailureKind::refusedByService));
}

bool isRefusal(const std::optional<Error>& error)
{
    return error && error->kind == FailureKind::refusedByService;
}

bool isRefusalWith(const std::optional<Error>& error, std::string_view code)
{
    return isRefusal(error) &&
           platform::findText(error->userInfo, platform::kServiceCodeKey) == code;
}

} // namespace stowline::cli
