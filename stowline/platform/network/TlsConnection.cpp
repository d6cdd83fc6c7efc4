#include "stowline/platform/network/TlsConnection.h"

#include "stowline/platform/network/Sockets.h"

#include <algorithm>
#include <fcntl.h>
#include <limits>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

int boundedSize(std::size_t size)
{
    return static_cast<int>(
        std::min(size, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

} // namespace

bool useCertificate(ssl_ctx_st& context, const std::string& certificateFile,
                    const std::string& keyFile)
{
    // Without a function of ours the library asks at the terminal.
    ::SSL_CTX_set_default_passwd_cb(&context, [](char*, int, int, void*) { return -1; });
    ::ERR_clear_error();
    return ::SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
           ::SSL_CTX_use_certificate_chain_file(&context, certificateFile.c_str()) == 1 &&
           ::SSL_CTX_use_PrivateKey_file(&context, keyFile.c_str(), SSL_FILETYPE_PEM) == 1 &&
           ::SSL_CTX_check_private_key(&context) == 1;
}

void TlsConnection::Free::operator()(ssl_st* connection) const
{
    ::SSL_free(connection);
}

TlsConnection::TlsConnection(ssl_st* connection) : connection_(connection) {}

TlsConnection::~TlsConnection() = default;

/// Repeats a step until it is done, its connection has failed or the time is over.
/// @return what the step gave at last
template <class Step> int TlsConnection::carryOut(Step step, milliseconds atMost)
{
    const auto deadline = Clock::now() + atMost;
    const int socket = ::SSL_get_fd(connection_.get());
    for (;;) {
        ::ERR_clear_error();
        const int result = step();
        if (result > 0)
            return result;
        const int need = ::SSL_get_error(connection_.get(), result);
        if (need == SSL_ERROR_ZERO_RETURN)
            return 0;
        if (need != SSL_ERROR_WANT_READ && need != SSL_ERROR_WANT_WRITE)
            return -1;
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        const bool isReady =
            left.count() > 0 && (need == SSL_ERROR_WANT_READ ? awaitReadable(socket, left)
                                                             : awaitWritable(socket, left));
        if (!isReady)
            return -1;
    }
}

std::unique_ptr<TlsConnection> TlsConnection::accept(ssl_ctx_st* context, int socket,
                                                     milliseconds atMost)
{
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0)
        return nullptr;
    std::unique_ptr<TlsConnection> made(new TlsConnection(::SSL_new(context)));
    ssl_st* const connection = made->connection_.get();
    if (!connection || ::SSL_set_fd(connection, socket) != 1)
        return nullptr;
    ::SSL_set_mode(connection, SSL_MODE_ENABLE_PARTIAL_WRITE);
    if (made->carryOut([connection] { return ::SSL_accept(connection); }, atMost) <= 0)
        return nullptr;
    return made;
}

bool TlsConnection::hasBuffered() const
{
    return ::SSL_has_pending(connection_.get()) == 1;
}

std::ptrdiff_t TlsConnection::receive(char* bytes, std::size_t size, milliseconds atMost)
{
    return carryOut([&] { return ::SSL_read(connection_.get(), bytes, boundedSize(size)); },
                    atMost);
}

std::ptrdiff_t TlsConnection::send(const char* bytes, std::size_t size, milliseconds atMost)
{
    const int count =
        carryOut([&] { return ::SSL_write(connection_.get(), bytes, boundedSize(size)); }, atMost);
    return count > 0 ? count : -1;
}

void TlsConnection::end()
{
    ::ERR_clear_error();
    (void)::SSL_shutdown(connection_.get());
}

} // namespace stowline::platform
