// One HTTP(S) request and its response: the only way out to the network.
#pragma once

#include "stowline/platform/HttpMessage.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

struct HttpRequest {
    std::string method = "POST";
    std::string url; ///< http or https
    /// Sent in this order and exactly so; nothing is added but Host, Connection matters and the
    /// length of the body. A name or value with CR, LF or NUL fails the exchange unsent.
    std::vector<HttpHeader> headers;
    std::string_view body; ///< must outlive the exchange; not copied
};

struct HttpLimits {
    std::size_t maximumResponseBytes = std::size_t(64) << 20; ///< of one response, headers included
    int maximumRedirects = 10;
};

/// How an exchange ended: a response, or a sentence that says why there is none.
struct HttpOutcome {
    std::optional<std::string> response; ///< status line, headers and body exactly as received
    std::string body;                    ///< the body with its transfer coding removed
    std::string failure;                 ///< a sentence for people when there is no response
};

/// Sends a request when it is made and moves on only inside wait(). Follows redirects 301, 302 and
/// 303 with GET, 307 and 308 with the same method and body; never from https to http, never to
/// another protocol; header fields with credentials do not go to another origin. TLS verifies peer
/// and host against the system's certificates (SSL_CERT_DIR and SSL_CERT_FILE name others).
/// Proxies come from the environment. An answer of any status is a response.
///
/// For one thread. Destroying it abandons the request.
class HttpExchange {
public:
    HttpExchange(HttpRequest request, HttpLimits limits);
    ~HttpExchange();
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    /// Works on the exchange until it ends or the time is over; returns as soon as it has ended.
    /// @return true when the exchange has ended.
    bool wait(std::chrono::milliseconds atMost);

    /// How it ended. Only after wait() has returned true.
    [[nodiscard]] HttpOutcome takeOutcome();

private:
    class Transfer;
    std::unique_ptr<Transfer> transfer_;
};

} // namespace stowline::platform
