// The server's side of a TLS connection, with time limits that hold for each step.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

struct ssl_ctx_st;
struct ssl_st;

namespace stowline::platform {

/// Has a server's context speak TLS 1.2 or newer with this certificate (and what stands behind it
/// in its chain), both in PEM. @return false when they cannot be used, also for a key that is
/// encrypted: nobody is asked for its passphrase
[[nodiscard]] bool useCertificate(ssl_ctx_st& context, const std::string& certificateFile,
                                  const std::string& keyFile);

/// TLS over a connected socket, which stays the caller's. The socket does not block from then on.
/// Every wait ends in time, whatever pace the other side keeps: a peer that sends a byte now and
/// then is given up like one that is silent. One thread at a time.
class TlsConnection {
public:
    /// Carries out the handshake. @return null when it fails or takes too long
    [[nodiscard]] static std::unique_ptr<TlsConnection> accept(ssl_ctx_st* context, int socket,
                                                               std::chrono::milliseconds atMost);

    ~TlsConnection();
    TlsConnection(const TlsConnection&) = delete;
    TlsConnection& operator=(const TlsConnection&) = delete;

    /// Whether bytes wait here that the socket no longer shows.
    [[nodiscard]] bool hasBuffered() const;

    /// What comes next. @return bytes; 0 at the end, -1 on a failure or when the time is over
    [[nodiscard]] std::ptrdiff_t receive(char* bytes, std::size_t size,
                                         std::chrono::milliseconds atMost);

    /// Sends some of the bytes. @return how many; -1 on a failure or when the time is over
    [[nodiscard]] std::ptrdiff_t send(const char* bytes, std::size_t size,
                                      std::chrono::milliseconds atMost);

    /// Tells the other side that nothing follows, and does not wait for its answer.
    void end();

private:
    struct Free {
        void operator()(ssl_st* connection) const;
    };

    explicit TlsConnection(ssl_st* connection);

    template <class Step> int carryOut(Step step, std::chrono::milliseconds atMost);

    std::unique_ptr<ssl_st, Free> connection_;
};

} // namespace stowline::platform
