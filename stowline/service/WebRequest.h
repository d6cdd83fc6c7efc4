// A plain HTTP request of the settings, with everything that came back.
#pragma once

#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/values/Error.h"
#include "stowline/soap/TemplateExpansion.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline {

struct WebRequest {
    std::string url;
    std::string_view name; ///< key of the settings' "WebRequests"
    const SubstitutionMap& substitutions;
    std::optional<std::string_view> body;
    bool mayArriveTwice = false; ///< harmless, as a GET always is; see HttpRequest
};

struct WebRequestAnswer {
    Data body;
    std::optional<platform::HttpResponseMessage> response; ///< status line and headers
    Dictionary listedHeaders; ///< those that the entry lists, under its spelling
};

/// What WebServiceBroker::sendWebRequestWithURL() does, and logs as it does. The line of a status
/// of 400 and more is logged as an error, since the status is not judged here. Throws nothing.
/// @param error cleared first
[[nodiscard]] std::optional<WebRequestAnswer> performWebRequest(const WebRequest& request,
                                                                ErrorSlot error) noexcept;

} // namespace stowline
