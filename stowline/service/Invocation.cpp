// The one path that every SOAP web method takes.
#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/call/WireNames.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/net/Reachability.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/HelperRun.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

constexpr std::string_view kInvocationName =
    "invokeSOAPMethodWithName:withHeaderSubstitutions:withParamSubstitutions:error:"
    "anyStringPlusUrlSubstitutions:";

constexpr std::string_view kUnreachableMessage =
    "Sorry, we can't sign you in right now. Please check your Internet connection before trying "
    "again.";

/// Web methods whose answers are secrets of the user and stay out of the log.
constexpr std::array<std::string_view, 3> kMethodsWithSecretAnswers{"DecryptString", "getenckey",
                                                                    "GetRestoreTicket"};

void store(ErrorSlot slot, const Error& error)
{
    if (slot)
        *slot = error;
}

Error failedBeforeSending(const std::string& message, FailureKind kind)
{
    Error error =
        platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode, message, kind);
    STOWLINE_LOG_ERROR("%@ call failed: %@", kInvocationName, error);
    return error;
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

WebServiceCallRequest requestFor(std::string_view name, const Dictionary& methodInfo,
                                 const std::optional<SubstitutionMap>& headerSubstitutions,
                                 const std::optional<SubstitutionMap>& paramSubstitutions,
                                 std::initializer_list<platform::FormatArgument> urlSubstitutions)
{
    const std::span arguments(urlSubstitutions.begin(), urlSubstitutions.size());
    return {.url = filledUrl(methodInfo, arguments),
            .methodInfo = methodInfo,
            .methodName = std::string(name),
            .soapParamSubstitutions = paramSubstitutions,
            .soapHeaderSubstitutions = headerSubstitutions};
}

/// A result as the log may show it.
std::string loggable(std::string_view method, const Dictionary& result)
{
    const bool secret =
        std::find(kMethodsWithSecretAnswers.begin(), kMethodsWithSecretAnswers.end(), method) !=
        kMethodsWithSecretAnswers.end();
    return secret ? "(not shown)" : Value(result).text();
}

std::optional<Value> valueOfResult(const Dictionary& methodInfo, const Dictionary& result)
{
    const std::string* path = findString(methodInfo, methodKey::resultKeyPath);
    if (!path)
        return Value(result);
    const Value* invocationResult = find(result, kWSMethodInvocationResult);
    return invocationResult ? platform::valueAtKeyPath(*invocationResult, *path) : std::nullopt;
}

} // namespace

std::optional<Value> WebServiceBroker::invokeSOAPMethodWithName(
    std::string_view name, const std::optional<SubstitutionMap>& headerSubstitutions,
    const std::optional<SubstitutionMap>& paramSubstitutions, ErrorSlot error,
    std::string_view /*anyString*/,
    std::initializer_list<platform::FormatArgument> urlSubstitutions)
try {
    if (!Reachability::isHostReachable(WebServicesSettings::reachabilityHost())) {
        store(error, failedBeforeSending(platform::Bundle::localizedString(kUnreachableMessage),
                                         FailureKind::hostUnreachable));
        return std::nullopt;
    }
    const auto methodInfo = WebServicesSettings::webMethodInfo(name);
    if (!methodInfo) {
        STOWLINE_LOG_ERROR(
            "\nWebServiceBroker: the settings have no web service \"%@\". Please add "
            "it to \"WebServices\".",
            name);
        return std::nullopt;
    }
    auto unsendable = unsendableValue(paramSubstitutions);
    if (!unsendable)
        unsendable = unsendableValue(headerSubstitutions);
    if (unsendable) {
        store(error, failedBeforeSending(*unsendable, FailureKind::unsendableValue));
        return std::nullopt;
    }

    const auto received = resultOfHelper(
        requestFor(name, *methodInfo, headerSubstitutions, paramSubstitutions, urlSubstitutions));
    if (!received) {
        if (const auto& failure = received.error()) {
            STOWLINE_LOG_ERROR("%@ call failed: %@", kInvocationName, *failure);
            store(error, *failure);
        }
        return std::nullopt;
    }
    const Dictionary result = prepareIncomingResultDictionary(*received);
    STOWLINE_LOG_INFO("\nWebService %@ result = %@", name, loggable(name, result));
    if (WSMethodResultIsFault(result)) {
        STOWLINE_LOG_ERROR("WebService %@, Soap call returned fault, result = %@", name,
                           loggable(name, result));
        Error fault = errorFromFaultDictionary(result);
        fault.kind = failureKindOf(result);
        store(error, fault);
        return std::nullopt;
    }
    return valueOfResult(*methodInfo, result);
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

std::optional<Value> WebServiceBroker::invokeSOAPMethodWithName(
    std::string_view name, const std::optional<SubstitutionMap>& soapHeaderSubstitutions,
    const std::optional<SubstitutionMap>& soapParamSubstitutions, ErrorSlot error)
try {
    auto result = invokeSOAPMethodWithName(name, soapHeaderSubstitutions, soapParamSubstitutions,
                                           error, "", {});
    STOWLINE_LOG_INFO("\nisKindOfClass nsdictionary = %u", result && result->dictionary() ? 1 : 0);
    if (const auto count = result ? result->count() : std::nullopt)
        STOWLINE_LOG_INFO("\ncount is %@", *count);
    return result;
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

Dictionary WebServiceBroker::prepareIncomingResultDictionary(const WebServiceCallResult& result)
{
    Dictionary prepared = result;
    const auto message = prepared.find(kWSHTTPResponseMessage);
    if (message != prepared.end() && message->second.data())
        message->second =
            platform::HttpResponseMessage::fromBytes(platform::viewOfData(*message->second.data()))
                .dictionary();
    return prepared;
}

Error WebServiceBroker::errorFromFaultDictionary(const Dictionary& /*faultResult*/)
{
    return platform::makeError(std::string(kServiceErrorDomain), kFaultErrorCode,
                               "Web Service call returned fault", FailureKind::fault);
}

std::string WebServiceBroker::messageFromCode(std::string_view code)
{
    const std::u32string characters = platform::codePointsOf(code);
    std::string message;
    std::size_t wordStart = 0;
    for (std::size_t at = 1; at <= characters.size(); ++at) {
        if (at < characters.size() && !platform::isUppercaseLetter(characters[at]))
            continue;
        const std::string word =
            platform::textOf(std::u32string_view(characters).substr(wordStart, at - wordStart));
        message += message.empty() ? platform::capitalized(word) : " " + platform::lowercased(word);
        wordStart = at;
    }
    return message;
}

} // namespace stowline
