// Parts sent to servers as they are packaged: which form of a body's length each of them takes.
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/Program.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace stowline {
namespace {

namespace fs = std::filesystem;

/// A port of the loopback interface that nobody listens on at this moment.
int freePort()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isBound =
        ::bind(socket, place, size) == 0 && ::getsockname(socket, place, &size) == 0;
    ::close(socket);
    return isBound ? ntohs(address.sin_port) : 0;
}

/// What became of a part of five bytes with the length in the settings' form.
struct SentPart {
    bool isStored = false;
    std::optional<Error> error;
};

SentPart sendPart(const std::string& host, bool plainLength)
{
    const test::TestBundle bundle(
        {{"WebRequests",
          Dictionary{{"UploadFilePart", Dictionary{{"URL", "http://%@/UploadFilePart"},
                                                   {"httpMethod", "POST"},
                                                   {"plainContentLength", plainLength},
                                                   {"responseHeaderNames", Array{"Status"}}}}}}});
    SentPart part;
    part.isStored = WebServiceBroker::uploadForUser("ann", "hello", "/home/ann/letter.txt", 5, host,
                                                    "/vol1/ann/", "guid", &part.error)
                        .has_value();
    return part;
}

/// A server program that tells on its standard output when it listens. It has to find its port
/// free, and is begun again when it did not.
class PackagedServer {
public:
    /// @param configure makes the configuration file for an address and a folder
    /// @param words the program and its arguments, "{}" for the configuration file
    /// @param mark in the line that says that it listens
    PackagedServer(
        const std::function<std::string(const std::string&, const std::string&)>& configure,
        const std::vector<std::string>& words, std::string_view mark)
    {
        const std::string folder = folder_.path();
        fs::permissions(folder, fs::perms(0755)); // it may run as another user
        folder_.write("UploadFilePart", "taken");
        for (int tries = 0; tries < 10 && !isRunning_; ++tries) {
            host_ = "127.0.0.1:" + std::to_string(freePort());
            folder_.write("configuration", configure(host_, folder));
            std::vector<std::string> filled;
            for (const std::string& word : words)
                filled.push_back(word == "{}" ? folder + "/configuration" : word);
            program_.emplace(test::ProgramRun{filled, {{"LANG", "C"}}});
            while (const auto line = program_->readLine()) {
                said_ += *line + "\n";
                isRunning_ = line->find(mark) != std::string::npos;
                if (isRunning_)
                    break;
            }
        }
    }

    [[nodiscard]] const std::string& host() const { return host_; }
    [[nodiscard]] bool isRunning() const { return isRunning_; }
    [[nodiscard]] const std::string& said() const { return said_; }

private:
    test::TemporaryFolder folder_;
    std::string host_;
    std::string said_;
    bool isRunning_ = false;
    std::optional<test::BackgroundProgram> program_;
};

constexpr const char* kNginx = "/usr/sbin/nginx";
constexpr const char* kApache = "/usr/sbin/apache2";

/// Takes every part, with the header that tells so.
std::string nginxConfiguration(const std::string& host, const std::string& folder)
{
    std::string places;
    for (const std::string place : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        places += place + "_temp_path " + folder + "/" + place + ";\n";
    return "daemon off;\nmaster_process off;\npid " + folder +
           "/pid;\nerror_log /dev/stdout notice;\nevents {}\nhttp {\naccess_log off;\n" + places +
           "server {\nlisten " + host +
           ";\nlocation / {\nadd_header Status true;\nreturn 200;\n}\n}\n}\n";
}

PackagedServer nginx()
{
    return {nginxConfiguration, {kNginx, "-e", "/dev/stdout", "-c", "{}"}, "event method"};
}

/// The same: it hands out a file whatever it is sent.
std::string apacheConfiguration(const std::string& host, const std::string& folder)
{
    std::string text;
    for (const std::string name : {"mpm_event", "authz_core", "headers"})
        text += "LoadModule " + name + "_module /usr/lib/apache2/modules/mod_" + name + ".so\n";
    if (::geteuid() == 0)
        text += "User nobody\nGroup nogroup\n";
    return text + "ServerRoot " + folder + "\nServerName localhost\nListen " + host + "\nPidFile " +
           folder + "/pid\nErrorLog /dev/stdout\nLogLevel notice\nDocumentRoot " + folder +
           "\n<Location />\nRequire all granted\nHeader set Status true\n</Location>\n";
}

PackagedServer apache()
{
    return {apacheConfiguration,
            {kApache, "-f", "{}", "-D", "FOREGROUND"},
            "resuming normal operations"};
}

TEST(StandardServers, NginxTakesAPlainLength)
{
    if (!fs::exists(kNginx))
        GTEST_SKIP() << "nginx is not installed (apt-get install nginx)";
    const PackagedServer server = nginx();
    ASSERT_TRUE(server.isRunning()) << server.said();
    const SentPart part = sendPart(server.host(), true);
    EXPECT_TRUE(part.isStored);
}

TEST(StandardServers, NginxRefusesTheLetter)
{
    if (!fs::exists(kNginx))
        GTEST_SKIP() << "nginx is not installed (apt-get install nginx)";
    const PackagedServer server = nginx();
    ASSERT_TRUE(server.isRunning()) << server.said();
    const SentPart part = sendPart(server.host(), false);
    EXPECT_FALSE(part.isStored);
    EXPECT_FALSE(part.error) << part.error->localizedDescription(); // it has answered: 400
}

TEST(StandardServers, ApacheTakesAPlainLength)
{
    const PackagedServer server = apache();
    ASSERT_TRUE(server.isRunning()) << server.said();
    const SentPart part = sendPart(server.host(), true);
    EXPECT_TRUE(part.isStored);
}

TEST(StandardServers, ApacheRefusesTheLetter)
{
    const PackagedServer server = apache();
    ASSERT_TRUE(server.isRunning()) << server.said();
    const SentPart part = sendPart(server.host(), false);
    EXPECT_FALSE(part.isStored);
    EXPECT_FALSE(part.error) << part.error->localizedDescription();
}

} // namespace
} // namespace stowline
