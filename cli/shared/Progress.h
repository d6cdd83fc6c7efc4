// How far a long command is, on standard error.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace stowline::cli {

/// One look at a piece of work.
struct ProgressState {
    double fractionDone = 0; ///< 0.0 to 1.0
    std::uint64_t sizeInBytes = 0;
    std::chrono::duration<double> elapsed{};
    std::size_t part = 1; ///< of `parts`
    std::size_t parts = 1;
};

/// "1.5 MB": decimal units, one digit after the point from kilobytes on.
[[nodiscard]] std::string bytesText(double bytes);

/// "0:07", "12:34", "1:02:03"; rounded up to seconds.
[[nodiscard]] std::string durationText(std::chrono::duration<double> duration);

/// Bar, percent, bytes, rate, time left and part, at most so many characters wide; what does not
/// fit is left out from the bar on.
[[nodiscard]] std::string progressBar(const ProgressState& state, std::size_t columns);

/// The same as a sentence, for places that are not a terminal.
[[nodiscard]] std::string progressSentence(const ProgressState& state);

/// Where and how progress is shown.
struct ProgressStyle {
    enum class Kind { none, bar, lines } kind = Kind::none;
    std::size_t columns = 80;
    bool followsTerminal = false; ///< the width is that of standard error, whenever it is asked for
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
    std::function<void(const std::string&)> write = {};
};

/// How wide the terminal is now; it may have been drawn wider or narrower meanwhile.
[[nodiscard]] std::size_t columnsNow(const ProgressStyle& style);

/// The style of this run: none when it was asked for or the output is quiet, a bar on a terminal,
/// else lines.
void forbidProgress();
[[nodiscard]] ProgressStyle progressStyle();

/// Shows the progress of one piece of work after another: on a terminal by a bar redrawn at most
/// ten times a second, elsewhere by a line at most every 60 seconds. Nothing is left of the bar at
/// the end. One thread.
class ProgressDisplay {
public:
    explicit ProgressDisplay(ProgressStyle style = progressStyle(), std::size_t parts = 1);
    ~ProgressDisplay() { clear(); }
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// The next piece of work begins.
    void beginPart();
    void update(double fractionDone, std::uint64_t sizeInBytes);

    /// For pieces that are worked on side by side: the last that was begun, and how far all are.
    void updatePart(std::size_t part, double fractionDone, std::uint64_t sizeInBytes);

    /// Takes the bar away, so that something else can be written.
    void clear();

private:
    using Moment = std::chrono::steady_clock::time_point;
    const ProgressStyle style_;
    ProgressState state_;
    Moment begun_;
    std::optional<Moment> shown_;
    bool isBarShown_ = false;
};

} // namespace stowline::cli
