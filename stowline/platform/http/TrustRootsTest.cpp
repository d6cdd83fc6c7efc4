// Whose certificates are trusted, on systems that keep them in different ways.
#include "stowline/platform/files/Files.h"
#include "stowline/platform/http/HttpExchange.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/Program.h"
#include "tests/support/SystemCallFilter.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace stowline::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

void run(const std::vector<std::string>& words)
{
    const auto result = test::runProgram({words});
    if (result.status != 0)
        throw std::runtime_error(words[0] + ": " + result.errors);
}

/// A certificate of 127.0.0.1, and a server that has it.
class TlsServer {
public:
    TlsServer()
        : server_((makeCertificate(), test::ProgramRun{{"/usr/bin/python3", "-uc", kProgram,
                                                        in("c.pem"), in("k.pem")}}))
    {
        port_ = server_.readLine().value_or("");
    }

    [[nodiscard]] std::string certificate() const { return in("c.pem"); }
    [[nodiscard]] std::string url() const { return "https://127.0.0.1:" + port_ + "/"; }

    /// The certificate in a folder of its own, under its hashed name.
    [[nodiscard]] std::string hashedFolder() const
    {
        fs::create_directories(in("hashed"));
        fs::copy_file(certificate(), in("hashed/c.pem"), fs::copy_options::overwrite_existing);
        run({"/usr/bin/openssl", "rehash", in("hashed")});
        return in("hashed");
    }

private:
    static constexpr const char* kProgram =
        "import http.server, ssl, sys\n"
        "class Answer(http.server.BaseHTTPRequestHandler):\n"
        "    def do_GET(self):\n"
        "        self.send_response(200); self.end_headers(); self.wfile.write(b'ok')\n"
        "    def log_message(self, *words): pass\n"
        "context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)\n"
        "context.load_cert_chain(sys.argv[1], sys.argv[2])\n"
        "server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Answer)\n"
        "server.socket = context.wrap_socket(server.socket, server_side=True)\n"
        "print(server.server_port)\n"
        "server.serve_forever()\n";

    [[nodiscard]] std::string in(const char* name) const
    {
        return (folder_.path() / name).string();
    }

    void makeCertificate() const
    {
        run({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
             "-subj", "/CN=" + folder_.path().filename().string(), "-addext",
             "subjectAltName=IP:127.0.0.1", "-keyout", in("k.pem"), "-out", in("c.pem")});
    }

    test::TemporaryFolder folder_;
    test::BackgroundProgram server_;
    std::string port_;
};

bool isTrusted(const TlsServer& server)
{
    HttpExchange exchange({.method = "GET", .url = server.url()}, {});
    EXPECT_TRUE(exchange.wait(20s));
    const auto outcome = exchange.takeOutcome();
    EXPECT_TRUE(outcome.response || outcome.reason == FailureKind::certificate) << outcome.failure;
    EXPECT_TRUE(outcome.response || outcome.certificate != CertificateFault::none);
    return outcome.response && outcome.body == "ok";
}

void set(const char* name, const std::string& value)
{
    ::setenv(name, value.c_str(), 1);
}

TEST(TrustRoots, AFileOrAFolderCanBeNamed)
{
    const TlsServer server;
    const test::TemporaryFolder empty;
    EXPECT_FALSE(isTrusted(server));
    set("SSL_CERT_FILE", server.certificate());
    EXPECT_TRUE(isTrusted(server));
    set("SSL_CERT_DIR", empty.path());
    EXPECT_TRUE(isTrusted(server));
    ::unsetenv("SSL_CERT_FILE");
    EXPECT_FALSE(isTrusted(server));
    set("SSL_CERT_DIR", server.hashedFolder());
    EXPECT_TRUE(isTrusted(server));
    set("SSL_CERT_FILE", "/etc/ssl/certs/ca-certificates.crt");
    EXPECT_TRUE(isTrusted(server));
}

/// In a process of its own: reads the trust roots ahead, spoils the file, and asks the server.
/// @return whether it is trusted all the same
bool isTrustedByWhatWasRead(const TlsServer& server, const std::string& text,
                            const std::string& folder = {})
{
    const test::TemporaryFolder place;
    const auto file = place.write("roots.pem", text);
    return test::holdsInAProcessOfItsOwn([&] {
        set("SSL_CERT_FILE", file);
        set("SSL_CERT_DIR", folder);
        while (prepareSomeTrust()) {
        }
        (void)place.write("roots.pem", "spoilt");
        if (!isTrusted(server))
            ::_exit(EXIT_FAILURE);
    });
}

TEST(TrustRoots, AreThoseThatWereReadAheadOfTheFork)
{
    const TlsServer server;
    const TlsServer other;
    const std::string own = readFile(server.certificate()).value();
    const std::string others = readFile(other.certificate()).value();
    EXPECT_TRUE(isTrustedByWhatWasRead(server, own));
    EXPECT_TRUE(isTrustedByWhatWasRead(server, "a remark\n" + others + own));
    EXPECT_FALSE(isTrustedByWhatWasRead(server, others));
    EXPECT_TRUE(isTrustedByWhatWasRead(server, others, server.hashedFolder()));
}

TEST(TrustRoots, AreLeftToTheExchangeWhereAFileIsNotAllCertificates)
{
    const TlsServer server;
    const std::string own = readFile(server.certificate()).value();
    const std::string broken = "-----BEGIN CERTIFICATE-----\nbroken\n-----END CERTIFICATE-----\n";
    const std::string list = "-----BEGIN X509 CRL-----\nbroken\n-----END X509 CRL-----\n";
    for (const std::string& text : {std::string(), broken, own + broken, broken + own, own + list})
        EXPECT_FALSE(isTrustedByWhatWasRead(server, text)) << text;
}

/// What the whole machine has in /etc/ssl/certs, for this process: the test's certificate.
class TrustOfASystem : public testing::Test {
protected:
    void SetUp() override
    {
        forget();
        if (const auto missing = test::enterMountNamespace())
            GTEST_SKIP() << *missing;
    }

    void TearDown() override { forget(); }

    static void forget()
    {
        ::unsetenv("SSL_CERT_FILE");
        ::unsetenv("SSL_CERT_DIR");
    }

    const TlsServer server_;
    const test::TemporaryFolder system_;
};

TEST_F(TrustOfASystem, MayBeHashedNamesWithoutABundle)
{
    const auto mount = test::Mount::again(server_.hashedFolder(), "/etc/ssl/certs");
    EXPECT_TRUE(isTrusted(server_));
}

TEST_F(TrustOfASystem, MayBeItsBundleAlone)
{
    fs::copy_file(server_.certificate(), system_.path() / "ca-certificates.crt");
    const auto mount = test::Mount::again(system_.path(), "/etc/ssl/certs");
    EXPECT_TRUE(isTrusted(server_));
}

TEST_F(TrustOfASystem, IsAlsoWhatTheBundleAloneHolds)
{
    const TlsServer other;
    fs::copy_file(server_.certificate(), fs::path(other.hashedFolder()) / "ca-certificates.crt");
    const auto mount = test::Mount::again(other.hashedFolder(), "/etc/ssl/certs");
    EXPECT_TRUE(isTrusted(other));
    EXPECT_TRUE(isTrusted(server_));
    set("SSL_CERT_FILE", "/etc/ssl/certs/ca-certificates.crt");
    EXPECT_TRUE(isTrusted(other));
    EXPECT_TRUE(isTrusted(server_));
}

TEST_F(TrustOfASystem, AnEmptyVariableNamesNothing)
{
    const auto mount = test::Mount::again(server_.hashedFolder(), "/etc/ssl/certs");
    set("SSL_CERT_FILE", "");
    EXPECT_TRUE(isTrusted(server_));
    set("SSL_CERT_DIR", "");
    EXPECT_TRUE(isTrusted(server_));
}

TEST_F(TrustOfASystem, CountsNoMoreWhereAFileIsNamed)
{
    const TlsServer other;
    const auto mount = test::Mount::again(server_.hashedFolder(), "/etc/ssl/certs");
    set("SSL_CERT_FILE", other.certificate());
    EXPECT_TRUE(isTrusted(other));
    EXPECT_FALSE(isTrusted(server_));
}

TEST_F(TrustOfASystem, ItsBundleCanBeNamedBesideAnotherFolder)
{
    const TlsServer other;
    fs::copy_file(server_.certificate(), system_.path() / "ca-certificates.crt");
    const auto mount = test::Mount::again(system_.path(), "/etc/ssl/certs");
    set("SSL_CERT_FILE", "/etc/ssl/certs/ca-certificates.crt");
    set("SSL_CERT_DIR", other.hashedFolder());
    EXPECT_TRUE(isTrusted(server_));
    EXPECT_TRUE(isTrusted(other));
}

TEST_F(TrustOfASystem, WithoutAnyRootsNobodyIsTrusted)
{
    const auto mount = test::Mount::again(system_.path(), "/etc/ssl/certs");
    EXPECT_FALSE(isTrusted(server_));
}

} // namespace
} // namespace stowline::platform
