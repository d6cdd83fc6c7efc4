// Looks at a host while its name is slow to be found.
#include "stowline/net/Reachability.h"
#include "stowline/platform/desktop/MainRunLoop.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/threads/Timer.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/NetworkNamespace.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using platform::MainRunLoop;

/// A name server (RFC 1035) that knows one IPv4 address for every name, or, at first, none.
class NameServer {
public:
    /// @param onFirst runs when the first question has come, before its answer: no such name
    explicit NameServer(std::function<void()> onFirst)
        : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), onFirst_(std::move(onFirst))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        thread_ = std::jthread([this] { serve(); });
    }
    ~NameServer()
    {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

private:
    void serve()
    {
        std::array<char, 512> room{};
        bool knows = false;
        for (;;) {
            sockaddr_in from{};
            socklen_t length = sizeof from;
            auto* asker = reinterpret_cast<sockaddr*>(&from);
            const auto count = ::recvfrom(socket_, room.data(), room.size(), 0, asker, &length);
            if (count <= 0)
                return;
            if (!knows)
                onFirst_();
            const std::string answer = answerTo({room.data(), std::size_t(count)}, knows);
            knows = true;
            (void)::sendto(socket_, answer.data(), answer.size(), 0, asker, length);
        }
    }

    static std::string answerTo(const std::string& question, bool knows)
    {
        constexpr std::size_t header = 12;
        const std::size_t end = question.find('\0', header) + 5; // name, type, class
        const bool isForIPv4 = question[end - 3] == 1;
        const char answers = knows && isForIPv4 ? 1 : 0;
        const char noSuchName = knows ? 0 : 3;
        std::string answer = question.substr(0, 2);
        answer += {'\x81', static_cast<char>('\x80' | noSuchName), 0, 1, 0, answers, 0, 0, 0, 0};
        answer += question.substr(header, end - header);
        if (answers > 0)
            answer += std::string("\xc0\x0c\0\1\0\1\0\0\0\0\0\4\xc0\0\2\1", 16); // 192.0.2.1
        return answer;
    }

    const int socket_;
    const std::function<void()> onFirst_;
    std::jthread thread_;
};

TEST(ReachabilityInANamespace, AChangeDuringALookIsLookedAtAfterIt)
{
    for (const auto& missing : {test::enterNetworkNamespace(), test::enterMountNamespace()}) {
        if (missing)
            GTEST_SKIP() << *missing;
    }
    for (const char* which : {"all", "default"}) // whose addresses bring changes of their own
        std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6") << "1";
    test::ip("link set lo up");
    test::ip("link add wan0 type veth peer name wan1");
    test::ip("link set wan1 up");
    test::ip("addr add 192.0.2.10/24 dev wan0");
    const test::Mount etc = test::Mount::memory("/etc");
    std::ofstream("/etc/resolv.conf") << "nameserver 127.0.0.1\n"
                                         "options single-request timeout:30 attempts:1\n";
    std::ofstream("/etc/nsswitch.conf") << "hosts: dns\n";
    const NameServer names([] {
        test::ip("link set wan0 up");
        std::this_thread::sleep_for(1s); // a slow server: the change is told of meanwhile
    });
    std::vector<bool> seen;
    platform::NotificationCenter::shared().addObserver(
        kHostReachabilityDidChangeNotification, [&](const platform::Notification& notification) {
            seen.push_back(*platform::find(notification.userInfo, "isReachable")->boolean());
            MainRunLoop::stop();
        });
    platform::SerialQueue queue("test");
    platform::Timer giveUp(queue, [] { MainRunLoop::stop(); });
    giveUp.start(10s);
    ASSERT_TRUE(Reachability::addHostForReachabilityObservation("named.example."));
    MainRunLoop::run();
    EXPECT_EQ(seen, (std::vector<bool>{true}));
    Reachability::removeHostFromReachabilityObservation("named.example.");
}

} // namespace
} // namespace stowline
