// Requests whose whole body is a template of the settings.
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/Operation.h"
#include "stowline/service/ResponseReader.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WayToHost.h"
#include "stowline/service/WebRequestKeys.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline {

namespace {

using platform::consoleLog;
using platform::formatText;

constexpr std::chrono::seconds kTimeout{60};

/// The address as a URL; escaped once more when it is none.
std::string usableUrl(const std::string& text)
{
    return platform::Url::fromText(text) ? text : platform::percentEscaped(text);
}

platform::HttpRequest requestFor(const Dictionary& entry, const std::string& url,
                                 std::string_view body)
{
    platform::HttpRequest request{
        .method = "POST", .url = url, .headers = {}, .body = body, .bodyMustArrive = true};
    setHeader(request.headers, "User-Agent", General::userAgent());
    setHeader(request.headers, "Content-Length", formatText("%qu", body.size()));
    const Dictionary* configured = findDictionary(entry, templateKey::httpHeaders);
    for (const auto& [name, value] : configured ? *configured : Dictionary())
        setHeader(request.headers, name, value.text());
    request.proxy = platform::systemProxyFor(url);
    return request;
}

/// The answer's body, or why there is none.
platform::HttpOutcome outcomeOf(platform::HttpRequest request)
{
    platform::HttpExchange exchange(std::move(request), {});
    if (exchange.wait(kTimeout))
        return exchange.takeOutcome();
    return {.failure = "The request timed out.", .reason = FailureKind::timeOut};
}

/// The entry's request, sent; says what went wrong.
std::optional<std::string> answerTo(const Operation& operation, std::string_view name,
                                    const SubstitutionMap& params,
                                    std::span<const platform::FormatArgument> urlArguments)
{
    const auto entry = settingsTables::templateEntry(name);
    const std::string url = entry ? filledUrl(*entry, urlArguments) : "";
    if (const auto obstacle = obstacleOnTheWay(url)) {
        operation.failUntold(*obstacle,
                             sentenceOfObstacle(*obstacle, "The service is not reachable."));
        return std::nullopt;
    }
    if (!entry) {
        consoleLog(formatText("Attemting to send request %@, but no template found", name));
        operation.failUntold(FailureKind::invalidSettings,
                             formatText("The settings have no template \"%@\".", name));
        return std::nullopt;
    }
    const std::string* bodyTemplate = findString(*entry, templateKey::body);
    const std::string body = soap::expandTemplate(bodyTemplate ? *bodyTemplate : "", params, true);
    auto outcome = outcomeOf(requestFor(*entry, usableUrl(url), body));
    if (!outcome.response) {
        consoleLog(formatText("Method %@, URL connection error: %@", name, outcome.failure));
        operation.failUntold(outcome.reason, outcome.failure);
        return std::nullopt;
    }
    if (platform::isValidUtf8(outcome.body))
        return std::move(outcome.body);
    operation.failUntold(FailureKind::unreadableAnswer, "The answer is not UTF-8.");
    return std::nullopt;
}

} // namespace

std::optional<std::string> WebServiceBroker::sendTemplateRequestWithName(
    std::string_view name, const SubstitutionMap& params, std::string_view /*anyString*/,
    std::initializer_list<platform::FormatArgument> urlSubstitutions)
{
    return runOperation(
        "sendTemplateRequestWithName:params:anyStringPlusURLSubstitutions:", nullptr, std::nullopt,
        [&](const Operation& operation) {
            return answerTo(operation, name, params,
                            std::span(urlSubstitutions.begin(), urlSubstitutions.size()));
        });
}

} // namespace stowline
