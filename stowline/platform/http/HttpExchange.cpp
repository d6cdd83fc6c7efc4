#include "stowline/platform/http/HttpExchange.h"

#include "stowline/platform/http/AnswerTie.h"
#include "stowline/platform/http/ConnectionConditions.h"
#include "stowline/platform/http/HttpRequestRules.h"
#include "stowline/platform/http/KeptConnections.h"
#include "stowline/platform/http/PreparedTrust.h"
#include "stowline/platform/http/TrustRoots.h"
#include "stowline/platform/text/Credentials.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/threads/StopRequest.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <utility>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

void prepareLibrary()
{
    static const CURLcode prepared = curl_global_init(CURL_GLOBAL_ALL);
    (void)prepared;
}

constexpr std::string_view kStopped = "The request was stopped.";

/// How long to wait at once where a request to stop has no descriptor.
constexpr std::chrono::milliseconds kLook{50};

/// @param withSpare whether the file to spare is loaded too
void setTrustRoots(CURL* handle, const TrustRoots& roots, bool withSpare)
{
    const std::string& file = withSpare ? roots.spareFile : roots.file;
    if (file.empty() && roots.folder.empty())
        return; // what the library was built with
    if (!withSpare && usePreparedTrust(handle, roots))
        return;
    curl_easy_setopt(handle, CURLOPT_CAINFO, file.empty() ? nullptr : file.c_str());
    curl_easy_setopt(handle, CURLOPT_CAPATH, roots.folder.empty() ? nullptr : roots.folder.c_str());
}

FailureKind reasonOf(HttpFailure failure)
{
    switch (failure) {
    case HttpFailure::none:
        return FailureKind::unspecified;
    case HttpFailure::address:
        return FailureKind::invalidSettings;
    case HttpFailure::request:
        return FailureKind::unsendableValue;
    case HttpFailure::connection:
        return FailureKind::connection;
    case HttpFailure::redirect:
        return FailureKind::refusedRedirect;
    case HttpFailure::size:
        return FailureKind::tooLarge;
    case HttpFailure::stopped:
        return FailureKind::stopped;
    }
    return FailureKind::unspecified;
}

/// What is wrong with the certificate after a transfer that ended for it. The numbers are those of
/// X509_STORE_CTX_get_error(3); a wrong name is found by the library itself, before it notes them.
CertificateFault certificateFaultOf(CURL* handle)
{
    long verdict = 0;
    curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verdict);
    switch (verdict) {
    case 0:
    case 1: // what stands there until the certificate itself is found to be well
    case 62:
    case 64:
        return CertificateFault::otherHost;
    case 9:
        return CertificateFault::notYetValid;
    case 10:
        return CertificateFault::expired;
    case 18:
        return CertificateFault::selfSigned;
    case 2:
    case 19:
    case 20:
    case 21:
        return CertificateFault::unknownIssuer;
    default:
        return CertificateFault::other;
    }
}

/// Why a transfer ended without a response.
FailureKind reasonOf(CURL* handle, CURLcode result)
{
    long proxyStatus = 0; // of the request for a tunnel
    curl_easy_getinfo(handle, CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
    if (proxyStatus >= 300)
        return FailureKind::proxyRefused;
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return FailureKind::nameNotFound;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
        return FailureKind::certificate;
    case CURLE_OPERATION_TIMEDOUT:
        return FailureKind::timeOut;
    default:
        return FailureKind::connection;
    }
}

/// Whether a connection ended under a transfer, in whichever direction that was noticed.
bool isLostConnection(CURLcode result)
{
    return result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR || result == CURLE_GOT_NOTHING;
}

} // namespace

class HttpExchange::Transfer {
public:
    Transfer(HttpRequest request, HttpLimits limits) : request_(std::move(request)), limits_(limits)
    {
        prepareLibrary();
        connections_ = connectionsFor(request_, trust_);
        if (isStopRequested())
            fail(HttpFailure::stopped, std::string(kStopped));
        else
            startHop();
    }

    ~Transfer()
    {
        detach();
        easy_.reset();
        if (isConnectionSound_)
            KeptConnections::shared().giveBack(std::move(connections_));
    }

    bool wait(std::chrono::milliseconds atMost)
    {
        const auto deadline = Clock::now() + atMost;
        while (!work()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                break;
            poll(left);
        }
        return ended_;
    }

    bool waitForEvent(std::chrono::milliseconds atMost)
    {
        const auto deadline = Clock::now() + atMost;
        moved_ = false;
        for (;;) {
            if (work() || moved_)
                return true;
            const std::size_t before = connections_->sockets.unacknowledged();
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return false;
            // Also the parts of a header line count as something, and what the system holds for us
            // as long as the other side takes of it.
            if (poll(before > 0 ? std::min(left, kLook) : left) > 0) {
                (void)work();
                return true;
            }
            if (connections_->sockets.unacknowledged() < before) {
                (void)work();
                return true;
            }
        }
    }

    [[nodiscard]] bool isConnected() const { return connected_; }
    [[nodiscard]] bool hasEnded() const { return ended_; }
    [[nodiscard]] std::string takeBody()
    {
        return mayRedirect() ? std::string() : std::exchange(outcome_.body, {});
    }

    HttpOutcome takeOutcome() { return std::move(outcome_); }

private:
    /// Does what can be done without waiting. @return whether the exchange has ended
    bool work()
    {
        if (!ended_) {
            int running = 0;
            curl_multi_perform(multi(), &running);
            if (isOutOfMemory_)
                throw std::bad_alloc();
            collectFinished();
        }
        if (!ended_ && isStopRequested())
            fail(HttpFailure::stopped, std::string(kStopped));
        return ended_;
    }

    /// Those that were kept where the request may use them.
    static std::unique_ptr<ConnectionSet> connectionsFor(const HttpRequest& request,
                                                         const TrustRoots& roots)
    {
        const auto origin = originOf(request.url);
        if (!usesKept(request) || !origin)
            return ConnectionSet::made();
        return KeptConnections::shared().take(textOf(*origin),
                                              connectionConditions(request, roots));
    }

    /// Whose answer cannot be told from another one's gets a connection of its own.
    static bool usesKept(const HttpRequest& request)
    {
        return request.mayArriveTwice && !request.requestIdHeader.empty();
    }

    [[nodiscard]] CURLM* multi() const { return connections_->multi.get(); }

    [[nodiscard]] bool isStopRequested() const { return stop_ && stop_->isRequested(); }

    /// Waits until there is something to do. @return how many of the exchange's sockets are ready
    int poll(std::chrono::milliseconds atMost)
    {
        curl_waitfd stopped{stop_ ? stop_->descriptor() : -1, CURL_WAIT_POLLIN, 0};
        const bool canWait = stopped.fd >= 0;
        if (stop_ && !canWait)
            atMost = std::min(atMost, kLook);
        int ready = 0;
        curl_multi_poll(multi(), &stopped, canWait ? 1 : 0, static_cast<int>(atMost.count()),
                        &ready);
        return ready - (canWait && stopped.revents != 0 ? 1 : 0);
    }

    void fail(HttpFailure kind, const std::string& sentence)
    {
        fail(kind, sentence, reasonOf(kind));
    }

    void fail(HttpFailure kind, const std::string& sentence, FailureKind reason)
    {
        outcome_.response.reset();
        outcome_.failure = textWithoutCredentials(sentence);
        outcome_.kind = kind;
        outcome_.reason = reason;
        ended_ = true;
    }

    /// Whether the answer that is arriving may be one to follow; its body is nobody's then.
    [[nodiscard]] bool mayRedirect() const
    {
        long status = 0;
        if (easy_ && !ended_)
            curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        return redirectFor(status) != Redirect::none;
    }

    void detach()
    {
        if (easy_)
            curl_multi_remove_handle(multi(), easy_.get());
    }

    /// Begins the request for the current URL.
    void startHop()
    {
        const auto origin = originOf(request_.url);
        if (!origin) {
            fail(HttpFailure::address,
                 "\"" + withoutCredentials(request_.url) + "\" is not an http or https address.");
            return;
        }
        if (auto fault = requestFault(request_)) {
            fail(HttpFailure::request, *fault);
            return;
        }
        origin_ = *origin;
        detach();
        easy_.reset(curl_easy_init());
        outcome_ = {};
        raw_.clear();
        connected_ = false;
        limitReached_ = false;
        isBeingAnswered_ = false;
        isAnswerRefused_ = false;
        tie_ = AnswerTie::none;
        id_ = request_.requestIdHeader.empty() ? std::string() : drawnRequestId();
        if (id_.empty() && !request_.requestIdHeader.empty())
            needsNewConnection_ = true; // over a kept one nobody could tell whose answer it is
        openedBefore_ = connections_->sockets.openedSoFar();
        errorText_.fill(0);
        setOptions();
        setHeaders();
        curl_multi_add_handle(multi(), easy_.get());
    }

    void setOptions()
    {
        CURL* handle = easy_.get();
        curl_easy_setopt(handle, CURLOPT_URL, request_.url.c_str());
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(handle, CURLOPT_HTTP_VERSION,
                         request_.version == HttpVersion::http10 ? CURL_HTTP_VERSION_1_0
                                                                 : CURL_HTTP_VERSION_1_1);
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle, CURLOPT_SOCKOPTFUNCTION, &OpenSockets::onOpen);
        curl_easy_setopt(handle, CURLOPT_SOCKOPTDATA, &connections_->sockets);
        curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, &OpenSockets::onClose);
        curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, &connections_->sockets);
        // A thread that looks up a name is left to end by itself when the exchange is abandoned.
        curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
        setTrustRoots(handle, trust_, connections_->needsSpareTrust);
        setReuse();
        curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText_.data());
        if (request_.method == "HEAD")
            curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        else if (request_.body.empty())
            curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
        else
            setBody();
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
        if (!request_.proxy.empty() || request_.usesNoProxy) // an empty one is none
            curl_easy_setopt(handle, CURLOPT_PROXY,
                             request_.usesNoProxy ? "" : request_.proxy.c_str());
        curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &onConnected);
        curl_easy_setopt(handle, CURLOPT_PREREQDATA, this);
        curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &onHeader);
        curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &onBody);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
        // Only the trace hands over body bytes with their chunk framing, as they were received.
        curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
        curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, &onTrace);
        curl_easy_setopt(handle, CURLOPT_DEBUGDATA, this);
    }

    void setReuse()
    {
        constexpr auto idle = static_cast<long>(KeptConnections::kIdleTime.count());
        curl_easy_setopt(easy_.get(), CURLOPT_MAXAGE_CONN, idle);
        curl_easy_setopt(easy_.get(), CURLOPT_FRESH_CONNECT, needsNewConnection_ ? 1L : 0L);
        if (connections_->sessions)
            curl_easy_setopt(easy_.get(), CURLOPT_SHARE, connections_->sessions->handle());
    }

    void setBody()
    {
        constexpr long sendBufferBytes = 512L * 1024;
        CURL* handle = easy_.get();
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request_.body.size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request_.body.data());
        curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, sendBufferBytes);
    }

    static int onConnected(void* self, char*, char*, int, int)
    {
        static_cast<Transfer*>(self)->connected_ = true;
        return CURL_PREREQFUNC_OK;
    }

    void setHeaders()
    {
        headers_.reset();
        const auto add = [this](const std::string& line) {
            if (curl_slist* longer = curl_slist_append(headers_.get(), line.c_str())) {
                (void)headers_.release();
                headers_.reset(longer);
            }
        };
        // What the library would add by itself and this system never sends.
        for (const char* unwanted : {"Accept", "Expect", "Content-Type"}) {
            if (!hasHeader(unwanted))
                add(std::string(unwanted) + ":");
        }
        for (const auto& [name, value] : request_.headers) {
            // The semicolon sends it without a value.
            if (id_.empty() || !equalsIgnoringAsciiCase(name, request_.requestIdHeader))
                add(isBlank(value) ? name + ";" : std::string(name).append(": ").append(value));
        }
        if (!id_.empty())
            add(request_.requestIdHeader + ": " + id_);
        curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers_.get());
    }

    /// The library leaves out a header that is nothing but these.
    static bool isBlank(std::string_view text)
    {
        return text.find_first_not_of(" \t\v\f") == std::string_view::npos;
    }

    bool hasHeader(std::string_view wanted) const
    {
        return findHeader(request_.headers, wanted) != nullptr;
    }

    void beginHeaders()
    {
        raw_.clear();
        headersEnded_ = false;
    }

    static std::size_t onHeader(char* bytes, std::size_t, std::size_t length, void* self)
    {
        auto& transfer = *static_cast<Transfer*>(self);
        const std::string_view line(bytes, length);
        if (line.starts_with("HTTP/")) // also after an interim response
            transfer.beginHeaders();
        const bool isEnd = !transfer.headersEnded_ && (line == "\r\n" || line == "\n");
        transfer.headersEnded_ |= isEnd;
        return transfer.keep(line) && (!isEnd || transfer.takeHead()) ? length : 0;
    }

    /// Looks at a whole head before anything of the body is taken.
    /// @return whether what follows is believed
    [[nodiscard]] bool takeHead() noexcept
    {
        try {
            long status = 0;
            curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
            constexpr long firstFinal = 200;
            if (id_.empty() || status < firstFinal)
                return true;
            tie_ = answerTieIn(raw_, request_.requestIdHeader, id_, request_.body.size());
            // Who has not been given all has not read all.
            if (tie_ == AnswerTie::whole && !isBodySent())
                tie_ = AnswerTie::foreign;
            isAnswerRefused_ =
                tie_ == AnswerTie::foreign || (tie_ == AnswerTie::none && isOverKept());
        } catch (const std::bad_alloc&) {
            isOutOfMemory_ = true;
        }
        return !isAnswerRefused_ && !isOutOfMemory_;
    }

    [[nodiscard]] bool isBodySent() const
    {
        curl_off_t sent = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
        return sent >= static_cast<curl_off_t>(request_.body.size());
    }

    /// Whether this request goes over a connection that an earlier one left open.
    [[nodiscard]] bool isOverKept() const
    {
        return connections_->sockets.openedSoFar() == openedBefore_;
    }

    static std::size_t onBody(char* bytes, std::size_t, std::size_t length, void* self)
    {
        auto& transfer = *static_cast<Transfer*>(self);
        const bool kept =
            transfer.appended(transfer.outcome_.body, {bytes, length}) && !transfer.limitReached_;
        return kept ? length : 0;
    }

    static int onTrace(CURL*, curl_infotype kind, char* bytes, std::size_t length, void* self)
    {
        if (kind != CURLINFO_TEXT)
            static_cast<Transfer*>(self)->moved_ = true;
        if (kind == CURLINFO_HEADER_IN || kind == CURLINFO_DATA_IN)
            static_cast<Transfer*>(self)->isBeingAnswered_ = true;
        if (kind == CURLINFO_DATA_IN)
            (void)static_cast<Transfer*>(self)->keep({bytes, length});
        return 0;
    }

    [[nodiscard]] bool keep(std::string_view bytes)
    {
        limitReached_ = limitReached_ || raw_.size() + bytes.size() > limits_.maximumResponseBytes;
        return !limitReached_ && appended(raw_, bytes);
    }

    /// Nothing may be thrown through curl: a lack of memory is thrown again when it has returned.
    [[nodiscard]] bool appended(std::string& text, std::string_view bytes) noexcept
    {
        try {
            text.append(bytes);
        } catch (const std::bad_alloc&) {
            isOutOfMemory_ = true;
        }
        return !isOutOfMemory_;
    }

    void collectFinished()
    {
        int waiting = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi(), &waiting)) {
            if (message->msg == CURLMSG_DONE) {
                finishHop(message->data.result);
                return;
            }
        }
    }

    /// What the library says of a failure. Its texts may quote addresses, a proxy's with the
    /// password for one: such a text is replaced by the general one.
    [[nodiscard]] std::string detailOf(CURLcode result) const
    {
        const std::string_view said = errorText_.data();
        const bool quotesAddress =
            said.find('@') != std::string_view::npos || said.find("//") != std::string_view::npos;
        if (said.starts_with("Unsupported proxy"))
            return "the address of the proxy cannot be used";
        return said.empty() || quotesAddress ? curl_easy_strerror(result) : std::string(said);
    }

    void finishHop(CURLcode result)
    {
        if (limitReached_) {
            fail(HttpFailure::size, "The answer from " + origin_.host + " is larger than " +
                                        std::to_string(limits_.maximumResponseBytes) + " bytes.");
            return;
        }
        if (result != CURLE_OK && mayKnowIssuerYet()) {
            connections_->needsSpareTrust = true;
            startHop(); // nothing of the request was sent
            return;
        }
        const bool isUnanswered = isLostConnection(result) && !isBeingAnswered_;
        if ((isUnanswered || isAnswerRefused_) && mayTryNewConnection()) {
            needsNewConnection_ = true;
            startHop();
            return;
        }
        if (isAnswerRefused_) {
            fail(HttpFailure::connection,
                 "The answer from " + origin_.host + " is not to this request.",
                 FailureKind::unreadableAnswer);
            return;
        }
        if (result != CURLE_OK) {
            fail(HttpFailure::connection,
                 "The call to " + origin_.host + " failed: " + detailOf(result) + ".",
                 reasonOf(easy_.get(), result));
            if (outcome_.reason == FailureKind::certificate)
                outcome_.certificate = result == CURLE_SSL_CACERT_BADFILE
                                           ? CertificateFault::noTrust
                                           : certificateFaultOf(easy_.get());
            return;
        }
        if (!headersEnded_) { // which the library takes for a response without a body
            fail(HttpFailure::connection, "The answer from " + origin_.host + " broke off.");
            return;
        }
        long status = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        char* location = nullptr;
        curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &location);
        const Redirect redirect = redirectFor(status);
        if (redirect != Redirect::none && location) {
            follow(location, redirect);
            return;
        }
        outcome_.response = std::move(raw_);
        // One that did not understand a request may have taken its body for another.
        constexpr long firstRefusal = 400;
        isConnectionSound_ =
            tie_ == AnswerTie::whole && status < firstRefusal && redirects_ == 0 && mayReuse_;
        ended_ = true;
    }

    /// Whether a certificate was refused that the bundle of the system may know.
    [[nodiscard]] bool mayKnowIssuerYet() const
    {
        if (connections_->needsSpareTrust || trust_.spareFile.empty())
            return false;
        const auto fault = certificateFaultOf(easy_.get());
        return fault == CertificateFault::unknownIssuer || fault == CertificateFault::selfSigned;
    }

    /// Whether the fault may be that of a kept connection.
    [[nodiscard]] bool mayTryNewConnection() const
    {
        return mayReuse_ && isOverKept() && !needsNewConnection_;
    }

    void follow(const std::string& location, Redirect redirect)
    {
        std::optional<std::string> fault;
        if (++redirects_ > limits_.maximumRedirects)
            fault = "The server at " + origin_.host + " redirects more than " +
                    std::to_string(limits_.maximumRedirects) + " times.";
        else
            fault = redirectFault(request_, origin_, redirect, location);
        if (fault)
            return fail(HttpFailure::redirect, *fault);
        redirectRequest(request_, origin_, redirect, location);
        needsNewConnection_ |= !id_.empty(); // over which an answer need not name its request
        startHop();
    }

    const std::optional<StopRequest> stop_ =
        StopRequest::ofThisThread() ? std::optional(*StopRequest::ofThisThread()) : std::nullopt;
    HttpRequest request_;
    HttpLimits limits_;
    UrlOrigin origin_;
    const TrustRoots trust_ = trustRoots();
    const bool mayReuse_ = usesKept(request_); ///< also a connection of another exchange
    int redirects_ = 0;
    bool needsNewConnection_ = false;
    bool isBeingAnswered_ = false;
    bool isAnswerRefused_ = false;
    bool isConnectionSound_ = false; ///< after a whole answer to this very request
    std::size_t openedBefore_ = 0;   ///< connections, when this request began
    std::string id_;                 ///< of this request; empty: none
    AnswerTie tie_ = AnswerTie::none;
    bool ended_ = false;
    bool connected_ = false;
    bool headersEnded_ = false;
    bool moved_ = false;
    bool limitReached_ = false;
    bool isOutOfMemory_ = false;
    std::string raw_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    HttpOutcome outcome_;
    std::unique_ptr<ConnectionSet> connections_; // outlives the transfers over them
    std::unique_ptr<curl_slist, ListDeleter> headers_;
    std::unique_ptr<CURL, EasyDeleter> easy_;
};

HttpExchange::HttpExchange(HttpRequest request, HttpLimits limits)
    : transfer_(std::make_unique<Transfer>(std::move(request), limits))
{
}

HttpExchange::~HttpExchange() = default;

bool HttpExchange::wait(std::chrono::milliseconds atMost)
{
    return transfer_->wait(atMost);
}

bool HttpExchange::waitForEvent(std::chrono::milliseconds atMost)
{
    return transfer_->waitForEvent(atMost);
}

bool HttpExchange::isConnected() const
{
    return transfer_->isConnected();
}

bool HttpExchange::hasEnded() const
{
    return transfer_->hasEnded();
}

std::string HttpExchange::takeBody()
{
    return transfer_->takeBody();
}

HttpOutcome HttpExchange::takeOutcome()
{
    return transfer_->takeOutcome();
}

void prepareForExchanges()
{
    prepareLibrary();
}

void prepareForTls()
{
    SSL_CTX_free(SSL_CTX_new(TLS_client_method()));
}

bool prepareSomeTrust()
{
    return prepareTrust();
}

} // namespace stowline::platform
