// What may be sent, and what of it follows a redirect. Pure.
#pragma once

#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/text/Url.h"

#include <optional>
#include <string>

namespace stowline::platform {

/// Why a request cannot be sent, as a sentence; absent when it can.
[[nodiscard]] std::optional<std::string> requestFault(const HttpRequest& request);

/// What a status code asks for: nothing, or the same again elsewhere, with GET or as it was.
enum class Redirect { none, asGet, repeated };
[[nodiscard]] Redirect redirectFor(long status);

/// Why a redirect is not followed, as a sentence; absent when it is.
/// @param from where the request went
/// @param location absolute
[[nodiscard]] std::optional<std::string> redirectFault(const HttpRequest& request,
                                                       const UrlOrigin& from, Redirect redirect,
                                                       const std::string& location);

/// Makes a request what is to be sent to the new place: with GET without a body and what describes
/// it, at another origin without credentials. Only for a redirect without a fault.
void redirectRequest(HttpRequest& request, const UrlOrigin& from, Redirect redirect,
                     const std::string& location);

} // namespace stowline::platform
