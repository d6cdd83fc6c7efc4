// The HTTP library's server with limits that it does not have itself.
#pragma once

#include <httplib.h>

#include <cstddef>
#include <memory>
#include <string>

namespace stowline::devserver {

/// What a request may have. More ends the connection or is answered with 413.
inline constexpr std::size_t kMostHeaderBytes = std::size_t{256} << 10; ///< request line included
inline constexpr std::size_t kMostBodyBytes = std::size_t{64} << 20;

/// A server over plain HTTP: headers and bodies are bounded whatever a request says of them, a
/// request's headers must come within 30 seconds, connections without a request are ended after
/// five, and each connection has a thread, up to a thousand.
[[nodiscard]] std::unique_ptr<httplib::Server> makeHttpServer();

/// The same over TLS, whose handshake must come within five seconds. Neither file is asked for a
/// passphrase at a terminal.
[[nodiscard]] std::unique_ptr<httplib::Server> makeHttpsServer(const std::string& certificateFile,
                                                               const std::string& keyFile);

} // namespace stowline::devserver
