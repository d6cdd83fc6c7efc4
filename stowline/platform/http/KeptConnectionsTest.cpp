// Connections that requests leave open for others, and what ties an answer to its request. Servers
// answer with the number of the connection.
#include "stowline/platform/http/HttpExchange.h"
#include "tests/support/Program.h"
#include "tests/support/RawServer.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;
using test::RawConnection;
using test::RawServer;

HttpOutcome perform(HttpRequest request)
{
    HttpExchange exchange(std::move(request), {});
    EXPECT_TRUE(exchange.wait(60s));
    return exchange.takeOutcome();
}

constexpr const char* kIdHeader = "X-RequestID";

HttpRequest part(const RawServer& server)
{
    return {.url = server.url(),
            .headers = {},
            .body = "part",
            .requestIdHeader = kIdHeader,
            .mayArriveTwice = true};
}

/// The number of a request.
std::string idOf(const std::string& request)
{
    const std::string name = std::string(kIdHeader) + ": ";
    const auto at = request.find(name) + name.size();
    return request.substr(at, request.find("\r\n", at) - at);
}

/// The field by which an answer names the request that it is to.
std::string naming(const std::string& request)
{
    const auto head = request.find("\r\n\r\n") + 4;
    return std::string(kIdHeader) + ": " + idOf(request) + " " +
           std::to_string(request.size() - head) + "\r\n";
}

std::string answerWith(const std::string& fields, const std::string& body,
                       const std::string& status = "200 OK")
{
    return "HTTP/1.1 " + status + "\r\n" + fields +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// The body of the answer, or the failure.
std::string answerTo(HttpRequest request)
{
    const auto outcome = perform(std::move(request));
    return outcome.response ? outcome.body : outcome.failure;
}

void answerAll(const std::string& request, const RawConnection& connection)
{
    connection.keepOpen();
    connection.send(answerWith(naming(request), std::to_string(connection.number())));
}

TEST(KeptConnections, AreUsedAgainByAnyThread)
{
    const RawServer server(answerAll);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(answerTo(part(server)), "1");
    std::thread([&] { EXPECT_EQ(answerTo(part(server)), "1"); }).join();
    EXPECT_EQ(server.requests().size(), 4U);
    EXPECT_EQ(server.connections(), 1U);
}

TEST(KeptConnections, AreForOneExchangeAtATime)
{
    const RawServer server(answerAll);
    HttpExchange first(part(server), {});
    EXPECT_EQ(answerTo(part(server)), "1");
    EXPECT_TRUE(first.wait(60s));
    EXPECT_EQ(first.takeOutcome().body, "2");
}

TEST(KeptConnections, AreNotUsedByWhatMustNotArriveTwice)
{
    const RawServer server(answerAll);
    EXPECT_EQ(answerTo(part(server)), "1");
    HttpRequest once = part(server);
    once.mayArriveTwice = false;
    EXPECT_EQ(answerTo(once), "2");
    EXPECT_EQ(answerTo(once), "3");
    EXPECT_EQ(answerTo(part(server)), "1");
}

TEST(KeptConnections, AreClosedWhenNobodyUsesThem)
{
    const RawServer server(answerAll);
    EXPECT_EQ(answerTo(part(server)), "1");
    EXPECT_EQ(server.openConnections(), 1U);
    while (server.openConnections() > 0)
        std::this_thread::sleep_for(20ms);
    EXPECT_EQ(answerTo(part(server)), "2");
}

TEST(KeptConnections, AreNotLeftOpenByARequestThatFails)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.keepOpen();
        connection.send("HTTP/1.1 200 OK\r\n" + naming(request) +
                        "Content-Length: 100\r\n\r\nnot all");
    });
    {
        HttpExchange exchange(part(server), {});
        while (server.requests().empty())
            EXPECT_FALSE(exchange.wait(5ms));
    }
    while (server.openConnections() > 0) // at once; the test would not end if it stayed open
        std::this_thread::sleep_for(5ms);
    EXPECT_EQ(server.connections(), 1U);
}

TEST(KeptConnections, AreNotUsedAfterARequestThatWasNotUnderstood)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.keepOpen();
        connection.send(answerWith(naming(request), std::to_string(connection.number()),
                                   "500 Internal Server Error"));
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    EXPECT_EQ(answerTo(part(server)), "2");
}

TEST(KeptConnections, ThatEndUnansweredAreTriedAgainOnNewOnes)
{
    for (const bool isReset : {false, true}) {
        std::atomic<int> requests = 0;
        const RawServer server([&](const std::string& request, const RawConnection& connection) {
            if (++requests != 2)
                answerAll(request, connection);
            else if (isReset)
                connection.reset();
        });
        EXPECT_EQ(answerTo(part(server)), "1");
        EXPECT_EQ(answerTo(part(server)), "2");
        const auto received = server.requests();
        ASSERT_EQ(received.size(), 3U);
        EXPECT_TRUE(received[1].ends_with("\r\n\r\npart"));
        EXPECT_EQ(received[2], received[1]);
    }
}

TEST(KeptConnections, ThatBeganToAnswerAreNotTriedAgain)
{
    std::atomic<int> requests = 0;
    const RawServer server([&](const std::string& request, const RawConnection& connection) {
        if (++requests == 1)
            return answerAll(request, connection);
        connection.send("HTTP/1.1 200 OK\r\n" + naming(request) +
                        "Content-Length: 9\r\n\r\nnot all");
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    const auto outcome = perform(part(server));
    EXPECT_FALSE(outcome.response);
    EXPECT_EQ(outcome.reason, FailureKind::connection);
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST(KeptConnections, ThatAreNewAreNotTriedAgain)
{
    const RawServer server(
        [](const std::string&, const RawConnection& connection) { connection.reset(); });
    EXPECT_FALSE(perform(part(server)).response);
    EXPECT_EQ(server.requests().size(), 1U);
}

TEST(KeptConnections, GiveNoAnswerThatCameBeforeTheRequest)
{
    std::promise<void> isAnswered;
    std::promise<void> isSent;
    const RawServer server([&](const std::string& request, const RawConnection& connection) {
        answerAll(request, connection);
        if (connection.number() > 1)
            return;
        isAnswered.get_future().wait();
        connection.send(answerWith(naming(request), "what nobody asked for"));
        isSent.set_value();
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    isAnswered.set_value();
    isSent.get_future().wait();
    EXPECT_EQ(answerTo(part(server)), "2");
}

TEST(KeptConnections, GiveNoAnswerThatCameWithAnotherOne)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.keepOpen();
        connection.send(answerWith(naming(request), std::to_string(connection.number())) +
                        answerWith(naming(request), "what nobody asked for"));
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    EXPECT_EQ(answerTo(part(server)), "2");
}

/// Answers the second request of the first connection with what a test makes of the first and the
/// second one, and all others as they should be.
RawServer::Handler answeringSecondWith(
    std::function<std::string(const std::string& first, const std::string& second)> makeAnswer)
{
    return [makeAnswer = std::move(makeAnswer), earlier = std::make_shared<test::SharedText>()](
               const std::string& request, const RawConnection& connection) {
        const std::string first = earlier->get();
        *earlier = request;
        if (connection.number() > 1 || first.empty())
            return answerAll(request, connection);
        connection.keepOpen();
        connection.send(makeAnswer(first, request));
    };
}

TEST(KeptConnections, GiveNoAnswerThatDoesNotNameTheRequest)
{
    const auto late = [](const std::string& first, const std::string&) {
        return answerWith("Status: true\r\n" + naming(first), "late");
    };
    const auto nameless = [](const std::string&, const std::string&) {
        return answerWith("Status: true\r\n", "of whom?");
    };
    const auto lateThenRight = [](const std::string& first, const std::string& second) {
        return answerWith(naming(first), "late") + answerWith(naming(second), "right");
    };
    const auto both = [](const std::string& first, const std::string& second) {
        return answerWith(naming(second) + naming(first), "of both");
    };
    const auto otherLength = [](const std::string&, const std::string& second) {
        return answerWith(std::string(kIdHeader) + ": " + idOf(second) + " 3\r\n", "cut short");
    };
    const auto redirect = [](const std::string& first, const std::string&) {
        return answerWith(naming(first) + "Location: /elsewhere\r\n", "", "307 Go");
    };
    const auto afterInterim = [](const std::string& first, const std::string& second) {
        return "HTTP/1.1 103 Early Hints\r\n" + naming(second) + "\r\n" +
               answerWith(naming(first), "late");
    };
    using Make = std::function<std::string(const std::string&, const std::string&)>;
    for (const Make& make : {Make(late), Make(nameless), Make(lateThenRight), Make(both),
                             Make(otherLength), Make(redirect), Make(afterInterim)}) {
        const RawServer server(answeringSecondWith(make));
        EXPECT_EQ(answerTo(part(server)), "1");
        EXPECT_EQ(answerTo(part(server)), "2"); // sent again on a new connection
        EXPECT_EQ(answerTo(part(server)), "2"); // which was kept, and the first was not
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), 4U);
        EXPECT_NE(idOf(requests[1]), idOf(requests[2]));
        EXPECT_TRUE(requests[2].starts_with("POST / HTTP/1.1\r\n"));
        EXPECT_TRUE(requests[2].ends_with("\r\n\r\npart"));
    }
}

TEST(KeptConnections, AreNotLeftByAnswersThatNameNoRequest)
{
    const RawServer server([](const std::string&, const RawConnection& connection) {
        connection.keepOpen();
        connection.send(answerWith("", std::to_string(connection.number())));
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    EXPECT_EQ(answerTo(part(server)), "2");
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST(KeptConnections, AreNotLeftByRequestsWithoutANumber)
{
    const RawServer server(answerAll);
    HttpRequest request = part(server);
    request.requestIdHeader.clear();
    EXPECT_EQ(answerTo(request), "1");
    EXPECT_EQ(answerTo(request), "2");
    EXPECT_EQ(server.requests().at(0).find(kIdHeader), std::string::npos);
}

TEST(RequestId, IsAFreshNumberInTheHeaderThatTheRequestNames)
{
    const RawServer server(answerAll);
    HttpRequest request = part(server);
    request.headers = {{"x-requestid", "a template's"}, {"X-Other", "o"}};
    EXPECT_EQ(answerTo(request), "1");
    EXPECT_EQ(answerTo(request), "1");
    const auto requests = server.requests();
    EXPECT_EQ(requests.at(0).find("a template's"), std::string::npos);
    EXPECT_NE(requests.at(0).find("X-Other: o\r\n"), std::string::npos);
    EXPECT_EQ(idOf(requests.at(0)).size(), 32U);
    EXPECT_EQ(idOf(requests.at(0)).find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(idOf(requests.at(0)), idOf(requests.at(1)));
}

TEST(RequestId, OfAnotherRequestIsAFailureOnANewConnectionToo)
{
    const RawServer server([](const std::string&, const RawConnection& connection) {
        connection.send(answerWith("X-RequestID: 0123456789abcdef0123456789abcdef 4\r\n", "true"));
    });
    const auto outcome = perform(part(server));
    EXPECT_FALSE(outcome.response);
    EXPECT_EQ(outcome.body, "");
    EXPECT_EQ(outcome.reason, FailureKind::unreadableAnswer);
    EXPECT_EQ(outcome.failure, "The answer from 127.0.0.1 is not to this request.");
    EXPECT_EQ(server.requests().size(), 1U);
}

TEST(RequestId, WithAnotherLengthIsAFailure)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.send(
            answerWith(std::string(kIdHeader) + ": " + idOf(request) + " 0\r\n", "true"));
    });
    EXPECT_EQ(perform(part(server)).reason, FailureKind::unreadableAnswer);
}

TEST(RequestId, InAnAnswerThatCameBeforeTheBodyIsAFailure)
{
    const std::string body(std::size_t(64) << 20, 'x'); // more than the system takes at once
    const RawServer server(
        [&](const std::string& head, const RawConnection& connection) {
            connection.send(answerWith(std::string(kIdHeader) + ": " + idOf(head) + " " +
                                           std::to_string(body.size()) + "\r\n",
                                       "true"));
            connection.holdUntilClosed();
        },
        RawServer::Reads::heads);
    HttpRequest request = part(server);
    request.body = body;
    const auto outcome = perform(request);
    EXPECT_FALSE(outcome.response);
    EXPECT_EQ(outcome.reason, FailureKind::unreadableAnswer);
}

TEST(RequestId, ThatCannotBeAHeaderIsNotSent)
{
    const RawServer server(answerAll);
    HttpRequest request = part(server);
    request.requestIdHeader = "X-Id\r\nX-Other";
    EXPECT_EQ(perform(request).kind, HttpFailure::request);
    EXPECT_TRUE(server.requests().empty());
}

TEST(RequestId, IsAnotherOneAfterARedirect)
{
    const RawServer server([](const std::string& request, const RawConnection& connection) {
        connection.keepOpen();
        if (request.starts_with("POST / "))
            return void(connection.send(
                answerWith(naming(request) + "Location: /there\r\n", "", "307 Go")));
        connection.send(answerWith("", "without a number"));
    });
    EXPECT_EQ(answerTo(part(server)), "without a number");
    const auto requests = server.requests();
    EXPECT_NE(idOf(requests.at(0)), idOf(requests.at(1)));
    EXPECT_EQ(server.connections(), 2U);
}

TEST(KeptConnections, AreTheParentsAfterAFork)
{
    const RawServer server(answerAll);
    EXPECT_EQ(answerTo(part(server)), "1");
    const pid_t child = ::fork();
    if (child == 0)
        std::_Exit(answerTo(part(server)) == "2" && answerTo(part(server)) == "2" ? 0 : 1);
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(answerTo(part(server)), "1");
}

TEST(KeptConnections, AreNotInheritedByPrograms)
{
    const RawServer server(answerAll);
    EXPECT_EQ(answerTo(part(server)), "1");
    const auto result = test::runProgram({{"/bin/ls", "-l", "/proc/self/fd"}});
    EXPECT_EQ(result.status, 0);
    std::ifstream table("/proc/self/net/tcp"); // proc_pid_net(5): the inode of each connection
    const std::string connections{std::istreambuf_iterator<char>(table), {}};
    constexpr std::string_view word = "socket:[";
    for (auto at = result.output.find(word); at != std::string::npos;
         at = result.output.find(word, at + 1)) {
        const auto begin = at + word.size();
        const auto inode = result.output.substr(begin, result.output.find(']', at) - begin);
        EXPECT_EQ(connections.find(" " + inode + " "), std::string::npos) << result.output;
    }
}

TEST(KeptConnections, AreNotUsedWhenAnotherProxyIsToBe)
{
    for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        ::unsetenv(name);
    const RawServer server(answerAll);
    const RawServer proxy([](const std::string& request, const RawConnection& connection) {
        connection.keepOpen();
        connection.send(
            answerWith(naming(request), "proxy for " + request.substr(0, request.find("27.0"))));
    });
    EXPECT_EQ(answerTo(part(server)), "1");
    ::setenv("http_proxy", proxy.url("").c_str(), 1);
    EXPECT_EQ(answerTo(part(server)), "proxy for POST http://1");
    ::unsetenv("http_proxy");
    EXPECT_EQ(answerTo(part(server)), "2"); // the first was dropped
    HttpRequest byProxy = part(server);
    byProxy.proxy = proxy.url("");
    EXPECT_EQ(answerTo(byProxy), "proxy for POST http://1");
}

/// A server over TLS that keeps connections, and writes a line for each greeting: whether it was a
/// full one.
class TlsServer {
public:
    TlsServer()
        : server_((makeCertificate("c.pem"), test::ProgramRun{{"/usr/bin/python3", "-uc", kProgram,
                                                               in("c.pem"), in("c.pem.key")}}))
    {
        port_ = server_.readLine().value_or("");
        std::filesystem::copy_file(in("c.pem"), in("trusted.pem"));
        ::setenv("SSL_CERT_FILE", in("trusted.pem").c_str(), 1);
    }

    [[nodiscard]] std::string get(const std::string& path) const
    {
        return answerTo({.method = "GET",
                         .url = "https://127.0.0.1:" + port_ + path,
                         .headers = {},
                         .body = {},
                         .requestIdHeader = kIdHeader,
                         .mayArriveTwice = true});
    }

    /// Of the next connection.
    [[nodiscard]] std::string greeting() { return server_.readLine().value_or(""); }

    /// Writes the file of trusted certificates anew.
    void trust(const std::string& text) const
    {
        std::ofstream(in("trusted.pem"), std::ios::trunc) << text;
    }
    [[nodiscard]] std::string certificate() const
    {
        std::ifstream file(in("c.pem"));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::string otherCertificate() const
    {
        makeCertificate("other.pem");
        std::ifstream file(in("other.pem"));
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    static constexpr const char* kProgram =
        "import http.server, ssl, sys\n"
        "class Answer(http.server.BaseHTTPRequestHandler):\n"
        "    protocol_version = 'HTTP/1.1'\n"
        "    def setup(self):\n"
        "        super().setup()\n"
        "        print('resumed' if self.connection.session_reused else 'full')\n"
        "    def do_GET(self):\n"
        "        self.send_response(200)\n"
        "        self.send_header('Content-Length', '2')\n"
        "        self.send_header('X-RequestID', self.headers['X-RequestID'] + ' 0')\n"
        "        if self.path == '/last': self.send_header('Connection', 'close')\n"
        "        self.end_headers(); self.wfile.write(b'ok')\n"
        "    def log_message(self, *words): pass\n"
        "context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)\n"
        "context.load_cert_chain(sys.argv[1], sys.argv[2])\n"
        "server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Answer)\n"
        "server.socket = context.wrap_socket(server.socket, server_side=True)\n"
        "print(server.server_port)\n"
        "server.serve_forever()\n";

    [[nodiscard]] std::string in(const std::string& name) const
    {
        return (folder_.path() / name).string();
    }

    void makeCertificate(const std::string& name) const
    {
        const auto result = test::runProgram(
            {{"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
              "-subj", "/CN=" + folder_.path().filename().string() + name, "-addext",
              "subjectAltName=IP:127.0.0.1", "-keyout", in(name + ".key"), "-out", in(name)}});
        if (result.status != 0)
            throw std::runtime_error(result.errors);
    }

    test::TemporaryFolder folder_;
    test::BackgroundProgram server_;
    std::string port_;
};

TEST(KeptConnections, OverTlsAreUsedAgainAndTheirSessionsByNewOnes)
{
    TlsServer server;
    EXPECT_EQ(server.get("/"), "ok");
    EXPECT_EQ(server.greeting(), "full");
    EXPECT_EQ(server.get("/last"), "ok"); // over the same; another line would be read next
    EXPECT_EQ(server.get("/"), "ok");
    EXPECT_EQ(server.greeting(), "resumed");
    std::thread([&] { EXPECT_EQ(server.get("/last"), "ok"); }).join();
    std::thread([&] { EXPECT_EQ(server.get("/last"), "ok"); }).join();
    EXPECT_EQ(server.greeting(), "resumed");
}

TEST(KeptConnections, AreMadeAnewWhenTheTrustRootsChange)
{
    TlsServer server;
    EXPECT_EQ(server.get("/"), "ok");
    EXPECT_EQ(server.greeting(), "full");
    server.trust("\n" + server.certificate());
    EXPECT_EQ(server.get("/"), "ok");
    EXPECT_EQ(server.greeting(), "full");
    server.trust(server.otherCertificate());
    EXPECT_NE(server.get("/"), "ok");
}

} // namespace
} // namespace stowline::platform
