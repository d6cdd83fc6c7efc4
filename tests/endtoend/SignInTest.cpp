// The whole stack: broker, WebServiceCaller process, HTTP, development service, and back.
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

void useBundleOf(const test::DevServerProcess& server)
{
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
}

constexpr const char* kPassword = "p<w>\"'é %@ %n]]>\r\n&amp;";

TEST(WholeStack, OpensAnAccountSignsInAndEncrypts)
{
    const test::DevServerProcess server;
    useBundleOf(server);
    std::optional<Error> error;
    ASSERT_TRUE(WebServiceBroker::creatAccountWithFirstname("Ann", "ann & bob", kPassword, "a@b.c",
                                                            &error));
    const auto result = WebServiceBroker::authenticateForUsername("ann & bob", kPassword, &error);
    ASSERT_TRUE(result);
    EXPECT_EQ(*platform::find(*result, "AuthenticateResult"), Value("true"));
    EXPECT_EQ(*platform::find(*result, "accountStatus"), Value("Active"));
    EXPECT_EQ("http://" + platform::find(*result, "backupServerName")->text(), server.address());
    EXPECT_EQ(*platform::find(*result, "resStatusCode"), Value("200"));

    const auto box = WebServiceBroker::encryptString("a secret & more");
    ASSERT_TRUE(box);
    EXPECT_EQ(WebServiceBroker::decryptString(box->text()), Value("a secret & more"));
    EXPECT_FALSE(error);
}

TEST(WholeStack, RefusalsComeBackAsSuch)
{
    const test::DevServerProcess server;
    useBundleOf(server);
    std::optional<Error> error;
    const auto result = WebServiceBroker::authenticateForUsername("nobody", "x", &error);
    ASSERT_TRUE(result);
    EXPECT_EQ(*platform::find(*result, "AuthenticateResult"), Value("false"));
    EXPECT_FALSE(WebServiceBroker::createTrialWithFirstname("A", "ann", "pw", "nowhere", "T", false,
                                                            "", "", &error));
    EXPECT_EQ(error->localizedDescription(),
              "Please give an e-mail address like name@example.com.");
    EXPECT_TRUE(WebServiceBroker::createTrialWithFirstname("A", "ann", "pw", "a@b", "T", false, "",
                                                           "", &error));
    EXPECT_FALSE(WebServiceBroker::createTrialWithFirstname("A", "ann", "pw", "a@b", "T", false, "",
                                                            "", &error));
    EXPECT_EQ(error->localizedDescription(), "User name already exists");
    EXPECT_FALSE(WebServiceBroker::decryptString("00"));
}

/// What the broker makes of each planned fault.
struct PlannedFault {
    const char* kind;
    int errorCode;
};

std::ostream& operator<<(std::ostream& stream, const PlannedFault& fault)
{
    return stream << fault.kind;
}

class PlannedFaults : public testing::TestWithParam<PlannedFault> {};

TEST_P(PlannedFaults, EndInAnErrorAndTheNextCallWorks)
{
    const test::DevServerProcess server(
        {"--fault", std::string("EncryptString:1:") + GetParam().kind});
    useBundleOf(server);
    std::optional<Error> error;
    const SubstitutionMap params{{"<<SOURCESTRING>>", "x"}};
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("EncryptString", {}, params, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, GetParam().errorCode);
    EXPECT_TRUE(WebServiceBroker::invokeSOAPMethodWithName("EncryptString", {}, params, &error));
}

INSTANTIATE_TEST_SUITE_P(Kinds, PlannedFaults,
                         testing::Values(PlannedFault{"fault", 200}, PlannedFault{"500", 200},
                                         PlannedFault{"html", 200}, PlannedFault{"cut", 200},
                                         PlannedFault{"reset", 200}, PlannedFault{"garbage", 200}),
                         [](const auto& test) { return "Kind_" + std::string(test.param.kind); });

TEST(WholeStack, StallingAndDrippingServersAreGivenUpAfterAMinute)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes a minute; scripts/test --long runs it.";
    const test::DevServerProcess server(
        {"--fault", "EncryptString:*:stall", "--fault", "DecryptString:*:drip"});
    useBundleOf(server);
    const auto start = std::chrono::steady_clock::now();
    std::thread other([] { EXPECT_FALSE(WebServiceBroker::decryptString("00")); });
    EXPECT_FALSE(WebServiceBroker::encryptString("x"));
    other.join();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(60));
    EXPECT_LT(took, std::chrono::seconds(66));
}

// ---- TLS ----

/// A certificate for 127.0.0.1, made for the test and trusted by nobody else.
class TestCertificate {
public:
    explicit TestCertificate(const std::string& name = "IP:127.0.0.1")
    {
        const auto made =
            test::runProgram({{"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes",
                               "-days", "2", "-subj", "/CN=stowline test", "-addext",
                               "subjectAltName=" + name, "-keyout", key(), "-out", certificate()}});
        if (made.status != 0)
            throw std::runtime_error(made.errors);
        std::filesystem::create_directories(trustFolder());
        std::filesystem::copy(certificate(), trustFolder() + "/test.pem");
        if (test::runProgram({{"/usr/bin/openssl", "rehash", trustFolder()}}).status != 0)
            throw std::runtime_error("openssl rehash failed");
    }
    [[nodiscard]] std::string key() const { return (folder_.path() / "key.pem").string(); }
    [[nodiscard]] std::string certificate() const { return (folder_.path() / "c.pem").string(); }
    [[nodiscard]] std::string trustFolder() const { return (folder_.path() / "trust").string(); }
    [[nodiscard]] std::vector<std::string> serverArguments() const
    {
        return {"--tls-certificate", certificate(), "--tls-key", key()};
    }

private:
    test::TemporaryFolder folder_;
};

TEST(WholeStackOverTls, WorksWithATrustedCertificate)
{
    const TestCertificate certificate;
    const test::DevServerProcess server(certificate.serverArguments());
    useBundleOf(server);
    ::setenv("SSL_CERT_DIR", certificate.trustFolder().c_str(), 1);
    EXPECT_TRUE(WebServiceBroker::encryptString("x"));
}

TEST(WholeStackOverTls, RefusesAnUnknownCertificate)
{
    const TestCertificate certificate;
    const test::DevServerProcess server(certificate.serverArguments());
    useBundleOf(server);
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("EncryptString", {}, {}, &error));
    EXPECT_EQ(error->code, 200);
    EXPECT_EQ(error->kind, FailureKind::certificate);
}

TEST(WholeStackOverTls, RefusesACertificateOfAnotherHost)
{
    const TestCertificate certificate("DNS:other.example");
    const test::DevServerProcess server(certificate.serverArguments());
    useBundleOf(server);
    ::setenv("SSL_CERT_DIR", certificate.trustFolder().c_str(), 1);
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("EncryptString", {}, {}, &error));
    EXPECT_EQ(error->kind, FailureKind::certificate);
}

TEST(WholeStackOverTls, NeverFollowsARedirectToHttp)
{
    const TestCertificate certificate;
    ::setenv("SSL_CERT_DIR", certificate.trustFolder().c_str(), 1);
    const test::RawServer plain(test::httpAnswer(test::wireBody("authenticate.response.http")));
    test::BackgroundProgram redirecting(
        {{"/usr/bin/python3", test::sourceFile("tests/redirecting_server.py"),
          certificate.certificate(), certificate.key(), plain.url()}});
    const auto port = redirecting.readLine();
    ASSERT_TRUE(port);
    const test::TestBundle bundle(test::settingsWith(
        "Authenticate", {{"URL", "https://127.0.0.1:" + *port + "/"},
                         {"soapParams", Array{test::named("password", "<<PASSWORD>>")}}}));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::authenticateForUsername("ann", "secret", &error));
    EXPECT_EQ(error->code, 200);
    DDLog::flushLog();
    std::string log;
    for (const auto& line : logger->lines())
        log += line.text;
    EXPECT_NE(log.find("redirects to \"" + plain.url() + "\", which is not followed"),
              std::string::npos)
        << log;
    EXPECT_TRUE(plain.requests().empty());
}

TEST(Samples, SignInSaysWhereTheFilesGo)
{
    const test::DevServerProcess server;
    useBundleOf(server);
    ASSERT_TRUE(WebServiceBroker::creatAccountWithFirstname("A", "ann", "pw", "a@b.c", nullptr));
    const auto run = [&](const char* password) {
        return test::runProgram(
            {{test::builtProgram("sample-signin"), server.bundle().string(), "ann"},
             {{"STOWLINE_PASSWORD", password}}});
    };
    EXPECT_EQ(run("pw").output, "signed in; the backup server is " +
                                    server.address().substr(sizeof "http://" - 1) + "\n");
    EXPECT_EQ(run("no").status, 1);
    EXPECT_EQ(run("no").errors, "The service refused the sign-in.\n");
}

} // namespace
} // namespace stowline
