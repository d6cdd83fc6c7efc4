#include "devserver/HttpServers.h"

#include "stowline/platform/network/Sockets.h"
#include "stowline/platform/network/TlsConnection.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>

namespace stowline::devserver {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kMostThreads = 1000;
constexpr std::size_t kMostRequests = 1000; ///< of one connection
constexpr seconds kIdleTime{5};             ///< of a connection
constexpr seconds kHandshakeTime{5};        ///< of TLS
constexpr seconds kHeaderTime{30};
constexpr seconds kSilence{30}; ///< in the middle of a body, or of an answer
constexpr seconds kIdleThreadTime{10};
constexpr milliseconds kLook{100}; ///< between looks whether the server is to end

/// A thread for each piece of work that waits; those without work end after a while.
class ElasticThreads final : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> work) override
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(work));
        if (idle_ >= waiting_.size() || running_ >= kMostThreads) {
            changed_.notify_one();
            return;
        }
        try {
            std::thread([this] { run(); }).detach();
            ++running_;
        } catch (const std::system_error&) { // no more threads: those that run do it
            changed_.notify_one();
        }
    }

    void shutdown() override
    {
        std::unique_lock lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
        ended_.wait(lock, [this] { return running_ == 0; });
    }

private:
    void run()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            ++idle_;
            const bool isWoken = changed_.wait_for(
                lock, kIdleThreadTime, [this] { return isEnding_ || !waiting_.empty(); });
            --idle_;
            if (waiting_.empty() && (isEnding_ || !isWoken))
                break;
            const auto work = std::move(waiting_.front());
            waiting_.pop_front();
            lock.unlock();
            work();
            lock.lock();
        }
        --running_;
        std::notify_all_at_thread_exit(ended_, std::move(lock)); // the queue may be gone after it
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::condition_variable ended_;
    std::deque<std::function<void()>> waiting_;
    std::size_t idle_ = 0;
    std::size_t running_ = 0;
    bool isEnding_ = false;
};

/// A connection whose reader takes no more than it was allowed, and no longer.
class BoundedStream final : public httplib::Stream {
public:
    /// @param tls what the socket carries; null when it carries plain HTTP
    explicit BoundedStream(socket_t socket, platform::TlsConnection* tls = nullptr)
        : socket_(socket), tls_(tls)
    {
    }

    /// From here on so many bytes may be read until the deadline.
    void allow(std::size_t bytes, Clock::time_point until)
    {
        allowed_ = bytes;
        until_ = until;
    }

    [[nodiscard]] bool hasBuffered() const
    {
        return start_ < end_ || (tls_ && tls_->hasBuffered());
    }

    bool is_readable() const override
    {
        return hasBuffered() || platform::awaitReadable(socket_, milliseconds(0));
    }

    bool is_writable() const override { return platform::awaitWritable(socket_, kSilence); }

    ssize_t read(char* bytes, std::size_t size) override
    {
        size = std::min(size, allowed_);
        if (size == 0 || (start_ == end_ && !fill()))
            return -1;
        size = std::min(size, end_ - start_);
        std::copy_n(buffer_.data() + start_, size, bytes);
        start_ += size;
        allowed_ -= size;
        return static_cast<ssize_t>(size);
    }

    ssize_t write(const char* bytes, std::size_t size) override
    {
        if (tls_)
            return tls_->send(bytes, size, kSilence);
        return is_writable() ? platform::sendTo(socket_, bytes, size) : -1;
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override
    {
        const auto address = platform::remoteAddressOf(socket_);
        ip = address.host;
        port = address.port;
    }

    void get_local_ip_and_port(std::string& ip, int& port) const override
    {
        const auto address = platform::localAddressOf(socket_);
        ip = address.host;
        port = address.port;
    }

    socket_t socket() const override { return socket_; }

private:
    bool fill()
    {
        const auto left = std::chrono::ceil<milliseconds>(until_ - Clock::now());
        const auto count = left.count() > 0 ? receive(std::min<milliseconds>(left, kSilence)) : -1;
        start_ = 0;
        end_ = static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0));
        return count > 0;
    }

    std::ptrdiff_t receive(milliseconds atMost)
    {
        if (tls_)
            return tls_->receive(buffer_.data(), buffer_.size(), atMost);
        return platform::awaitReadable(socket_, atMost)
                   ? platform::receiveFrom(socket_, buffer_.data(), buffer_.size())
                   : -1;
    }

    const socket_t socket_;
    platform::TlsConnection* const tls_;
    std::size_t allowed_ = 0;
    Clock::time_point until_;
    std::array<char, 16384> buffer_{};
    std::size_t start_ = 0;
    std::size_t end_ = 0;
};

/// One of the library's servers whose connections are bounded.
template <class Library> class BoundedServer : public Library {
public:
    using Library::Library;

protected:
    /// @return whether the last request was answered in order
    bool answerAll(BoundedStream& stream)
    {
        bool isDone = true;
        bool goesOn = true;
        for (std::size_t left = kMostRequests; goesOn && left > 0 && awaitRequest(stream); --left)
            isDone = answerOne(stream, left == 1, goesOn);
        return isDone;
    }

private:
    /// @return false when none comes
    bool awaitRequest(const BoundedStream& stream)
    {
        const auto until = Clock::now() + kIdleTime;
        while (!stream.hasBuffered() && !platform::awaitReadable(stream.socket(), kLook)) {
            if (this->svr_sock_ == INVALID_SOCKET || Clock::now() >= until)
                return false;
        }
        return true;
    }

    bool answerOne(BoundedStream& stream, bool isLast, bool& goesOn)
    {
        constexpr auto noDeadline = std::chrono::hours(24);
        constexpr std::size_t framing = kMostBodyBytes / 8; // of a body in chunks
        stream.allow(kMostHeaderBytes, Clock::now() + kHeaderTime);
        bool isClosed = false;
        const bool isDone = this->process_request(stream, isLast, isClosed, [&](httplib::Request&) {
            stream.allow(kMostBodyBytes + framing, Clock::now() + noDeadline);
        });
        goesOn = isDone && !isClosed;
        return isDone;
    }
};

class PlainServer final : public BoundedServer<httplib::Server> {
private:
    bool process_and_close_socket(socket_t socket) override
    {
        BoundedStream stream(socket);
        const bool isDone = answerAll(stream);
        platform::endConnection(socket);
        return isDone;
    }
};

class TlsServer final : public BoundedServer<httplib::SSLServer> {
public:
    using BoundedServer::BoundedServer;

private:
    bool process_and_close_socket(socket_t socket) override
    {
        const auto tls = platform::TlsConnection::accept(ssl_context(), socket, kHandshakeTime);
        bool isDone = false;
        if (tls) {
            BoundedStream stream(socket, tls.get());
            isDone = answerAll(stream);
            if (isDone)
                tls->end();
        }
        platform::endConnection(socket);
        return isDone;
    }
};

void setLimits(httplib::Server& server)
{
    server.new_task_queue = [] { return new ElasticThreads(); }; // NOLINT: as the library wants it
    server.set_keep_alive_max_count(kMostRequests);
    server.set_keep_alive_timeout(kIdleTime.count());
    server.set_read_timeout(kSilence);
    server.set_write_timeout(kSilence);
    server.set_payload_max_length(kMostBodyBytes);
    server.set_tcp_nodelay(true);
}

} // namespace

std::unique_ptr<httplib::Server> makeHttpServer()
{
    auto server = std::make_unique<PlainServer>();
    setLimits(*server);
    return server;
}

std::unique_ptr<httplib::Server> makeHttpsServer(const std::string& certificateFile,
                                                 const std::string& keyFile)
{
    auto server = std::make_unique<TlsServer>([&](ssl_ctx_st& context) {
        return platform::useCertificate(context, certificateFile, keyFile);
    });
    setLimits(*server);
    return server;
}

} // namespace stowline::devserver
