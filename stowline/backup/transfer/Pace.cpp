#include "stowline/backup/transfer/Pace.h"

#include <algorithm>

namespace stowline::backup {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr Seconds kFirstPause{0.5};
constexpr Seconds kLongestPause{30};
constexpr std::uint64_t kSmallestPart = 4096;

} // namespace

std::optional<Duration> Backoff::next()
{
    constexpr int mostDoublings = 10;
    const Seconds longest = std::min(
        kFirstPause * static_cast<double>(1 << std::min(tries_++, mostDoublings)), kLongestPause);
    // Between half and the whole of it.
    const auto pause = std::chrono::duration_cast<Duration>(longest * (0.5 + random_() / 2));
    if (now_() - start_ + pause > budget_)
        return std::nullopt;
    return pause;
}

Duration BandwidthLimit::reserve(std::uint64_t bytes)
{
    if (bytesPerSecond_ == 0)
        return Duration::zero();
    const Seconds needed(static_cast<double>(bytes) / static_cast<double>(bytesPerSecond_));
    const std::lock_guard lock(mutex_);
    const Moment now = now_();
    free_ = std::max(free_, now);
    const Duration wait = free_ - now;
    free_ += std::chrono::duration_cast<Duration>(needed);
    return wait;
}

std::uint64_t BandwidthLimit::partSize(std::uint64_t wanted) const
{
    if (bytesPerSecond_ == 0)
        return wanted;
    return std::clamp(bytesPerSecond_ / 2, std::min(kSmallestPart, wanted), wanted);
}

} // namespace stowline::backup
