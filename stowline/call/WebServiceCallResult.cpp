#include "stowline/call/WebServiceCallResult.h"

#include "stowline/call/WireNames.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/text/Text.h"

namespace stowline {

namespace {

/// The HTTP status of the response in a result; 0 when there is none.
int statusOf(const WebServiceCallResult& result)
{
    const Value* response = find(result, kWSHTTPResponseMessage);
    if (response && response->data())
        return platform::HttpResponseMessage::fromBytes(platform::viewOfData(*response->data()))
            .statusCode;
    const Dictionary* message = response ? response->dictionary() : nullptr;
    const Value* status = message ? find(*message, "statusCode") : nullptr;
    return status && status->integer() ? static_cast<int>(*status->integer()) : 0;
}

} // namespace

FailureKind failureKindOf(const WebServiceCallResult& faultResult)
{
    const std::string code = findText(faultResult, kWSFaultCode);
    if (code == kFaultCodeUnreadableAnswer)
        return platform::kindOfStatus(statusOf(faultResult));
    if (find(faultResult, kWSHTTPResponseMessage))
        return FailureKind::fault;
    if (code == kFaultCodeUnsendable)
        return FailureKind::unsendableValue;
    const Dictionary* detail = findDictionary(faultResult, kWSFaultDetail);
    const FailureKind kind =
        platform::failureKindNamed(detail ? findText(*detail, kFailureKindKey) : "");
    return kind == FailureKind::unspecified ? FailureKind::connection : kind;
}

std::string failureReasonOf(const WebServiceCallResult& faultResult)
{
    if (failureKindOf(faultResult) == FailureKind::fault)
        return "";
    const int status = statusOf(faultResult);
    return status == 0 || status == 200 ? findText(faultResult, kWSFaultString)
                                        : "status " + std::to_string(status);
}

bool WSMethodResultIsFault(const Dictionary& result)
{
    return find(result, kWSFaultString) != nullptr;
}

} // namespace stowline
