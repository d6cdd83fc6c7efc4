// The one path that every SOAP web method takes.
#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/call/WireNames.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/HelperRun.h"
#include "stowline/service/Operation.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WayToHost.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

using platform::formatText;

constexpr std::string_view kUnreachableMessage =
    "Sorry, we can't sign you in right now. Please check your Internet connection before trying "
    "again.";

/// Web methods whose answers are secrets of the user and stay out of the log.
constexpr std::array<std::string_view, 3> kMethodsWithSecretAnswers{"DecryptString", "getenckey",
                                                                    "GetRestoreTicket"};

/// Placeholders whose values are secrets of the user.
constexpr std::array<std::string_view, 5> kSecretPlaceholders{
    placeholder::password, placeholder::authToken, placeholder::answer, placeholder::ticket,
    placeholder::sourceString};

void failBeforeSending(const Operation& operation, std::string_view sentence, FailureKind kind)
{
    const Error error = platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                                            std::string(sentence), kind);
    OPERATION_LOG_ERROR(operation, "%@ call failed: %@", operation.name(), error);
    operation.fail(error);
}

/// What is wrong with a value that XML cannot carry; the value itself is not shown.
std::optional<std::string> unsendableValue(const std::optional<SubstitutionMap>& substitutions)
{
    for (const auto& [placeholder, value] : substitutions.value_or(SubstitutionMap())) {
        if (const auto character = platform::characterXmlCannotCarry(value.text()))
            return "The value for " + placeholder + " holds " + *character +
                   ", which cannot be sent. Please remove it and try again.";
    }
    return std::nullopt;
}

/// One call of a web method.
struct Call {
    std::string_view name;
    const std::optional<SubstitutionMap>& headerSubstitutions;
    const std::optional<SubstitutionMap>& paramSubstitutions;
    std::initializer_list<platform::FormatArgument> urlSubstitutions;
};

std::string urlOf(const Call& call, const Dictionary& methodInfo)
{
    return filledUrl(methodInfo,
                     std::span(call.urlSubstitutions.begin(), call.urlSubstitutions.size()));
}

WebServiceCallRequest requestFor(const Call& call, const Dictionary& methodInfo)
{
    std::string url = urlOf(call, methodInfo);
    std::string proxy = platform::systemProxyFor(url);
    return {.url = std::move(url),
            .methodInfo = methodInfo,
            .methodName = std::string(call.name),
            .soapParamSubstitutions = call.paramSubstitutions,
            .soapHeaderSubstitutions = call.headerSubstitutions,
            .proxy = proxy.empty() ? std::nullopt : std::optional(std::move(proxy))};
}

Dictionary preparedResult(WebServiceCallResult prepared)
{
    const auto message = prepared.find(kWSHTTPResponseMessage);
    if (message != prepared.end() && message->second.data())
        message->second =
            platform::HttpResponseMessage::fromBytes(platform::viewOfData(*message->second.data()))
                .dictionary();
    return prepared;
}

Error faultError(FailureKind kind)
{
    return platform::makeError(std::string(kServiceErrorDomain), kFaultErrorCode,
                               "Web Service call returned fault", kind);
}

/// The same with what the helper found where there was no SOAP answer.
Error faultErrorOf(const Dictionary& result)
{
    Error error = faultError(failureKindOf(result));
    if (std::string reason = failureReasonOf(result); !reason.empty())
        error.userInfo.emplace(platform::kFailureReasonKey, std::move(reason));
    return error;
}

constexpr std::string_view kNotShown = "(not shown)";

/// A text without the secrets that went into a call, which a service may say again. What is shorter
/// than four characters stands in many a text by chance.
std::string withoutSecrets(std::string text, const std::optional<SubstitutionMap>& substitutions)
{
    for (const auto& [placeholder, value] : substitutions.value_or(SubstitutionMap())) {
        const std::string* secret = value.string();
        if (secret && secret->size() >= 4 &&
            std::ranges::find(kSecretPlaceholders, placeholder) != kSecretPlaceholders.end())
            text = platform::replacingOccurrences(text, *secret, kNotShown);
    }
    return text;
}

std::optional<Value> valueOfResult(const Operation& operation, const Dictionary& methodInfo,
                                   const Dictionary& result)
{
    const std::string* path = findString(methodInfo, methodKey::resultKeyPath);
    if (!path)
        return Value(result);
    const Value* invocationResult = find(result, kWSMethodInvocationResult);
    auto value =
        invocationResult ? platform::valueAtKeyPath(*invocationResult, *path) : std::nullopt;
    if (!value)
        operation.failUntold(FailureKind::unreadableAnswer,
                             "The answer has nothing at \"" + *path + "\".");
    return value;
}

void tellHelpersFailure(const Operation& operation, const HelperFailure& failure)
{
    if (!failure.isTold) {
        operation.failUntold(failure.error);
        return;
    }
    OPERATION_LOG_ERROR(operation, "%@ call failed: %@", operation.name(), failure.error);
    operation.fail(failure.error);
}

/// The method's entry of the settings when the call may be made; says why when it may not.
std::optional<Dictionary> methodInfoToCall(const Operation& operation, const Call& call)
{
    auto methodInfo = settingsTables::webMethod(call.name);
    const std::string url = methodInfo ? urlOf(call, *methodInfo) : "";
    if (const auto obstacle = obstacleOnTheWay(url)) {
        const std::string unreachable = platform::Bundle::localizedString(kUnreachableMessage);
        failBeforeSending(operation, sentenceOfObstacle(*obstacle, unreachable), *obstacle);
        return std::nullopt;
    }
    if (!methodInfo) {
        OPERATION_LOG_ERROR(operation,
                            "\nWebServiceBroker: the settings have no web service \"%@\". Please "
                            "add it to \"WebServices\".",
                            call.name);
        operation.failUntold(FailureKind::invalidSettings,
                             formatText("The settings have no web service \"%@\".", call.name));
        return std::nullopt;
    }
    auto unsendable = unsendableValue(call.paramSubstitutions);
    if (!unsendable)
        unsendable = unsendableValue(call.headerSubstitutions);
    if (!unsendable)
        return methodInfo;
    failBeforeSending(operation, *unsendable, FailureKind::unsendableValue);
    return std::nullopt;
}

/// A result as the log may show it.
std::string loggable(const Call& call, const Dictionary& result)
{
    if (std::ranges::find(kMethodsWithSecretAnswers, call.name) != kMethodsWithSecretAnswers.end())
        return std::string(kNotShown);
    return withoutSecrets(withoutSecrets(Value(result).text(), call.paramSubstitutions),
                          call.headerSubstitutions);
}

std::optional<Value> performed(const Operation& operation, const Call& call)
{
    const auto methodInfo = methodInfoToCall(operation, call);
    if (!methodInfo)
        return std::nullopt;
    auto received = resultOfHelper(operation, requestFor(call, *methodInfo));
    if (!received) {
        tellHelpersFailure(operation, received.error());
        return std::nullopt;
    }
    const Dictionary result = preparedResult(std::move(*received));
    OPERATION_LOG_INFO(operation, "\nWebService %@ result = %@", call.name, loggable(call, result));
    if (!WSMethodResultIsFault(result))
        return valueOfResult(operation, *methodInfo, result);
    OPERATION_LOG_ERROR(operation, "WebService %@, Soap call returned fault, result = %@",
                        call.name, loggable(call, result));
    operation.fail(faultErrorOf(result));
    return std::nullopt;
}

} // namespace

std::optional<Value> WebServiceBroker::invokeSOAPMethodWithName(
    std::string_view name, const std::optional<SubstitutionMap>& headerSubstitutions,
    const std::optional<SubstitutionMap>& paramSubstitutions, ErrorSlot error,
    std::string_view /*anyString*/,
    std::initializer_list<platform::FormatArgument> urlSubstitutions)
{
    const Call call{name, headerSubstitutions, paramSubstitutions, urlSubstitutions};
    return runOperation(
        "invokeSOAPMethodWithName:withHeaderSubstitutions:withParamSubstitutions:error:"
        "anyStringPlusUrlSubstitutions:",
        error, std::nullopt,
        [&](const Operation& operation) { return performed(operation, call); });
}

std::optional<Value> WebServiceBroker::invokeSOAPMethodWithName(
    std::string_view name, const std::optional<SubstitutionMap>& soapHeaderSubstitutions,
    const std::optional<SubstitutionMap>& soapParamSubstitutions, ErrorSlot error)
{
    return runOperation(
        "invokeSOAPMethodWithName:soapHeaderSubstitutions:soapParamSubstitutions:error:", error,
        std::nullopt, [&](const Operation& operation) -> std::optional<Value> {
            auto result = invokeSOAPMethodWithName(name, soapHeaderSubstitutions,
                                                   soapParamSubstitutions, error, "", {});
            OPERATION_LOG_INFO(operation, "\nisKindOfClass nsdictionary = %u",
                               result && result->dictionary() ? 1 : 0);
            if (const auto count = result ? result->count() : std::nullopt)
                OPERATION_LOG_INFO(operation, "\ncount is %@", *count);
            return result;
        });
}

Dictionary WebServiceBroker::prepareIncomingResultDictionary(const WebServiceCallResult& result)
{
    return orEmpty([&] { return preparedResult(result); });
}

Error WebServiceBroker::errorFromFaultDictionary(const Dictionary& /*faultResult*/)
{
    return orEmpty([] { return faultError(FailureKind::fault); });
}

void WebServiceBroker::useNursery(bool isUsed)
{
    runOperation("useNursery:", nullptr,
                 [&](const Operation& /*operation*/) { useNurseryForHelpers(isUsed); });
}

void WebServiceBroker::beginNursery()
{
    runOperation("beginNursery", nullptr,
                 [](const Operation& /*operation*/) { beginNurseryForHelpers(); });
}

std::string WebServiceBroker::messageFromCode(std::string_view code)
{
    return orEmpty([&] {
        const std::u32string characters = platform::codePointsOf(code);
        std::string message;
        std::size_t wordStart = 0;
        for (std::size_t at = 1; at <= characters.size(); ++at) {
            if (at < characters.size() && !platform::isUppercaseLetter(characters[at]))
                continue;
            const std::string word =
                platform::textOf(std::u32string_view(characters).substr(wordStart, at - wordStart));
            message +=
                message.empty() ? platform::capitalized(word) : " " + platform::lowercased(word);
            wordStart = at;
        }
        return message;
    });
}

} // namespace stowline
