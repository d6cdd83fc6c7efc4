// The connections of one exchange, which outlive it where they are kept for another.
#pragma once

#include "stowline/platform/threads/ForkSafety.h"

#include <curl/curl.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace stowline::platform {

struct EasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct MultiDeleter {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct ShareDeleter {
    void operator()(CURLSH* handle) const { curl_share_cleanup(handle); }
};

/// The sockets of one exchange after another, as the library opens and closes them.
class OpenSockets {
public:
    /// Bytes that were handed to the system and that the other side has not acknowledged yet.
    [[nodiscard]] std::size_t unacknowledged() const;

    [[nodiscard]] std::size_t count() const { return sockets_.size(); }

    /// How many were ever opened.
    [[nodiscard]] std::size_t openedSoFar() const { return opened_; }

    /// Whether nothing has arrived that nobody asked for: neither an end nor bytes, which the next
    /// request would take for its answer.
    [[nodiscard]] bool areQuiet() const;

    /// Closes this process's copies of them without a word to the other side.
    void abandon();

    /// For the library, with a pointer to this object.
    static int onOpen(void* self, curl_socket_t socket, curlsocktype purpose);
    static int onClose(void* self, curl_socket_t socket);

private:
    std::vector<curl_socket_t> sockets_;
    std::size_t opened_ = 0;
};

/// TLS sessions with which connections of any thread begin: a server that is known needs no full
/// greeting. Any thread.
class TlsSessions {
public:
    TlsSessions();
    [[nodiscard]] CURLSH* handle() const { return share_.get(); }

private:
    static void lock(CURL* user, curl_lock_data what, curl_lock_access how, void* self);
    static void unlock(CURL* user, curl_lock_data what, void* self);

    std::array<ForkSafeMutex, CURL_LOCK_DATA_LAST> mutexes_;
    std::unique_ptr<CURLSH, ShareDeleter> share_;
};

/// Connections, or none yet. For one exchange at a time.
struct ConnectionSet {
    std::string origin;           ///< whom the first of them leads to
    std::string conditions;       ///< of which they were made, and which must not have changed
    int owner = -1;               ///< process
    bool needsSpareTrust = false; ///< the system's bundle is needed to know who issued
    OpenSockets sockets;          // outlives what closes them
    std::shared_ptr<TlsSessions> sessions; ///< null: of each transfer alone
    std::unique_ptr<CURLM, MultiDeleter> multi;

    /// One without connections.
    [[nodiscard]] static std::unique_ptr<ConnectionSet> made();
};

} // namespace stowline::platform
