// When to try again, and how fast to send.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

namespace stowline::backup {

using Duration = std::chrono::steady_clock::duration;
using Moment = std::chrono::steady_clock::time_point;

/// Pauses between tries of one thing: each up to twice as long as the one before, from half a
/// second to half a minute, shortened at random so that many clients do not come back at once;
/// none any more when the time for the thing is used up.
class Backoff {
public:
    /// @param random from 0 to 1
    Backoff(Duration budget, std::function<Moment()> now, std::function<double()> random)
        : budget_(budget), now_(std::move(now)), random_(std::move(random)), start_(now_())
    {
    }

    /// How long to wait before the next try; absent when it would come too late.
    [[nodiscard]] std::optional<Duration> next();

private:
    const Duration budget_;
    const std::function<Moment()> now_;
    const std::function<double()> random_;
    const Moment start_;
    int tries_ = 0;
};

/// Keeps the sum of what several threads send at a rate. Any thread.
class BandwidthLimit {
public:
    /// @param bytesPerSecond 0: no limit
    explicit BandwidthLimit(std::uint64_t bytesPerSecond, std::function<Moment()> now)
        : bytesPerSecond_(bytesPerSecond), now_(std::move(now)), free_(now_())
    {
    }

    /// Takes the time that so many bytes need. @return how long to wait before sending them
    [[nodiscard]] Duration reserve(std::uint64_t bytes);

    /// The part size to send in, so that the line is not filled in bursts: at most half a second's
    /// worth, at least 4 KiB.
    [[nodiscard]] std::uint64_t partSize(std::uint64_t wanted) const;

private:
    const std::uint64_t bytesPerSecond_;
    const std::function<Moment()> now_;
    std::mutex mutex_;
    Moment free_; ///< when what was reserved will have been sent
};

} // namespace stowline::backup
