// The SOAP side of the service: messages in, messages out.
#pragma once

#include "devserver/ServiceMethod.h"

#include <string>
#include <string_view>

namespace stowline::devserver {

/// An HTTP answer.
struct Answer {
    int status = 200;
    std::string contentType = "text/xml; charset=utf-8";
    std::string body;
};

/// The method a request calls; empty when the request cannot be read.
[[nodiscard]] std::string calledMethod(std::string_view requestBody);

/// Reads a request, runs its method and writes the answer. What goes wrong becomes a SOAP fault
/// with status 500 (SOAP 1.1 section 6.2). Any thread.
[[nodiscard]] Answer answerCall(const Service& service, std::string_view requestBody);

/// A SOAP fault as an answer.
[[nodiscard]] Answer faultAnswer(std::string_view code, std::string_view reason);

} // namespace stowline::devserver
