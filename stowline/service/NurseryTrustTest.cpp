// Whose certificates the calls of a nursery trust: those of the moment of the call, as with a
// helper that is started alone, though the nursery reads a file of them once for all its children.
#include "stowline/service/NurseryTest.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>

namespace stowline {
namespace {

/// A certificate of 127.0.0.1 with its key.
class Certificate {
public:
    Certificate()
    {
        const auto made = test::runProgram(
            {{"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
              "-subj", "/CN=" + folder_.path().filename().string(), "-addext",
              "subjectAltName=IP:127.0.0.1", "-keyout", in("key.pem"), "-out", in("c.pem")}});
        if (made.status != 0)
            throw std::runtime_error(made.errors);
    }
    [[nodiscard]] std::string text() const { return platform::readFile(in("c.pem")).value(); }
    [[nodiscard]] std::vector<std::string> serverArguments() const
    {
        return {"--tls-certificate", in("c.pem"), "--tls-key", in("key.pem")};
    }

private:
    [[nodiscard]] std::string in(const char* name) const
    {
        return (folder_.path() / name).string();
    }
    test::TemporaryFolder folder_;
};

/// A service over TLS, and a file of certificates that this process trusts.
class Trust : public testing::TestWithParam<test::HelperForm> {
protected:
    Trust()
    {
        platform::Bundle::useFolder(server_.bundle());
        platform::Bundle::useExecutable(test::builtProgram("stowline"));
        WebServiceBroker::useNursery(GetParam() == test::HelperForm::ofNursery);
        ::setenv("SSL_CERT_FILE", file_.c_str(), 1);
        ::unsetenv("SSL_CERT_DIR");
    }
    ~Trust() override { WebServiceBroker::useNursery(false); }

    static bool works() { return WebServiceBroker::encryptString("a text").has_value(); }
    void trust(const std::string& text) const { folder_.write("trusted.pem", text); }
    [[nodiscard]] const std::string& file() const { return file_; }

    const Certificate own_;
    const Certificate other_;

private:
    const test::DevServerProcess server_{own_.serverArguments()};
    const test::TemporaryFolder folder_;
    const std::string file_ = folder_.write("trusted.pem", own_.text()).string();
};

INSTANTIATE_TEST_SUITE_P(Forms, Trust, testing::ValuesIn(test::kHelperForms), test::nameOfForm);

TEST_P(Trust, IsInWhatTheFileHoldsAtTheMomentOfTheCall)
{
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(works());
    trust(other_.text());
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(works());
    trust(other_.text() + own_.text());
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(works());
    trust("-----BEGIN CERTIFICATE-----\nbroken\n-----END CERTIFICATE-----\n");
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(works());
}

/// Notices that a file is opened.
class OpenWatch {
public:
    explicit OpenWatch(const std::string& file) : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        if (::inotify_add_watch(watch_.number(), file.c_str(), IN_OPEN) < 0)
            throw std::runtime_error("the file cannot be watched");
    }
    /// Whether it was opened since the last question.
    [[nodiscard]] bool wasOpened() const
    {
        std::array<char, 4096> events{};
        bool isSo = false;
        while (::read(watch_.number(), events.data(), events.size()) > 0)
            isSo = true;
        return isSo;
    }

private:
    const platform::FileDescriptor watch_;
};

class TrustOfANursery : public Trust {};

INSTANTIATE_TEST_SUITE_P(Forms, TrustOfANursery, testing::Values(test::HelperForm::ofNursery),
                         test::nameOfForm);

TEST_P(TrustOfANursery, IsReadOnceForAllChildren)
{
    const OpenWatch watch(file());
    constexpr int most = 200; // the first calls may come before it has read the file
    int calls = 0;
    do {
        (void)watch.wasOpened();
        ASSERT_TRUE(works());
    } while (watch.wasOpened() && ++calls < most);
    EXPECT_LT(calls, most) << "each call reads the file";
    EXPECT_TRUE(works());
}

} // namespace
} // namespace stowline
