// Uploading beside curl, to a server that only reads; a long listing page by page.
#include "bench/CommandRun.h"
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "devserver/Storage.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>

#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

constexpr std::size_t kPartBytes = 4U << 20;
constexpr int kParts = 256; // 1 GiB
constexpr int kRounds = 7;

double ownProcessorSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return processorSeconds(usage);
}

/// Reads requests and answers "true", in a process of its own so that its time is nobody's.
class ReadingServer {
public:
    ReadingServer()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::listen(listener, 16) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            giveUp("no port");
        port_ = ntohs(address.sin_port);
        process_ = ::fork();
        if (process_ == 0)
            serve(listener);
        ::close(listener);
    }
    ReadingServer(const ReadingServer&) = delete;
    ReadingServer& operator=(const ReadingServer&) = delete;
    ~ReadingServer()
    {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    [[nodiscard]] std::string host() const { return fmt::format("127.0.0.1:{}", port_); }

private:
    [[noreturn]] static void serve(int listener)
    {
        std::vector<char> buffer(1 << 20);
        for (;;) {
            const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            while (answer(connection, buffer)) {
            }
            ::close(connection);
        }
    }

    static bool answer(int connection, std::vector<char>& buffer)
    {
        std::string head;
        std::size_t end = 0;
        while ((end = head.find("\r\n\r\n")) == std::string::npos) {
            const ssize_t count = ::recv(connection, buffer.data(), buffer.size(), 0);
            if (count <= 0)
                return false;
            head.append(buffer.data(), static_cast<std::size_t>(count));
        }
        const auto length = head.find("Content-Length: ");
        std::size_t left = length == std::string::npos
                               ? 0
                               : std::strtoull(head.c_str() + length + 16, nullptr, 10);
        left -= std::min(left, head.size() - end - 4);
        while (left > 0) {
            const ssize_t count =
                ::recv(connection, buffer.data(), std::min(buffer.size(), left), 0);
            if (count <= 0)
                return false;
            left -= static_cast<std::size_t>(count);
        }
        constexpr std::string_view reply = "HTTP/1.1 200 OK\r\nStatus: true\r\n"
                                           "Content-Length: 0\r\n\r\n";
        return ::send(connection, reply.data(), reply.size(), MSG_NOSIGNAL) > 0;
    }

    int port_ = 0;
    pid_t process_ = -1;
};

/// A curl configuration with the same requests, one after another.
std::string curlConfiguration(const test::TemporaryFolder& folder, const std::string& host)
{
    const auto part = folder.write("part", std::string(kPartBytes, 'x'));
    std::string text;
    for (int i = 0; i < kParts; ++i)
        text += fmt::format("{}url = \"http://{}/UploadFilePart\"\nsilent\n"
                            "output = \"/dev/null\"\ndata-binary = \"@{}\"\n"
                            "user-agent = \"Mac/1.0.0\"\nheader = \"X-FileName: L2EvYg==\"\n"
                            "header = \"X-Guid: G\"\nheader = \"X-UserName: YW5u\"\n"
                            "header = \"X-ServerDirPath: L3ZvbDEv\"\n"
                            "header = \"X-PortionSize: {}\"\nheader = \"Content-Length: {}u\"\n"
                            "header = \"Content-Type:\"\nheader = \"Accept:\"\n"
                            "header = \"Expect:\"\n",
                            i == 0 ? "" : "next\n", host, part.string(), kPartBytes, kPartBytes);
    return folder.write("curl.conf", text).string();
}

void measureParts()
{
    const test::DevServerProcess settings; // for its bundle alone
    platform::Bundle::useFolder(settings.bundle());
    const ReadingServer server;
    const test::TemporaryFolder folder;
    const std::string configuration = curlConfiguration(folder, server.host());
    const std::string part(kPartBytes, 'x');
    std::vector<double> ours;
    std::vector<double> oursProcessor;
    std::vector<double> theirs;
    std::vector<double> theirsProcessor;
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    for (int round = 0; round < kRounds; ++round) {
        const double processor = ownProcessorSeconds();
        const auto start = Clock::now();
        for (int i = 0; i < kParts; ++i) {
            if (!WebServiceBroker::uploadForUser("ann", part, "/a/b", part.size(), server.host(),
                                                 "/vol1/", "G", nullptr))
                giveUp("an upload failed");
        }
        ours.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        oursProcessor.push_back(ownProcessorSeconds() - processor);
        const Run curl = runMeasured({"curl", "--config", configuration});
        theirs.push_back(curl.wall);
        theirsProcessor.push_back(curl.processor);
    }
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    const double rate = kParts * static_cast<double>(kPartBytes) / 1e6;
    const double ratio = median(theirs) / median(ours);
    const double share = median(oursProcessor) / median(theirsProcessor);
    print({{"1 GiB in parts of 4 MiB", fmt::format("{:.0f} MB/s", rate / median(ours)),
            fmt::format("curl {:.0f} MB/s", rate / median(theirs)), ratio, "≥ 0.95", ratio >= 0.95},
           {"processor time of the same", fmt::format("{:.0f} ms", median(oursProcessor) * 1000),
            fmt::format("curl {:.0f} ms", median(theirsProcessor) * 1000), share, "≤ 1.1",
            share <= 1.1}});
    fmt::print("memory that sending added to the process with its part: {} KiB\n\n",
               after.ru_maxrss - before.ru_maxrss);
}

void measureListing()
{
    constexpr int entries = 100000;
    const test::DevServerProcess server;
    const test::TemporaryFolder home;
    signUp(server, home);
    {
        SQLite::Database database((server.data() / "files.sqlite").string(), SQLite::OPEN_READWRITE,
                                  5000);
        SQLite::Transaction transaction(database);
        SQLite::Statement insert(database,
                                 "INSERT INTO items (user_name, system_name, folder, name,"
                                 " is_folder, size, modified) VALUES ('ann', 'iMac', '/big', ?,"
                                 " 0, 1024, '2026-01-01 00:00:00')");
        for (int i = 0; i < entries; ++i) {
            insert.bind(1, fmt::format("file {:06}.txt", i));
            insert.exec();
            insert.reset();
        }
        transaction.commit();
    }
    std::vector<double> walls;
    long peak = 0;
    for (int round = 0; round < 3; ++round) {
        const Run run = runMeasured({test::builtProgram("stowline"), "ls", "/big", "--system",
                                     "iMac", "--json", "--page-size", "1000"},
                                    commandEnvironment(server, home));
        walls.push_back(run.wall);
        peak = std::max(peak, run.peakKb);
        if (std::count(run.output.begin(), run.output.end(), '\n') != entries + 1)
            giveUp("the listing is not whole");
    }
    fmt::print("listing 100,000 entries by pages of 1,000: {:.2f} s, peak {} KiB\n", median(walls),
               peak);
}

} // namespace

void measureUploads()
{
    measureOrEnd([] {
        measureParts();
        measureListing();
    });
}

} // namespace stowline::bench
