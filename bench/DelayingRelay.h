// A way to a server on which everything takes its time, as over a long line.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>

namespace stowline::bench {

/// Hands connections on to a server of this machine, in a process of its own. Each byte arrives so
/// much later than it was sent; the first of a connection later by another there and back, which is
/// what a connection takes to be made over such a line. Bytes that name the relay's address name
/// the server's on the way there, and the other way round on the way back.
class DelayingRelay {
public:
    /// @param server as "127.0.0.1:40000"
    DelayingRelay(const std::string& server, std::chrono::milliseconds eachWay);
    ~DelayingRelay();
    DelayingRelay(const DelayingRelay&) = delete;
    DelayingRelay& operator=(const DelayingRelay&) = delete;

    /// As "127.0.0.1:40001".
    [[nodiscard]] const std::string& address() const { return address_; }

private:
    std::string address_;
    pid_t process_ = -1;
};

} // namespace stowline::bench
