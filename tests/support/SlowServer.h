// A server that takes its time to read.
#pragma once

#include <chrono>
#include <semaphore>
#include <string>
#include <thread>

namespace stowline::test {

/// Accepts one connection and reads what is sent at a steady pace; it answers "ok" when it has read
/// enough, and else nothing until the end. Little of what is sent waits on its side.
class SlowServer {
public:
    /// @param enough bytes after which it answers
    /// @param most bytes that it reads at all
    SlowServer(std::size_t enough, std::size_t most, std::size_t perStep,
               std::chrono::milliseconds step);
    ~SlowServer();
    SlowServer(const SlowServer&) = delete;
    SlowServer& operator=(const SlowServer&) = delete;

    [[nodiscard]] std::string url() const;

private:
    void serve(std::size_t enough, std::size_t most, std::size_t perStep,
               std::chrono::milliseconds step);

    int listener_;
    int port_ = 0;
    std::binary_semaphore over_{0};
    std::thread thread_;
};

} // namespace stowline::test
