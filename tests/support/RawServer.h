// A server on the loopback interface that answers with exactly the bytes a test says.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace stowline::test {

/// One connection: send bytes, hold, tear down.
class RawConnection {
public:
    explicit RawConnection(int socket, std::size_t number = 1) : socket_(socket), number_(number) {}
    /// @return false when the other side has closed the connection
    bool send(const std::string& bytes) const;
    /// Waits until the other side closes the connection, or the server stops.
    void holdUntilClosed() const;
    /// Makes the close that follows a reset.
    void reset() const;
    /// Says that nothing more will come, and keeps no connection.
    void end() const;
    /// Keeps the connection for another request when the handler returns.
    void keepOpen() const { isKept_ = true; }
    [[nodiscard]] bool isKept() const { return isKept_; }
    /// The first connection of a server is 1.
    [[nodiscard]] std::size_t number() const { return number_; }

private:
    int socket_;
    std::size_t number_;
    mutable bool isKept_ = false;
};

/// Reads one HTTP request per connection (headers and a body of the stated length), hands it to the
/// handler, and closes the connection when the handler returns, unless it keeps it for another one.
/// Each connection has a thread.
class RawServer {
public:
    using Handler = std::function<void(const std::string& request, const RawConnection&)>;
    enum class Reads { requests, heads }; ///< heads: nothing is read of a body before the answer
    explicit RawServer(Handler handler, Reads reads = Reads::requests);
    /// Answers every request with the same bytes.
    explicit RawServer(std::string answer);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] int port() const;
    /// "http://127.0.0.1:port" and a path.
    [[nodiscard]] std::string url(const std::string& path = "/") const;
    /// What was received so far, in the order in which it was complete.
    [[nodiscard]] std::vector<std::string> requests() const;
    /// How many connections were made so far, and how many of them are open.
    [[nodiscard]] std::size_t connections() const;
    [[nodiscard]] std::size_t openConnections() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

/// A text that a test changes while a server's threads read it.
class SharedText {
public:
    SharedText(std::string text = {}) : text_(std::move(text)) {}
    SharedText& operator=(std::string text)
    {
        const std::lock_guard lock(mutex_);
        text_ = std::move(text);
        return *this;
    }
    [[nodiscard]] std::string get() const
    {
        const std::lock_guard lock(mutex_);
        return text_;
    }

private:
    mutable std::mutex mutex_;
    std::string text_;
};

/// "HTTP/1.1 200 OK" with type, length and body.
[[nodiscard]] std::string httpAnswer(const std::string& body, int status = 200);

/// A port on which nothing listens.
[[nodiscard]] int closedPort();

} // namespace stowline::test
