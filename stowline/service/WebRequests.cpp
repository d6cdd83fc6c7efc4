// Plain HTTP requests that the settings describe.
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/text/HostName.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/ListedHeaders.h"
#include "stowline/service/Operation.h"
#include "stowline/service/ResponseReader.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WebRequest.h"
#include "stowline/service/WebRequestKeys.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline {

namespace {

using platform::HttpHeader;
using platform::HttpRequest;

constexpr double kDefaultTimeoutSeconds = 60.0;

/// The header list and its templates side by side, or what is wrong with them.
struct HeaderTemplates {
    std::vector<std::string> names;
    std::vector<std::string> templates;
    std::optional<Error> fault;
};

Error failure(const std::string& sentence, FailureKind kind)
{
    return platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode, sentence, kind);
}

HeaderTemplates headerTemplatesOf(const Dictionary& requestInfo, std::string_view requestName)
{
    HeaderTemplates headers;
    const Array* entries = findArray(requestInfo, webRequestKey::requestHeaders);
    for (const Value& entry : entries ? *entries : Array()) {
        const Dictionary* fields = entry.dictionary();
        const std::string* name = fields ? findString(*fields, webRequestKey::name) : nullptr;
        const std::string* text =
            fields ? findString(*fields, webRequestKey::templateText) : nullptr;
        if (!name || !text) {
            headers.fault =
                failure("The settings of the web request \"" + std::string(requestName) +
                            "\" have a header without a name or a template. Please complete it.",
                        FailureKind::invalidSettings);
            return headers;
        }
        headers.names.push_back(*name);
        headers.templates.push_back(*text);
    }
    return headers;
}

/// What a header value must not hold, in words; absent when it is clean.
std::optional<Error> unsendableValue(const HttpHeader& header)
{
    constexpr std::string_view breaks("\r\n\0", 3);
    if (header.second.find_first_of(breaks) == std::string::npos)
        return std::nullopt;
    return failure("The value of the header \"" + header.first +
                       "\" holds a line break or a NUL character, which cannot be sent.",
                   FailureKind::unsendableValue);
}

/// Fills the request's headers. @return what is wrong with them
std::optional<Error> addHeaders(HttpRequest& request, const Dictionary& requestInfo,
                                std::string_view requestName, const SubstitutionMap& substitutions)
{
    const HeaderTemplates headers = headerTemplatesOf(requestInfo, requestName);
    if (headers.fault)
        return headers.fault;
    const auto values = soap::expandTemplates(headers.templates, substitutions, false);
    for (std::size_t i = 0; i < headers.names.size(); ++i)
        setHeader(request.headers, headers.names[i], (*values)[i]);
    // The letter after the length is what the service reads, unless the settings say otherwise.
    const Value* plain = find(requestInfo, webRequestKey::plainContentLength);
    const bool isPlainLength = plain && plain->boolean() && *plain->boolean();
    if (!request.body.empty())
        setHeader(request.headers, "Content-Length",
                  platform::formatText(isPlainLength ? "%lu" : "%luu", request.body.size()));
    for (const HttpHeader& header : request.headers) {
        if (auto fault = unsendableValue(header))
            return fault;
    }
    return std::nullopt;
}

double timeoutOf(const Dictionary& requestInfo)
{
    const Value* timeout = find(requestInfo, webRequestKey::requestTimeout);
    return timeout ? platform::FormatArgument(*timeout).real() : kDefaultTimeoutSeconds;
}

HttpRequest requestLineFor(const WebRequest& request, const Dictionary& requestInfo)
{
    const std::string* named = findString(requestInfo, webRequestKey::httpMethod);
    const std::string method = named ? *named : "GET";
    const std::string* requestId = findString(requestInfo, webRequestKey::requestIdHeader);
    const std::string* version = findString(requestInfo, webRequestKey::httpVersion);
    return {
        .method = method,
        .url = platform::withAsciiHost(request.url),
        // First of all, and set again to the client's own when the request is sent.
        .headers = {{"User-Agent", ""}},
        .body = request.body.value_or(""),
        .version = version && *version == "1.0" ? platform::HttpVersion::http10
                                                : platform::HttpVersion::http11,
        .staysAtOrigin = !request.substitutions.empty(),
        .bodyMustArrive = true,
        .requestIdHeader = requestId ? *requestId : "",
        .mayArriveTwice = request.mayArriveTwice || method == "GET",
    };
}

std::optional<WebRequestAnswer> performed(const Operation& operation, const WebRequest& request)
{
    const Dictionary requestInfo = settingsTables::webRequest(request.name).value_or(Dictionary());
    HttpRequest http = requestLineFor(request, requestInfo);
    auto wrong = addHeaders(http, requestInfo, request.name, request.substitutions);
    WebRequestAnswer answer;
    if (wrong)
        platform::consoleLog(platform::formatText("%@", wrong->localizedDescription()));
    else if (auto body = readResponseForHTTPMessage(std::move(http), timeoutOf(requestInfo),
                                                    &answer.response, &wrong))
        answer.body = std::move(*body);
    if (wrong) {
        OPERATION_LOG_ERROR(operation, "Web request named %@ returned error: %@", request.name,
                            *wrong);
        operation.fail(*wrong);
        return std::nullopt;
    }
    const Array* listed = findArray(requestInfo, webRequestKey::responseHeaderNames);
    if (answer.response) {
        answer.listedHeaders = listedHeaders(*answer.response, listed ? *listed : Array());
        if (answer.response->statusCode >= 400)
            OPERATION_LOG_ERROR(operation, "Web request named %@ was answered with: %@",
                                request.name, answer.response->statusLine);
    }
    return answer;
}

} // namespace

std::optional<WebRequestAnswer> performWebRequest(const WebRequest& request,
                                                  ErrorSlot error) noexcept
{
    return runOperation(
        "sendWebRequestWithURL:requestName:httpHeaderSubstitutions:requestBody:responseHeaders:"
        "error:",
        error, std::nullopt, [&](const Operation& operation) {
            operation.clearError();
            return performed(operation, request);
        });
}

std::optional<Data>
WebServiceBroker::sendWebRequestWithURL(std::string_view url, std::string_view requestName,
                                        const SubstitutionMap& httpHeaderSubstitutions,
                                        std::optional<std::string_view> requestBody,
                                        std::optional<Dictionary>* responseHeaders, ErrorSlot error)
{
    if (responseHeaders)
        responseHeaders->reset();
    return runOperation("sendWebRequestWithURL:requestName:httpHeaderSubstitutions:requestBody:"
                        "responseHeaders:error:",
                        error, std::nullopt, [&](const Operation& /*operation*/) {
                            auto answer =
                                performWebRequest({.url = std::string(url),
                                                   .name = requestName,
                                                   .substitutions = httpHeaderSubstitutions,
                                                   .body = requestBody},
                                                  error);
                            if (answer && answer->response && responseHeaders)
                                *responseHeaders = std::move(answer->listedHeaders);
                            return answer ? std::optional(std::move(answer->body)) : std::nullopt;
                        });
}

} // namespace stowline
