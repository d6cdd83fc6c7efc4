// Keys of the entries of the settings' "WebRequests" and "Templates" tables.
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
/// True where the server wants the length of a body as a plain number.
inline constexpr std::string_view plainContentLength = "plainContentLength";
/// Names the header by which an answer tells to which request it is.
inline constexpr std::string_view requestIdHeader = "requestIdHeader";

} // namespace stowline::webRequestKey

namespace stowline::templateKey {

inline constexpr std::string_view url = "URL";
inline constexpr std::string_view body = "body";
inline constexpr std::string_view httpHeaders = "httpHeaders";

} // namespace stowline::templateKey
