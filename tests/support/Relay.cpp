#include "tests/support/Relay.h"

#include "stowline/platform/text/Text.h"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace stowline::test {

namespace {

constexpr std::string_view kEndOfLine = "\r\n";

/// Where a header's line begins, and where its end of line does.
std::pair<std::size_t, std::size_t> lineOf(const std::string& head, const std::string& name)
{
    const std::string lower = platform::asciiLowercase(head);
    const auto at = lower.find("\r\n" + platform::asciiLowercase(name) + ":");
    if (at == std::string::npos)
        return {std::string::npos, std::string::npos};
    const auto begin = at + kEndOfLine.size();
    return {begin, head.find(kEndOfLine, begin)};
}

void replaceHeader(std::string& head, const std::string& name, const std::string& value)
{
    const auto [begin, end] = lineOf(head, name);
    if (begin != std::string::npos)
        head.replace(begin, end - begin, name + ": " + value);
    else
        head += name + ": " + value + std::string(kEndOfLine);
}

/// Everything that a server sends until it hangs up.
std::string answerOf(const std::string& server, const std::string& request)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto colon = server.find(':');
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(server.substr(colon + 1))));
    std::string answer;
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        RawConnection(socket).send(request)) {
        std::array<char, 65536> piece{};
        for (ssize_t count = 0; (count = ::recv(socket, piece.data(), piece.size(), 0)) > 0;)
            answer.append(piece.data(), static_cast<std::size_t>(count));
    }
    ::close(socket);
    return answer;
}

} // namespace

std::string headerOf(const std::string& request, const std::string& name)
{
    const auto [begin, end] = lineOf(request, name);
    if (begin == std::string::npos)
        return {};
    const auto colon = request.find(':', begin);
    const auto value = request.find_first_not_of(' ', colon + 1);
    return value < end ? request.substr(value, end - value) : "";
}

void RelayedAnswer::setHeader(const std::string& name, const std::string& value)
{
    replaceHeader(head, name, value);
}

std::string RelayedAnswer::header(const std::string& name) const
{
    return headerOf(head, name);
}

Relay::Relay(std::string server)
    : behind_(std::move(server)),
      server_([this](const std::string& request, const RawConnection& connection) {
          serve(request, connection);
      })
{
}

std::string Relay::address() const
{
    return "127.0.0.1:" + std::to_string(server_.port());
}

void Relay::setChange(Change change)
{
    const std::lock_guard lock(mutex_);
    change_ = std::move(change);
}

void Relay::serve(const std::string& request, const RawConnection& connection)
{
    const auto headEnd = request.find("\r\n\r\n");
    if (headEnd == std::string::npos)
        return;
    std::string head = request.substr(0, headEnd + kEndOfLine.size());
    replaceHeader(head, "Host", behind_); // it answers under no other name
    replaceHeader(head, "Connection", "close");
    replaceHeader(head, "Accept-Encoding", "identity");
    const std::string whole =
        answerOf(behind_, head + std::string(kEndOfLine) + request.substr(headEnd + 4));
    const auto bodyAt = whole.find("\r\n\r\n");
    if (bodyAt == std::string::npos)
        return;
    RelayedAnswer answer{
        .head = whole.substr(0, bodyAt + kEndOfLine.size()),
        .body = platform::replacingOccurrences(whole.substr(bodyAt + 4), behind_, address())};
    Change change;
    {
        const std::lock_guard lock(mutex_);
        change = change_;
    }
    if (change)
        change(request, answer);
    if (!answer.isRaw)
        answer.setHeader("Content-Length", std::to_string(answer.body.size()));
    const std::string bytes = answer.head + std::string(kEndOfLine) + answer.body;
    bool isOpen = connection.send(bytes.substr(0, answer.cutAfter));
    while (isOpen && answer.isEndless)
        isOpen = (!answer.goesOn || answer.goesOn()) && connection.send(answer.body);
}

} // namespace stowline::test
