// One HTTP(S) request and its response: the only way out to the network.
#pragma once

#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/values/Error.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

enum class HttpVersion { http10, http11 };

struct HttpRequest {
    std::string method = "POST"; ///< a token (RFC 9110 section 9.1)
    std::string url;             ///< http or https
    /// Sent in this order and exactly so; nothing is added but Host, Connection matters and the
    /// length of a body that is not empty, unless a header states one. A name or value with CR, LF
    /// or NUL fails the exchange unsent.
    std::vector<HttpHeader> headers;
    std::string_view body; ///< must outlive the exchange; not copied
    HttpVersion version = HttpVersion::http11;
    bool staysAtOrigin = false;  ///< a redirect to another origin is a failure, also without a body
    bool bodyMustArrive = false; ///< so is one that asks for a GET instead of the body
    /// A header in which the request carries a number that nobody knows, drawn afresh for each
    /// sending. A server that knows it says in its answer which number it read, and how many bytes
    /// of a body. An answer that names another request, or a length that is not the body's, is a
    /// failure. Empty: no such header, and whatever comes is the answer.
    std::string requestIdHeader = {};
    /// That the server takes it twice is harmless. Only such a request, and only with a number,
    /// uses a connection that an earlier one left open. When that ends unanswered, or brings an
    /// answer that does not name this request, it is sent again on a new one.
    bool mayArriveTwice = false;
    std::string proxy = {};   ///< as "http://host:port"; empty: what the environment says
    bool usesNoProxy = false; ///< whatever the environment says
};

struct HttpLimits {
    std::size_t maximumResponseBytes = std::size_t(64) << 20; ///< of one response, headers included
    int maximumRedirects = 10;
};

/// Why there is no response.
enum class HttpFailure {
    none = 0,
    address = 1,    ///< the URL is not an http or https address
    request = 2,    ///< the method or a header cannot be sent
    connection = 3, ///< name, connection, TLS, or an answer that broke off or is not HTTP
    redirect = 4,   ///< one that is not followed
    size = 5,       ///< the answer is larger than allowed
    stopped = 6,    ///< this thread was asked to stop
};

/// What is wrong with a server's certificate.
enum class CertificateFault {
    none,
    unknownIssuer,
    selfSigned,
    expired,
    notYetValid,
    otherHost,
    noTrust, ///< what is trusted cannot be read (SSL_CERT_FILE, SSL_CERT_DIR)
    other
};

/// How an exchange ended: a response, or a sentence that says why there is none.
struct HttpOutcome {
    std::optional<std::string> response; ///< status line, headers and body exactly as received
    std::string body;                    ///< the body with its transfer coding removed, less what
                                         ///< takeBody() took
    std::string failure;                 ///< a sentence for people when there is no response
    HttpFailure kind = HttpFailure::none;
    FailureKind reason = FailureKind::unspecified; ///< the same more finely, as errors carry it
    CertificateFault certificate = CertificateFault::none; ///< when the reason is the certificate
};

/// Sends a request when it is made and moves on only inside wait(). Follows redirects 301, 302 and
/// 303 with GET, 307 and 308 with the same method and body; never from https to http, never to
/// another protocol; neither a body nor header fields with credentials go to another origin. TLS
/// verifies peer and host against the system's certificates (SSL_CERT_DIR and SSL_CERT_FILE name
/// others). Proxies come from the environment unless the request names one. An answer of any status
/// is a response.
///
/// A connection is kept for requests of any thread, to the same origin and by the same proxy and
/// trust roots, after a whole answer below status 400 that names its request; it is closed after a
/// few seconds without use, and so is one on which anything arrives meanwhile. TLS sessions are
/// kept for the connections after them.
///
/// Ends as failed soon after the thread that makes and works on it is asked to stop (StopRequest),
/// whatever the network does; one made after that sends nothing.
///
/// For one thread. Destroying it abandons the request, and waits for nothing: a look-up of a name
/// that is under way ends by itself.
class HttpExchange {
public:
    HttpExchange(HttpRequest request, HttpLimits limits);
    ~HttpExchange();
    HttpExchange(const HttpExchange&) = delete;
    HttpExchange& operator=(const HttpExchange&) = delete;

    /// Works on the exchange until it ends or the time is over; returns as soon as it has ended.
    /// @return true when the exchange has ended.
    bool wait(std::chrono::milliseconds atMost);

    /// Works on the exchange until bytes were sent or received, it ends, or the time is over. What
    /// the system has taken to send counts as sent when the other side acknowledges it.
    /// @return whether anything moved.
    bool waitForEvent(std::chrono::milliseconds atMost);

    /// Whether a connection has been made, TLS included, for where the request goes now: after a
    /// redirect or a second try it is made anew; whether the exchange has ended.
    [[nodiscard]] bool isConnected() const;
    [[nodiscard]] bool hasEnded() const;

    /// What has arrived of the body and was not taken yet. Of a redirect that is followed, nothing.
    [[nodiscard]] std::string takeBody();

    /// How it ended. Only after wait() has returned true.
    [[nodiscard]] HttpOutcome takeOutcome();

private:
    class Transfer;
    std::unique_ptr<Transfer> transfer_;
};

/// Does once what the first exchange of a process would do: initialises the libraries. Opens no
/// connection and starts no thread; the libraries notice a fork() and draw random numbers afresh.
void prepareForExchanges();

/// Does once what the first exchange over TLS would do, in a process that is forked for exchanges
/// later: looks up every algorithm that a client offers, which takes a millisecond. The same holds.
void prepareForTls();

/// Does a piece of what the first exchange over TLS would do, in a process that is forked for
/// exchanges later: reads the next of the trusted certificates where they are in a file. In a
/// process of one thread, which learns no secret by it.
/// @return whether there is more to do
bool prepareSomeTrust();

} // namespace stowline::platform
