#include "devserver/WebServer.h"

#include "devserver/HttpServers.h"
#include "devserver/OwnAddress.h"
#include "devserver/PartEndpoint.h"
#include "devserver/RecoveryEndpoint.h"
#include "devserver/SoapEndpoint.h"
#include "devserver/Wsdl.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/network/Sockets.h"
#include "stowline/service/PartHeaders.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace stowline::devserver {

namespace {

constexpr const char* kLoopback = "127.0.0.1";
/// Where hosts look for a provider's settings (RFC 8615).
constexpr const char* kSettingsPath = "/.well-known/stowline/settings.plist";
constexpr int kMostWaiting = 1024; ///< connections that nobody has taken yet; the library's are 5
constexpr const char* kHtmlPage = "<!DOCTYPE html><html><head><title>Not the service</title></head>"
                                  "<body><p>Terms & conditions<br></body></html>";

std::string onOneLine(std::string text)
{
    std::ranges::replace_if(
        text, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; }, '?');
    return text;
}

} // namespace

class WebServer::Implementation {
public:
    Implementation(const std::vector<Service>& services, const PartContext& parts,
                   FaultPlan& faults, const std::optional<TlsFiles>& tls)
        : parts_(parts), faults_(faults), scheme_(tls ? "https" : "http")
    {
        server_ =
            tls ? makeHttpsServer(tls->certificate.string(), tls->key.string()) : makeHttpServer();
        if (!server_->is_valid())
            throw std::runtime_error("The certificate or its key cannot be used; a key that is "
                                     "encrypted must be decrypted first");
        server_->set_logger(logCall);
        server_->set_socket_options([this](int socket) {
            platform::takePortAlone(socket);
            listening_ = socket;
        });
        for (const Service& service : services)
            serve(service);
        serveParts();
    }

    void servePage(std::function<PageAnswer(const PageRequest&)> answer)
    {
        const auto handle = [this, answer = std::move(answer)](const httplib::Request& request,
                                                               httplib::Response& response) {
            PageAnswer given = answer({.method = request.method,
                                       .path = request.path,
                                       .cookies = request.get_header_value("Cookie"),
                                       .knownTag = request.get_header_value("If-None-Match"),
                                       .contentType = request.get_header_value("Content-Type"),
                                       .body = request.body,
                                       .own = {scheme_, port_}});
            response.status = given.status;
            for (const auto& [header, value] : given.headers)
                response.set_header(header.c_str(), value);
            if (!given.body.empty())
                response.set_content(given.body, given.contentType.c_str());
        };
        for (const char* path : {"/", "/overview", "/sign-in"})
            server_->Get(path, handle);
        for (const char* path : {"/sign-in", "/sign-out"})
            server_->Post(path, handle);
    }

    void serveSettings(std::string settings)
    {
        server_->Get(kSettingsPath, [settings = std::move(settings)](const auto&, auto& response) {
            response.set_content(settings, "application/xml");
        });
    }

    std::optional<int> bind(int port)
    {
        port_ = port == 0 ? server_->bind_to_any_port(kLoopback)
                          : (server_->bind_to_port(kLoopback, port) ? port : -1);
        if (port_ <= 0)
            return std::nullopt;
        platform::letConnectionsWait(listening_, kMostWaiting);
        return port_;
    }

    [[nodiscard]] std::string address() const
    {
        return scheme_ + "://" + kLoopback + ":" + std::to_string(port_);
    }

    void run() { server_->listen_after_bind(); }

    void stop()
    {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        stopped_.notify_all();
        // The library forgets a stop that comes before it runs.
        while (!server_->is_running())
            std::this_thread::yield();
        server_->stop();
    }

private:
    /// Bodies hold passwords and are not logged.
    static void logCall(const httplib::Request& request, const httplib::Response& response)
    {
        const bool isCall = request.path.ends_with(".asmx");
        STOWLINE_LOG_INFO("%@ %@ (%@, %lu bytes) answered with %d", request.method,
                          onOneLine(request.path),
                          isCall ? calledNow_ : response.get_header_value(partHeader::status),
                          request.body.size(), response.status);
    }

    void serve(const Service& service)
    {
        server_->Get(service.path, [this, &service](const auto& request, auto& response) {
            if (request.has_param("wsdl"))
                response.set_content(wsdlFor(service, address() + service.path), "text/xml");
            else
                response.set_redirect(service.path + "?wsdl");
        });
        server_->Post(service.path, [this, &service](const auto& request, auto& response) {
            calledNow_ = calledMethod(request.body);
            const auto fault = faults_.next(calledNow_);
            if (fault)
                fail(*fault, service, request, response);
            else
                write(answerCall(service, request.body), response);
        });
    }

    void serveParts()
    {
        server_->Get("/GetServerPartInfo", [this](const auto& request, auto& response) {
            answerPlain("GetServerPartInfo", request, response,
                        [&] { return answerPartInfo(parts_.storage, headersOf(request)); });
        });
        server_->Get("/DownloadFilePart", [this](const auto& request, auto& response) {
            answerPlain("DownloadFilePart", request, response, [&] {
                DownloadAnswer answer =
                    answerDownload(parts_.storage, parts_.tickets, headersOf(request));
                response.set_content(std::move(answer.body), "application/octet-stream");
                return std::move(answer.headers);
            });
        });
        server_->Post("/UploadFilePart", [this](const auto& request, auto& response) {
            uploadPart(request, response);
        });
        // The library would wait for the end of the connection when no length is stated.
        server_->set_pre_routing_handler([this](const auto& request, auto& response) {
            calledNow_.clear();
            if (isForeign(request)) {
                response.status = 403;
                response.set_header("Connection", "close");
                response.set_content("This service answers to its own address only.\n",
                                     "text/plain");
                return httplib::Server::HandlerResponse::Handled;
            }
            if (request.path != "/UploadFilePart" || request.method != "POST" ||
                request.has_header("Content-Length") || request.has_header("Transfer-Encoding"))
                return httplib::Server::HandlerResponse::Unhandled;
            uploadPart(request, response);
            return httplib::Server::HandlerResponse::Handled;
        });
    }

    /// Whether a request is for another name than this service's, or comes from another page: a
    /// page of the web whose name leads here must reach nothing.
    [[nodiscard]] bool isForeign(const httplib::Request& request) const
    {
        const OwnAddress own{scheme_, port_};
        return !isOwnHost(own, request.get_header_value("Host")) ||
               (request.has_header("Origin") &&
                !isOwnOrigin(own, request.get_header_value("Origin")));
    }

    void uploadPart(const httplib::Request& request, httplib::Response& response)
    {
        answerPlain("UploadFilePart", request, response, [&] {
            const RequestHeaders header = headersOf(request);
            if (parts_.requiresTicket && !hasTicket(parts_.tickets, header))
                return PartAnswer{{partHeader::status, "false"},
                                  {partHeader::reason, partReason::ticketRefused}};
            return answerPart(parts_.storage, header, request.body);
        });
    }

    static RequestHeaders headersOf(const httplib::Request& request)
    {
        return [&request](const char* name) { return request.get_header_value(name); };
    }

    template <class Work>
    void answerPlain(const std::string& name, const httplib::Request& request,
                     httplib::Response& response, Work work)
    {
        const auto fault = faults_.next(name);
        const bool isDone = !fault || *fault == FaultKind::lost || *fault == FaultKind::lie;
        PartAnswer answer = isDone ? work() : PartAnswer{{partHeader::status, "false"}};
        if (fault && *fault == FaultKind::lie)
            answer[partHeader::receivedBytes] = "1000000000000";
        if (fault && *fault == FaultKind::garbage)
            answer = {{partHeader::status, "perhaps"}, {partHeader::receivedBytes, "many"}};
        if (fault && !isDone && *fault != FaultKind::soapFault && *fault != FaultKind::garbage)
            return failPlain(*fault, request, response);
        nameRequest(request, response);
        for (const auto& [header, value] : answer)
            response.set_header(header.c_str(), value);
        if (fault && *fault == FaultKind::lost)
            tearDown(request, response);
    }

    /// Says to which request this is the answer, and how much of it was read, where the client gave
    /// it a number.
    static void nameRequest(const httplib::Request& request, httplib::Response& response)
    {
        const std::string number = request.get_header_value(partHeader::requestId);
        if (platform::isToken(number))
            response.set_header(partHeader::requestId,
                                number + " " + std::to_string(request.body.size()));
    }

    void failPlain(FaultKind kind, const httplib::Request& request, httplib::Response& response)
    {
        switch (kind) {
        case FaultKind::errorPage:
            return write({500, "text/html", kHtmlPage}, response);
        case FaultKind::htmlPage:
            return write({200, "text/html", kHtmlPage}, response);
        case FaultKind::stall:
            (void)pause(std::chrono::hours(1));
            return;
        case FaultKind::drip:
            return writeSlowly(kHtmlPage, response, [this](std::size_t, std::size_t) {
                return pause(std::chrono::seconds(1));
            });
        default:
            return tearDown(request, response);
        }
    }

    static void tearDown(const httplib::Request& request, httplib::Response& response)
    {
        platform::resetOnClose(static_cast<std::uint16_t>(request.remote_port));
        response.set_content_provider(1, "text/xml", [](auto, auto, auto&) { return false; });
    }

    static void write(const Answer& answer, httplib::Response& response)
    {
        response.status = answer.status;
        response.set_content(answer.body, answer.contentType.c_str());
    }

    static Answer idleSuccess(Service service, const std::string& request)
    {
        for (ServiceMethod& method : service.methods)
            method.handle = [result = method.results.at(0).name](const Dictionary&) {
                return Dictionary{{result, "Success"}};
            };
        return answerCall(service, request);
    }

    void fail(FaultKind kind, const Service& service, const httplib::Request& request,
              httplib::Response& response)
    {
        switch (kind) {
        case FaultKind::soapFault:
            return write(faultAnswer("Server", "This call fails on purpose"), response);
        case FaultKind::errorPage:
            return write({500, "text/html", kHtmlPage}, response);
        case FaultKind::htmlPage:
            return write({200, "text/html", kHtmlPage}, response);
        case FaultKind::garbage:
            return write({200, "text/xml", "<Envelope><Body></Envelope>"}, response);
        case FaultKind::cut:
            return writeSlowly(answerCall(service, request.body).body, response,
                               [](std::size_t position, std::size_t size) {
                                   return position < size / 2; // then the connection closes
                               });
        case FaultKind::drip:
            return writeSlowly(
                answerCall(service, request.body).body, response,
                [this](std::size_t, std::size_t) { return pause(std::chrono::seconds(1)); });
        case FaultKind::lost:
            (void)answerCall(service, request.body);
            return tearDown(request, response);
        case FaultKind::lie:
            return write(idleSuccess(service, request.body), response);
        case FaultKind::reset:
            return tearDown(request, response);
        case FaultKind::stall:
            (void)pause(std::chrono::hours(1));
            response.set_header("Connection", "close");
            return;
        }
    }

    /// Sends a body byte by byte, each only when the condition says so; else the connection ends.
    template <class Condition>
    static void writeSlowly(std::string body, httplib::Response& response, Condition mayGoOn)
    {
        const std::size_t size = body.size();
        response.set_content_provider(
            size, "text/xml; charset=utf-8",
            [body = std::move(body), mayGoOn](std::size_t offset, std::size_t, auto& sink) {
                if (!mayGoOn(offset, body.size()))
                    return false;
                return sink.write(body.data() + offset, 1);
            });
    }

    /// @return false when the server is to stop.
    bool pause(std::chrono::seconds time)
    {
        std::unique_lock lock(mutex_);
        return !stopped_.wait_for(lock, time, [this] { return stopping_; });
    }

    static inline thread_local std::string calledNow_; ///< by the request that this thread answers
    const PartContext parts_;
    FaultPlan& faults_;
    std::string scheme_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    int listening_ = -1;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stopping_ = false;
};

WebServer::WebServer(const std::vector<Service>& services, const PartContext& parts,
                     FaultPlan& faults, const std::optional<TlsFiles>& tls)
    : implementation_(std::make_unique<Implementation>(services, parts, faults, tls))
{
}

WebServer::~WebServer() = default;

void WebServer::servePage(std::function<PageAnswer(const PageRequest&)> answer)
{
    implementation_->servePage(std::move(answer));
}

void WebServer::serveSettings(std::string settings)
{
    implementation_->serveSettings(std::move(settings));
}

std::optional<int> WebServer::bind(int port)
{
    return implementation_->bind(port);
}

std::string WebServer::address() const
{
    return implementation_->address();
}

void WebServer::run()
{
    implementation_->run();
}

void WebServer::stop()
{
    implementation_->stop();
}

} // namespace stowline::devserver
