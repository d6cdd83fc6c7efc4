// Keys of an entry of the settings' "WebRequests" table.
#pragma once

#include <string_view>

namespace stowline::webRequestKey {

inline constexpr std::string_view url = "URL";
inline constexpr std::string_view httpMethod = "httpMethod";
inline constexpr std::string_view httpVersion = "httpVersion";
inline constexpr std::string_view requestHeaders = "requestHeaders";
inline constexpr std::string_view requestTimeout = "requestTimeout";
inline constexpr std::string_view responseHeaderNames = "responseHeaderNames";
inline constexpr std::string_view name = "name";
inline constexpr std::string_view templateText = "template";

} // namespace stowline::webRequestKey
