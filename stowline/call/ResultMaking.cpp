#include "stowline/call/ResultMaking.h"

#include "stowline/call/WireNames.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

constexpr std::array kReservedKeys{kWSMethodInvocationResult, kWSHTTPResponseMessage, kWSFaultCode,
                                   kWSFaultString, kWSFaultDetail};

void set(Dictionary& dictionary, std::string_view key, Value value)
{
    dictionary.insert_or_assign(std::string(key), std::move(value));
}

bool textIsArchivable(const std::string& text)
{
    return text.find('\0') == std::string::npos && platform::isValidUtf8(text);
}

bool isArchivable(const Value& value)
{
    if (const std::string* text = value.string())
        return textIsArchivable(*text);
    if (const Array* items = value.array())
        return std::all_of(items->begin(), items->end(), isArchivable);
    if (const Dictionary* entries = value.dictionary())
        return std::all_of(entries->begin(), entries->end(), [](const auto& entry) {
            return textIsArchivable(entry.first) && isArchivable(entry.second);
        });
    return true;
}

} // namespace

WebServiceCallResult resultFromMessage(const soap::Message& message, std::string_view httpResponse)
{
    WebServiceCallResult result;
    if (const Dictionary* children = message.content.dictionary())
        result = *children;
    for (const std::string_view key : kReservedKeys)
        result.erase(std::string(key));
    set(result, kWSMethodInvocationResult, message.content);
    set(result, kWSHTTPResponseMessage, platform::dataFromText(httpResponse));
    if (message.fault) {
        set(result, kWSFaultCode, message.fault->code);
        set(result, kWSFaultString, message.fault->reason);
        if (message.fault->detail)
            set(result, kWSFaultDetail, *message.fault->detail);
    }
    return result;
}

WebServiceCallResult faultResult(std::string_view code, std::string reason,
                                 std::optional<std::string_view> httpResponse, FailureKind kind)
{
    WebServiceCallResult result;
    set(result, kWSFaultCode, code);
    set(result, kWSFaultString, std::move(reason));
    if (httpResponse)
        set(result, kWSHTTPResponseMessage, platform::dataFromText(*httpResponse));
    if (kind != FailureKind::unspecified)
        set(result, kWSFaultDetail,
            Dictionary{{std::string(kFailureKindKey), platform::nameOf(kind)}});
    return result;
}

WebServiceCallResult archivableResult(Dictionary result)
{
    std::erase_if(result, [](const auto& entry) {
        return !textIsArchivable(entry.first) || !isArchivable(entry.second);
    });
    return result;
}

} // namespace stowline
