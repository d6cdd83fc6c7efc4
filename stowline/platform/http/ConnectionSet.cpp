#include "stowline/platform/http/ConnectionSet.h"

#include <algorithm>
#include <fcntl.h>
#include <linux/sockios.h>
#include <new>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace stowline::platform {

std::size_t OpenSockets::unacknowledged() const
{
    std::size_t sum = 0;
    for (const curl_socket_t socket : sockets_) {
        int bytes = 0;
        if (::ioctl(socket, SIOCOUTQ, &bytes) == 0)
            sum += static_cast<std::size_t>(std::max(bytes, 0));
    }
    return sum;
}

bool OpenSockets::areQuiet() const
{
    return std::ranges::none_of(sockets_, [](curl_socket_t socket) {
        pollfd watched{socket, POLLIN, 0};
        return ::poll(&watched, 1, 0) != 0;
    });
}

void OpenSockets::abandon()
{
    for (const curl_socket_t socket : sockets_)
        ::close(socket);
    sockets_.clear();
}

int OpenSockets::onOpen(void* self, curl_socket_t socket, curlsocktype /*purpose*/)
{
    // Also open between exchanges: no program that the host starts must have it.
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    auto& sockets = *static_cast<OpenSockets*>(self);
    ++sockets.opened_;
    try {
        sockets.sockets_.push_back(socket);
    } catch (const std::bad_alloc&) {
        return CURL_SOCKOPT_ERROR;
    }
    return CURL_SOCKOPT_OK;
}

int OpenSockets::onClose(void* self, curl_socket_t socket)
{
    std::erase(static_cast<OpenSockets*>(self)->sockets_, socket);
    return ::close(socket);
}

TlsSessions::TlsSessions() : share_(curl_share_init())
{
    CURLSH* handle = share_.get();
    curl_share_setopt(handle, CURLSHOPT_LOCKFUNC, &lock);
    curl_share_setopt(handle, CURLSHOPT_UNLOCKFUNC, &unlock);
    curl_share_setopt(handle, CURLSHOPT_USERDATA, this);
    curl_share_setopt(handle, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

void TlsSessions::lock(CURL* /*user*/, curl_lock_data what, curl_lock_access /*how*/, void* self)
{
    static_cast<TlsSessions*>(self)->mutexes_.at(static_cast<std::size_t>(what)).lock();
}

void TlsSessions::unlock(CURL* /*user*/, curl_lock_data what, void* self)
{
    static_cast<TlsSessions*>(self)->mutexes_.at(static_cast<std::size_t>(what)).unlock();
}

std::unique_ptr<ConnectionSet> ConnectionSet::made()
{
    auto set = std::make_unique<ConnectionSet>();
    set->multi.reset(curl_multi_init());
    return set;
}

} // namespace stowline::platform
