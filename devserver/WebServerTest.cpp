// What the service does with requests that are too much, forged or not for it.
#include "devserver/Accounts.h"
#include "devserver/DataFolder.h"
#include "devserver/OwnAddress.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/network/Sockets.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/PseudoTerminal.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <span>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::devserver {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

int portOf(const test::DevServerProcess& server)
{
    return std::stoi(server.address().substr(server.address().rfind(':') + 1));
}

/// Arguments of a service over https, with a certificate of its own.
class Certificate {
public:
    explicit Certificate(const std::string& passphrase = "")
    {
        std::vector<std::string> words{
            "/usr/bin/openssl", "req",     "-x509", "-newkey", "rsa:2048",   "-days", "2", "-subj",
            "/CN=127.0.0.1",    "-keyout", key(),   "-out",    certificate()};
        if (passphrase.empty())
            words.insert(words.end(), {"-nodes"});
        else
            words.insert(words.end(), {"-passout", "pass:" + passphrase});
        const auto made = test::runProgram({words});
        if (made.status != 0)
            throw std::runtime_error(made.errors);
    }
    [[nodiscard]] std::vector<std::string> arguments() const
    {
        return {"--tls-certificate", certificate(), "--tls-key", key()};
    }

private:
    [[nodiscard]] std::string key() const { return (folder_.path() / "key.pem").string(); }
    [[nodiscard]] std::string certificate() const { return (folder_.path() / "c.pem").string(); }

    test::TemporaryFolder folder_;
};

/// A connection to the service, plain or over TLS.
class Connection {
public:
    explicit Connection(int port, bool isTls = false)
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isOpen_ = ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        if (!isTls)
            return;
        // So that nobody waits for ever for a side that takes nothing.
        const timeval limit{.tv_sec = 20, .tv_usec = 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        context_.reset(::SSL_CTX_new(::TLS_client_method()));
        tls_.reset(::SSL_new(context_.get()));
        ::SSL_set_fd(tls_.get(), socket_);
        isOpen_ = isOpen_ && ::SSL_connect(tls_.get()) == 1;
    }
    ~Connection() { ::close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] bool isOpen() const { return isOpen_; }

    /// @return false once the other side takes no more
    [[nodiscard]] bool send(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const auto count = sendSome(bytes);
            if (count <= 0)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    /// Everything up to the end of the connection.
    [[nodiscard]] std::string readToEnd() const
    {
        std::string all;
        std::array<char, 4096> piece{};
        for (;;) {
            const auto count = receive(piece);
            if (count <= 0)
                return all;
            all.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

private:
    [[nodiscard]] std::ptrdiff_t sendSome(std::string_view bytes) const
    {
        if (tls_)
            return ::SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()));
        return platform::awaitWritable(socket_, 20s)
                   ? platform::sendTo(socket_, bytes.data(), bytes.size())
                   : -1;
    }

    [[nodiscard]] std::ptrdiff_t receive(std::span<char> piece) const
    {
        if (tls_)
            return ::SSL_read(tls_.get(), piece.data(), static_cast<int>(piece.size()));
        return platform::awaitReadable(socket_, 20s)
                   ? platform::receiveFrom(socket_, piece.data(), piece.size())
                   : -1;
    }

    struct Free {
        void operator()(SSL* connection) const { ::SSL_free(connection); }
        void operator()(SSL_CTX* context) const { ::SSL_CTX_free(context); }
    };

    int socket_;
    bool isOpen_ = false;
    std::unique_ptr<SSL_CTX, Free> context_;
    std::unique_ptr<SSL, Free> tls_;
};

std::string answerTo(const test::DevServerProcess& server, const std::string& lines)
{
    const Connection connection(portOf(server));
    EXPECT_TRUE(connection.send(lines + "Connection: close\r\n\r\n"));
    return connection.readToEnd();
}

std::string answerTo(const test::DevServerProcess& server, const std::string& lines,
                     const std::string& body)
{
    const Connection connection(portOf(server));
    EXPECT_TRUE(connection.send(lines + "Content-Length: " + std::to_string(body.size()) +
                                "\r\nConnection: close\r\n\r\n" + body));
    return connection.readToEnd();
}

std::string hostLine(const test::DevServerProcess& server)
{
    return "Host: 127.0.0.1:" + std::to_string(portOf(server)) + "\r\n";
}

long peakMemoryInKb(test::BackgroundProgram& program)
{
    std::ifstream status("/proc/" + std::to_string(program.processId()) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:"))
            return std::stol(line.substr(6));
    }
    return -1;
}

TEST(WebServer, AnswersToItsOwnNameOnly)
{
    const test::DevServerProcess server;
    const std::string port = std::to_string(portOf(server));
    const auto isServed = [&](const std::string& lines) {
        return answerTo(server, "GET / HTTP/1.1\r\n" + lines).starts_with("HTTP/1.1 200");
    };
    EXPECT_TRUE(isServed("Host: 127.0.0.1:" + port + "\r\n"));
    EXPECT_TRUE(isServed("Host: localhost:" + port + "\r\n"));
    EXPECT_TRUE(isServed(hostLine(server) + "Origin: " + server.address() + "\r\n"));
    EXPECT_FALSE(isServed("Host: attacker.example\r\n"));
    EXPECT_FALSE(isServed("Host: attacker.example:" + port + "\r\n"));
    EXPECT_FALSE(isServed("Host: 127.0.0.1\r\n"));
    EXPECT_FALSE(isServed(""));
    EXPECT_FALSE(isServed(hostLine(server) + "Origin: http://attacker.example\r\n"));
    EXPECT_FALSE(isServed(hostLine(server) + "Origin: null\r\n"));
}

TEST(WebServer, ForeignRequestsReachNoMethodAndNoPart)
{
    const test::DevServerProcess server;
    for (const char* line :
         {"POST /AccountService.asmx", "POST /UploadFilePart", "GET /GetServerPartInfo",
          "GET /DownloadFilePart", "GET /", "GET /overview", "POST /sign-in", "POST /sign-out"})
        EXPECT_TRUE(answerTo(server, std::string(line) + " HTTP/1.1\r\n" + hostLine(server) +
                                         "Origin: http://attacker.example\r\n")
                        .starts_with("HTTP/1.1 403"))
            << line;
}

TEST(WebServer, RequestsForAnotherNameReachNoSignIn)
{
    const test::DevServerProcess server;
    for (const char* host : {"attacker.example", "127.0.0.1", "localhost.attacker.example"}) {
        for (const char* line : {"GET /", "GET /overview", "POST /sign-in", "POST /sign-out"})
            EXPECT_TRUE(
                answerTo(server, std::string(line) + " HTTP/1.1\r\nHost: " + host + "\r\n", "")
                    .starts_with("HTTP/1.1 403"))
                << line << host;
    }
}

TEST(WebServer, ASignInOverTheWireGivesTheOverview)
{
    const test::TemporaryFolder data;
    ASSERT_TRUE(prepareDataFolder(data.path() / "d"));
    ASSERT_EQ(Accounts(data.path() / "d/service.sqlite")
                  .open({.userName = "ann b", .password = "p&p", .email = "a@b.c"}),
              AccountOutcome::success);
    const test::DevServerProcess server({}, data.path() / "d");
    const auto signIn = [&](const std::string& body) {
        return answerTo(server,
                        "POST /sign-in HTTP/1.1\r\n" + hostLine(server) +
                            "Origin: " + server.address() +
                            "\r\nContent-Type: application/x-www-form-urlencoded\r\n",
                        body);
    };
    EXPECT_TRUE(signIn("user=ann+b&password=p").starts_with("HTTP/1.1 403"));
    const std::string answer = signIn("user=ann+b&password=p%26p");
    ASSERT_TRUE(answer.starts_with("HTTP/1.1 303")) << answer;
    const auto start = answer.find("Set-Cookie: ") + 12;
    const std::string cookie = answer.substr(start, answer.find(';', start) - start);
    EXPECT_TRUE(cookie.starts_with("stowline-session-" + std::to_string(portOf(server)) + "="));
    const std::string page = answerTo(server, "GET / HTTP/1.1\r\n" + hostLine(server) +
                                                  "Cookie: other=1; " + cookie + "\r\n");
    EXPECT_NE(page.find("Signed in as <bdi>ann b</bdi>"), std::string::npos) << page;
    EXPECT_NE(page.find("Content-Security-Policy: default-src 'none';"), std::string::npos);
    // Not by an address, which would stand in histories.
    EXPECT_TRUE(answerTo(server,
                         "POST /sign-in?user=ann+b&password=p%26p HTTP/1.1\r\n" + hostLine(server) +
                             "Content-Type: application/x-www-form-urlencoded\r\n",
                         "")
                    .starts_with("HTTP/1.1 403"));
}

TEST(WebServer, AnAdministratorMustHaveAnAccount)
{
    const test::TemporaryFolder data;
    const auto run = test::runProgram({{test::builtProgram("stowline-devserver"), "--data",
                                        (data.path() / "d").string(), "--administrator", "eve"}});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("The account \"eve\" was not found. Please open it first"),
              std::string::npos)
        << run.errors;
}

TEST(OwnAddress, MayLackThePortWhereBrowsersLeaveItOut)
{
    EXPECT_TRUE(isOwnHost({"http", 80}, "localhost"));
    EXPECT_TRUE(isOwnHost({"http", 80}, "127.0.0.1:80"));
    EXPECT_TRUE(isOwnHost({"https", 443}, "127.0.0.1"));
    EXPECT_TRUE(isOwnOrigin({"https", 443}, "https://localhost"));
    EXPECT_FALSE(isOwnHost({"http", 443}, "localhost"));
    EXPECT_FALSE(isOwnHost({"https", 80}, "localhost"));
    EXPECT_FALSE(isOwnHost({"http", 8080}, "localhost"));
    EXPECT_FALSE(isOwnHost({"http", 80}, "localhost.example"));
    EXPECT_FALSE(isOwnHost({"http", 80}, "127.0.0.1.example:80"));
    EXPECT_FALSE(isOwnOrigin({"https", 443}, "http://localhost"));
}

/// What must be bounded in the same way whatever carries it.
class BoundedWebServer : public testing::TestWithParam<bool> {
protected:
    BoundedWebServer()
        : server_(GetParam() ? Certificate().arguments() : std::vector<std::string>()),
          memoryBefore_(peakMemoryInKb(server_.process()))
    {
        std::signal(SIGPIPE, SIG_IGN); // of a connection that the service has ended
    }

    [[nodiscard]] Connection connect() const { return Connection(portOf(server_), GetParam()); }
    [[nodiscard]] long memoryTakenInKb()
    {
        return peakMemoryInKb(server_.process()) - memoryBefore_;
    }

    test::DevServerProcess server_;
    long memoryBefore_;
};

INSTANTIATE_TEST_SUITE_P(Carriers, BoundedWebServer, testing::Bool(),
                         [](const auto& carrier) { return carrier.param ? "Tls" : "Plain"; });

TEST_P(BoundedWebServer, Answers)
{
    const Connection connection = connect();
    ASSERT_TRUE(connection.send("GET / HTTP/1.1\r\n" + hostLine(server_) +
                                "\r\nGET / HTTP/1.1\r\n" + hostLine(server_) +
                                "Connection: close\r\n\r\n"));
    const std::string answers = connection.readToEnd();
    EXPECT_TRUE(answers.starts_with("HTTP/1.1 200"));
    EXPECT_NE(answers.find("HTTP/1.1 200", 1), std::string::npos); // the second one
    EXPECT_TRUE(answers.ends_with("</html>\n") || answers.ends_with("</html>"));
}

TEST_P(BoundedWebServer, TakesNoMoreThanSoManyHeaders)
{
    const Connection connection = connect();
    std::string flood;
    for (int i = 0; i < 1000; ++i)
        flood += "X-Flood-" + std::to_string(i) + ": " + std::string(1000, 'x') + "\r\n";
    bool isTaken = connection.send("GET / HTTP/1.1\r\n" + hostLine(server_));
    for (int megabytes = 0; isTaken && megabytes < 100; ++megabytes)
        isTaken = connection.send(flood);
    EXPECT_FALSE(isTaken); // the connection was ended long before
    EXPECT_LT(memoryTakenInKb(), 20000);
}

TEST(WebServer, PlannedFaultsAreWhatTheyAreCalled)
{
    struct Case {
        std::string kind;
        std::string call; ///< beginning of the answer to a web method
        std::string part; ///< beginning of the answer to a part
        std::string content;
    };
    const std::vector<Case> cases{
        {"fault", "HTTP/1.1 500 ", "HTTP/1.1 200 ", ""},
        {"500", "HTTP/1.1 500 ", "HTTP/1.1 500 ", "Content-Type: text/html"},
        {"html", "HTTP/1.1 200 ", "HTTP/1.1 200 ", "Content-Type: text/html"},
        {"garbage", "HTTP/1.1 200 ", "HTTP/1.1 200 ", ""},
        {"reset", "HTTP/1.1 200 ", "HTTP/1.1 200 ", ""},
        {"lost", "HTTP/1.1 200 ", "HTTP/1.1 200 ", ""},
    };
    const std::string body = test::wireBody("authenticate.request.http");
    for (const Case& wanted : cases) {
        const test::DevServerProcess server({"--fault", "Authenticate:1:" + wanted.kind, "--fault",
                                             "UploadFilePart:1:" + wanted.kind});
        const std::string call =
            answerTo(server, "POST /AccountService.asmx HTTP/1.1\r\n" + hostLine(server), body);
        const std::string part =
            answerTo(server, "POST /UploadFilePart HTTP/1.1\r\n" + hostLine(server), "x");
        for (const auto& [answer, beginning] :
             {std::pair(call, wanted.call), std::pair(part, wanted.part)}) {
            EXPECT_TRUE(answer.starts_with(beginning)) << wanted.kind << ": " << answer;
            // Of what is torn down the head alone arrives, which announces more.
            if (wanted.kind == "reset" || wanted.kind == "lost") {
                EXPECT_TRUE(answer.ends_with("\r\n\r\n")) << answer;
                EXPECT_NE(answer.find("Content-Length: 1\r\n"), std::string::npos) << answer;
            }
            EXPECT_NE(answer.find(wanted.content), std::string::npos) << answer;
        }
    }
}

TEST_P(BoundedWebServer, TakesNoMoreThanSoLongABody)
{
    const std::string megabyte(1 << 20, 'x');
    for (const char* kind : {"Content-Length: 1500000000\r\n", "Transfer-Encoding: chunked\r\n"}) {
        const Connection connection = connect();
        const bool isChunked = std::string_view(kind).starts_with("Transfer");
        bool isTaken = connection.send("POST /UploadFilePart HTTP/1.1\r\n" + hostLine(server_) +
                                       kind + "\r\n");
        for (int megabytes = 0; isTaken && megabytes < 200; ++megabytes)
            isTaken = connection.send(isChunked ? "100000\r\n" + megabyte + "\r\n" : megabyte);
        EXPECT_FALSE(isTaken) << kind;
    }
    EXPECT_LT(memoryTakenInKb(), 300000);
}

TEST_P(BoundedWebServer, EndsAConnectionThatAsksForNothing)
{
    const Connection connection = connect();
    ASSERT_TRUE(connection.isOpen());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(connection.readToEnd(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 19s); // ended by the service
}

TEST(WebServer, EndsAConnectionWithoutAHandshake)
{
    const Certificate certificate;
    const test::DevServerProcess server(certificate.arguments());
    const Connection connection(portOf(server));
    ASSERT_TRUE(connection.isOpen());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(connection.readToEnd(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 19s); // ended by the service
}

TEST(WebServer, IdleConnectionsDelayNobody)
{
    const test::DevServerProcess server;
    std::vector<std::unique_ptr<Connection>> idle;
    for (int i = 0; i < 300; ++i) {
        idle.push_back(std::make_unique<Connection>(portOf(server)));
        ASSERT_TRUE(idle.back()->isOpen());
        // Half of them begin a request and say no more.
        ASSERT_TRUE(idle.back()->send(i % 2 == 0 ? "GET / HTTP/1.1\r\nHost: " : ""));
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(
        answerTo(server, "GET / HTTP/1.1\r\n" + hostLine(server)).starts_with("HTTP/1.1 200"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
}

TEST(WebServer, ATakenPortIsNoticed)
{
    const test::DevServerProcess server;
    const test::TemporaryFolder folder;
    const auto second =
        test::runProgram({{test::builtProgram("stowline-devserver"), "--data",
                           folder.path().string(), "--port", std::to_string(portOf(server))}});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("is taken"), std::string::npos) << second.errors;
}

TEST(WebServer, AnEncryptedKeyIsRefusedAndItsPassphraseNotAskedFor)
{
    const Certificate certificate("secret");
    const test::TemporaryFolder folder;
    std::vector<std::string> words{test::builtProgram("stowline-devserver"), "--data",
                                   folder.path().string()};
    const auto tls = certificate.arguments();
    words.insert(words.end(), tls.begin(), tls.end());
    // Whoever asked would be given the right answer, run, and be interrupted.
    const auto talk = test::talkOnTerminal(
        {words}, {{"Enter PEM pass phrase:", "secret\n"}, {"listening", "\x03"}});
    EXPECT_EQ(talk.status, 1) << talk.screen;
    EXPECT_NE(talk.screen.find("a key that is encrypted must be decrypted first"),
              std::string::npos)
        << talk.screen;
    EXPECT_EQ(talk.screen.find("pass phrase"), std::string::npos) << talk.screen;
}

TEST(WebServer, ARequestLineForgesNoLogLine)
{
    const test::TemporaryFolder logs;
    test::DevServerProcess server({"--log-folder", logs.path().string()});
    (void)answerTo(server,
                   "GET /%0A2026/01/01%20forged%0D%1B[31mred HTTP/1.1\r\n" + hostLine(server));
    server.process().signal(SIGTERM);
    EXPECT_EQ(server.process().wait().status, 0);
    std::string all;
    for (const auto& file : fs::directory_iterator(logs.path()))
        all += platform::readFile(file.path()).value_or("");
    EXPECT_NE(all.find("forged"), std::string::npos);
    EXPECT_EQ(all.find("\n2026/01/01 forged"), std::string::npos) << all;
    EXPECT_EQ(all.find('\x1b'), std::string::npos);
    EXPECT_EQ(all.find('\r'), std::string::npos);
}

TEST(WebServer, WhatItKeepsIsItsOwnersAlone)
{
    const test::TemporaryFolder folder;
    const fs::path data = folder.path() / "data";
    fs::create_directory(data);
    fs::permissions(data, fs::perms(0755));
    const test::DevServerProcess server({}, data);
    const auto modeOf = [](const fs::path& path) {
        return static_cast<unsigned>(fs::status(path).permissions()) & 0777U;
    };
    EXPECT_EQ(modeOf(data), 0700U);
    int databases = 0;
    for (const auto& file : fs::recursive_directory_iterator(data)) {
        databases += file.path().extension() == ".sqlite" ? 1 : 0;
        EXPECT_EQ(modeOf(file.path()), file.is_directory() ? 0700U : 0600U) << file.path();
    }
    EXPECT_EQ(databases, 4);
}

} // namespace
} // namespace stowline::devserver
