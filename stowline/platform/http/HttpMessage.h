// Pieces of HTTP/1 messages; a response as bytes, read again.
#pragma once

#include "stowline/platform/values/Error.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stowline::platform {

/// A header field: name as written, value without surrounding blanks; a value that goes on in
/// further lines, which begin with a blank, is one text, joined by blanks (RFC 9112 section 5.2).
using HttpHeader = std::pair<std::string, std::string>;

/// The first field of a name, in any case (RFC 9110 section 5.1); null when there is none.
[[nodiscard]] const HttpHeader* findHeader(const std::vector<HttpHeader>& headers,
                                           std::string_view name);
[[nodiscard]] HttpHeader* findHeader(std::vector<HttpHeader>& headers, std::string_view name);

/// Whether a text is a token, as methods and names of header fields are (RFC 9110 section 5.6.2).
[[nodiscard]] bool isToken(std::string_view text);

/// What kind of failure a status tells of where the answer is not what was asked for: badRequest,
/// proxyRefused, requestTooLarge or unavailable; unreadableAnswer for every other.
[[nodiscard]] FailureKind kindOfStatus(int status);

/// A response taken apart (RFC 9112): made from its bytes, status line first.
struct HttpResponseMessage {
    std::string statusLine;
    int statusCode = 0; ///< 0 when the status line holds none
    std::vector<HttpHeader> headers;
    Data body; ///< the bytes after the empty line, as received

    /// Reads what is there; never fails. Bytes that are not a response give an empty message.
    [[nodiscard]] static HttpResponseMessage fromBytes(std::string_view bytes);

    /// The message as a dictionary: "statusLine", "statusCode" (number), "headers" (dictionary; of
    /// a repeated field the values are joined by ", ") and "body" (data).
    [[nodiscard]] Dictionary dictionary() const;
};

} // namespace stowline::platform
