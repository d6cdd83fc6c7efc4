// A server between a program and the service, which sees every request and may change every answer.
#pragma once

#include "tests/support/RawServer.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace stowline::test {

/// What goes back instead of the service's answer.
struct RelayedAnswer {
    std::string head; ///< status line and headers, each with its line end, without the empty line
    std::string body;
    bool isRaw = false;     ///< otherwise the head's stated length is made that of the body
    bool isEndless = false; ///< the body is sent again and again, until the other side hangs up
    std::function<bool()> goesOn = {};        ///< of an endless one: asked after each body
    std::size_t cutAfter = std::string::npos; ///< bytes of head and body together

    /// Sets a header that is there, or adds it.
    void setHeader(const std::string& name, const std::string& value);
    [[nodiscard]] std::string header(const std::string& name) const;
};

/// Hands requests on to a server on this machine. Each connection carries one request.
class Relay {
public:
    /// Any thread.
    using Change = std::function<void(const std::string& request, RelayedAnswer&)>;

    /// @param server as "127.0.0.1:80"
    explicit Relay(std::string server);

    /// As "127.0.0.1:80". Answers that name the server name the relay instead.
    [[nodiscard]] std::string address() const;

    void setChange(Change change);

    [[nodiscard]] std::vector<std::string> requests() const { return server_.requests(); }

private:
    void serve(const std::string& request, const RawConnection& connection);

    const std::string behind_;
    std::mutex mutex_;
    Change change_;
    RawServer server_;
};

/// The value of a header of a request; empty when it has none.
[[nodiscard]] std::string headerOf(const std::string& request, const std::string& name);

} // namespace stowline::test
