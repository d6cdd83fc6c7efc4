#include "bench/DelayingRelay.h"

#include "bench/Measure.h"
#include "bench/ServedTree.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <deque>
#include <list>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace stowline::bench {

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int connectedTo(int port)
{
    const int number = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (::connect(number, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        ::_exit(1);
    return number;
}

int portOf(const std::string& address)
{
    return std::stoi(address.substr(address.rfind(':') + 1));
}

/// One direction of a connection.
struct Way {
    struct Piece {
        Clock::time_point due;
        std::string bytes; ///< empty: nothing more comes
    };
    int from = -1;
    int to = -1;
    std::string named; ///< what is replaced
    std::string by;
    Clock::time_point earliest; ///< before which nothing arrives
    std::deque<Piece> queue = {};
    bool isAtEnd = false; ///< nothing more is read
    bool isOver = false;  ///< nothing more is sent

    void take(std::chrono::milliseconds eachWay)
    {
        std::array<char, 65536> room; // NOLINT: filled by recv
        const ssize_t count = ::recv(from, room.data(), room.size(), 0);
        isAtEnd = count <= 0;
        std::string bytes(room.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        for (auto at = bytes.find(named); at != std::string::npos; at = bytes.find(named, at))
            bytes.replace(at, named.size(), by);
        queue.push_back({std::max(Clock::now(), earliest) + eachWay, std::move(bytes)});
    }

    void handOn()
    {
        while (!queue.empty() && queue.front().due <= Clock::now()) {
            const std::string bytes = std::move(queue.front().bytes);
            queue.pop_front();
            isOver |= bytes.empty();
            std::size_t sent = 0;
            while (!isOver && sent < bytes.size()) {
                const ssize_t count =
                    ::send(to, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
                isOver = count <= 0;
                sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
            }
        }
        if (isOver)
            ::shutdown(to, SHUT_WR);
    }
};

struct Line {
    Way there;
    Way back;
};

class RelayWork {
public:
    RelayWork(int listener, std::string own, std::string server, std::chrono::milliseconds eachWay)
        : listener_(listener), own_(std::move(own)), server_(std::move(server)), eachWay_(eachWay)
    {
    }

    [[noreturn]] void run()
    {
        for (;;) {
            std::vector<pollfd> watched{{listener_, POLLIN, 0}};
            auto due = Clock::now() + std::chrono::seconds(1);
            for (const Line& line : lines_) {
                for (const Way* way : {&line.there, &line.back}) {
                    watched.push_back({way->isAtEnd ? -1 : way->from, POLLIN, 0});
                    if (!way->queue.empty())
                        due = std::min(due, way->queue.front().due);
                }
            }
            const auto left = std::max(due - Clock::now(), Clock::duration::zero());
            const timespec wait{
                0, std::min<long>(999'999'999, std::chrono::nanoseconds(left).count())};
            if (::ppoll(watched.data(), watched.size(), &wait, nullptr) < 0 && errno != EINTR)
                ::_exit(1);
            moveAll(watched);
            if (watched[0].revents != 0)
                accept();
        }
    }

private:
    void moveAll(const std::vector<pollfd>& watched)
    {
        std::size_t at = 1;
        for (Line& line : lines_) {
            for (Way* way : {&line.there, &line.back}) {
                if (watched[at++].revents != 0 && !way->isAtEnd)
                    way->take(eachWay_);
                way->handOn();
            }
        }
        std::erase_if(lines_, [](const Line& line) {
            const bool isOver = line.there.isOver && line.back.isOver;
            if (isOver) {
                ::close(line.there.from);
                ::close(line.there.to);
            }
            return isOver;
        });
    }

    void accept()
    {
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            return;
        const int server = connectedTo(portOf(server_));
        constexpr int yes = 1;
        for (const int number : {client, server})
            ::setsockopt(number, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const auto made = Clock::now() + 2 * eachWay_;
        lines_.push_back(
            {{client, server, own_, server_, made}, {server, client, server_, own_, {}}});
    }

    const int listener_;
    const std::string own_;
    const std::string server_;
    const std::chrono::milliseconds eachWay_;
    std::list<Line> lines_;
};

} // namespace

DelayingRelay::DelayingRelay(const std::string& server, std::chrono::milliseconds eachWay)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    expect(::bind(listener, general, size) == 0 && ::listen(listener, 128) == 0 &&
               ::getsockname(listener, general, &size) == 0,
           "There is no port for a relay.");
    address_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    expect(address_.size() == server.size(), "The ports are not of one length.");
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        RelayWork(listener, address_, server, eachWay).run();
    }
    ::close(listener);
}

DelayingRelay::~DelayingRelay()
{
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

} // namespace stowline::bench
