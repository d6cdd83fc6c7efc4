#include "stowline/tool/CallWorker.h"

#include "stowline/call/CallArchive.h"
#include "stowline/call/ResultMaking.h"
#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/call/WireNames.h"
#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/GzipStream.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/soap/Envelope.h"
#include "stowline/util/Base64.h"
#include "stowline/util/General.h"

#include <algorithm>
#include <optional>

namespace stowline::tool {

namespace {

using platform::HttpExchange;
using platform::HttpHeader;
using platform::HttpOutcome;
using platform::HttpRequest;

constexpr std::string_view kContentType = "text/xml; charset=utf-8";

constexpr std::string_view kTooLarge =
    "The answer needs more memory than the helper may take (1 GiB).";

/// Leads the argument that names a file; no character of Base64.
constexpr char kResponseFileMark = '@';

/// What a file holds. One that is a descriptor of this process is read without /proc, too.
std::optional<std::string> contentOf(const std::string& path)
{
    constexpr std::string_view descriptors = "/dev/fd/";
    if (auto content = platform::readFile(path))
        return content;
    if (!path.starts_with(descriptors))
        return std::nullopt;
    const auto number = platform::wholeNumber<int>(path.substr(descriptors.size()));
    return number ? platform::readToEnd(*number) : std::nullopt;
}

/// The request's bytes from either form of the argument; empty when there are none.
Data decodedArgument(const std::string& argument)
{
    if (!argument.starts_with(kResponseFileMark))
        return Base64::dataWithBase64EncodedString(argument);
    return Base64::dataWithBase64EncodedString(contentOf(argument.substr(1)));
}

/// The strings under one key of each dictionary in a list of the method entry, "" where an entry
/// has none, so that places stay what they are; absent when there is no such list.
std::optional<std::vector<std::string>> column(const Dictionary& methodInfo, std::string_view list,
                                               std::string_view key)
{
    const Array* entries = findArray(methodInfo, list);
    if (!entries)
        return std::nullopt;
    std::vector<std::string> texts;
    for (const Value& entry : *entries) {
        const Dictionary* fields = entry.dictionary();
        const std::string* text = fields ? findString(*fields, key) : nullptr;
        texts.push_back(text ? *text : "");
    }
    return texts;
}

/// Names with their templates in order; a name that comes again takes the later template at its
/// first place.
std::vector<std::pair<std::string, std::string>> parametersOf(const Dictionary& methodInfo)
{
    std::vector<std::pair<std::string, std::string>> parameters;
    const auto names = column(methodInfo, methodKey::soapParameters, methodKey::name);
    const auto templates = column(methodInfo, methodKey::soapParameters, methodKey::templateText);
    for (std::size_t i = 0; names && i < names->size(); ++i) {
        const auto& name = (*names)[i];
        const auto known =
            std::find_if(parameters.begin(), parameters.end(),
                         [&](const auto& parameter) { return parameter.first == name; });
        if (known != parameters.end())
            known->second = (*templates)[i];
        else if (!name.empty())
            parameters.emplace_back(name, (*templates)[i]);
    }
    return parameters;
}

soap::Invocation invocationFor(const WebServiceCallRequest& request, const Dictionary& methodInfo)
{
    const std::string* namespaceUri = findString(methodInfo, methodKey::namespaceUri);
    return {
        request.methodName.value_or(""), namespaceUri ? *namespaceUri : "",
        soap::expandTemplates(column(methodInfo, methodKey::soapHeaders, methodKey::templateText),
                              request.soapHeaderSubstitutions.value_or(SubstitutionMap()), true),
        parametersOf(methodInfo), request.soapParamSubstitutions.value_or(SubstitutionMap())};
}

/// The fields of the POST. The configured ones win over the defaults, but for "User-Agent", which
/// is the client's whenever there are configured ones, and not sent when there are none.
std::vector<HttpHeader> headersFor(const Dictionary& methodInfo, const soap::Invocation& invocation)
{
    std::vector<HttpHeader> headers;
    const Dictionary* configured = findDictionary(methodInfo, methodKey::httpHeaders);
    if (configured)
        headers.emplace_back("User-Agent", General::userAgent());
    headers.emplace_back("Content-Type", kContentType);
    headers.emplace_back("SOAPAction",
                         soap::defaultSoapAction(invocation.namespaceUri, invocation.methodName));
    for (const auto& field : configured ? *configured : Dictionary()) {
        HttpHeader* known = platform::findHeader(headers, field.first);
        if (!known)
            headers.emplace_back(field.first, field.second.text());
        else if (known->first != "User-Agent")
            known->second = field.second.text();
    }
    return headers;
}

/// Runs the exchange in slices; absent when the limit came first.
std::optional<HttpOutcome> performed(HttpRequest request, const CallWorkerOptions& options,
                                     std::chrono::steady_clock::time_point start)
{
    HttpExchange exchange(std::move(request), {});
    while (std::chrono::steady_clock::now() - start < options.limit) {
        if (exchange.wait(options.slice))
            return exchange.takeOutcome();
    }
    return std::nullopt;
}

/// The body unpacked where the service packed it, which nobody asks for and some do all the same;
/// absent where it did not. Throws GzipFault.
std::optional<std::string> unpackedBody(const HttpOutcome& outcome)
{
    const auto headers = platform::HttpResponseMessage::fromBytes(*outcome.response).headers;
    const HttpHeader* encoding = platform::findHeader(headers, "Content-Encoding");
    if (!encoding || !(platform::equalsIgnoringAsciiCase(encoding->second, "gzip") ||
                       platform::equalsIgnoringAsciiCase(encoding->second, "x-gzip")))
        return std::nullopt;
    std::string body;
    platform::GzipReader reader([&](std::string_view bytes) { body.append(bytes); },
                                platform::HttpLimits().maximumResponseBytes);
    reader.feed(outcome.body);
    reader.finish();
    return body;
}

/// @param deadline for reading the answer
WebServiceCallResult resultFrom(const HttpOutcome& outcome,
                                std::chrono::steady_clock::time_point deadline)
{
    if (!outcome.response)
        return faultResult(kFaultCodeNoAnswer, outcome.failure, {}, outcome.reason);
    std::optional<std::string> unpacked;
    try {
        unpacked = unpackedBody(outcome);
    } catch (const platform::GzipFault& fault) {
        return faultResult(kFaultCodeUnreadableAnswer,
                           "The answer cannot be unpacked: " + std::string(fault.what()) + ".",
                           *outcome.response);
    }
    const auto reading =
        soap::readMessage(unpacked ? *unpacked : outcome.body, {.deadline = deadline});
    if (!reading.message)
        return faultResult(kFaultCodeUnreadableAnswer, reading.failure, *outcome.response);
    return resultFromMessage(*reading.message, *outcome.response);
}

class Call {
public:
    explicit Call(const CallWorkerOptions& options) : options_(options) {}

    CallStatus run(const std::string& argument)
    {
        const Data bytes = decodedArgument(argument);
        if (bytes.empty())
            return CallStatus::argumentUndecodable;
        const auto root = unarchive(platform::viewOfData(bytes));
        if (!root || !root->dictionary())
            return CallStatus::requestNoDictionary;
        const auto request = WebServiceCallRequest::fromDictionary(*root->dictionary());
        try {
            const auto result = resultOf(request);
            return result ? write(*result) : CallStatus::noResult;
        } catch (const std::bad_alloc&) { // everything that took it is gone by now
            return write(faultResult(kFaultCodeUnreadableAnswer, std::string(kTooLarge)));
        }
    }

private:
    std::optional<WebServiceCallResult> resultOf(const WebServiceCallRequest& request)
    {
        const Dictionary methodInfo = request.methodInfo.value_or(Dictionary());
        const soap::Invocation invocation = invocationFor(request, methodInfo);
        const std::string envelope = soap::envelopeFor(invocation);
        if (const auto character = platform::characterXmlCannotCarry(envelope))
            return faultResult(kFaultCodeUnsendable,
                               "The request holds " + *character + ", which XML cannot carry.");
        HttpRequest http{.method = "POST",
                         .url = request.url.value_or(""),
                         .headers = headersFor(methodInfo, invocation),
                         .body = envelope,
                         .bodyMustArrive = true, // a GET instead of it calls no method
                         .proxy = request.proxy.value_or("")};
        stage("request parsed and envelope built");
        const auto start = std::chrono::steady_clock::now();
        const auto outcome = performed(std::move(http), options_, start);
        if (!outcome)
            return std::nullopt;
        stage("answer received");
        auto result = resultFrom(*outcome, start + options_.limit);
        stage("answer parsed");
        return result;
    }

    CallStatus write(const WebServiceCallResult& result)
    {
        const auto bytes = archive(archivableResult(result));
        if (!bytes || bytes->empty())
            return CallStatus::archiveEmpty;
        stage("result archived");
        const bool complete = options_.writeOutput(*bytes);
        stage("result written");
        return complete ? CallStatus::done : CallStatus::outputIncomplete;
    }

    void stage(std::string_view name) const
    {
        if (options_.onStage)
            options_.onStage(name);
    }

    const CallWorkerOptions& options_;
};

/// What is said and answered in a rehearsal.
WebServiceCallRequest rehearsedRequest()
{
    const Dictionary parameter{{std::string(methodKey::name), Value("text")},
                               {std::string(methodKey::templateText), Value("<<TEXT>>")}};
    return {.url = "http://127.0.0.1/",
            .methodInfo =
                Dictionary{{std::string(methodKey::namespaceUri), Value("http://rehearsal/")},
                           {std::string(methodKey::httpHeaders), Value(Dictionary())},
                           {std::string(methodKey::soapParameters), Value(Array{parameter})}},
            .methodName = "Rehearse",
            .soapParamSubstitutions = SubstitutionMap{{"<<TEXT>>", "text"}}};
}

HttpOutcome rehearsedOutcome(const std::string& envelope)
{
    HttpOutcome outcome;
    outcome.response = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n" + envelope;
    outcome.body = envelope;
    return outcome;
}

} // namespace

void rehearseCall()
{
    const auto request = archive(rehearsedRequest().dictionary());
    const auto root = request ? unarchive(*request) : std::nullopt;
    if (!root || !root->dictionary())
        return;
    const auto read = WebServiceCallRequest::fromDictionary(*root->dictionary());
    const Dictionary methodInfo = read.methodInfo.value_or(Dictionary());
    const soap::Invocation invocation = invocationFor(read, methodInfo);
    const std::string envelope = soap::envelopeFor(invocation);
    (void)headersFor(methodInfo, invocation);
    const auto result = resultFrom(rehearsedOutcome(envelope),
                                   std::chrono::steady_clock::now() + std::chrono::minutes(1));
    (void)archive(archivableResult(result));
}

CallStatus runCallWorker(const std::vector<std::string>& words, const CallWorkerOptions& options)
{
    if (words.size() != 2)
        return CallStatus::wrongArgumentCount;
    return Call(options).run(words[1]);
}

} // namespace stowline::tool
