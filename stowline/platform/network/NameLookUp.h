// Addresses of a host's name, with a limit to the wait for them.
#pragma once

#include <chrono>
#include <memory>
#include <netdb.h>
#include <optional>
#include <string>

namespace stowline::platform {

/// What the name service said.
struct NameAnswer {
    int fault = 0; ///< of getaddrinfo(3); 0: there are addresses
    std::shared_ptr<const addrinfo> addresses;
};

/// Looks a name up for datagram sockets. A name that needs a name service is looked up on a thread
/// of its own, which ends by itself when the answer is waited for no longer; whoever asks for the
/// same name meanwhile is given the same answer. Where no thread can be had the caller looks it up,
/// for as long as that takes. Any thread; the child of a fork() looks up anew.
/// @return absent when there was no answer in time, or this thread was asked to stop (StopRequest)
[[nodiscard]] std::optional<NameAnswer> lookedUp(const std::string& name,
                                                 std::chrono::milliseconds patience);

} // namespace stowline::platform
