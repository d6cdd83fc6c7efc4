#include "cli/shared/Progress.h"

#include "cli/shared/Output.h"
#include "stowline/platform/processes/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace stowline::cli {

namespace {

constexpr std::chrono::milliseconds kShortestRedraw{100};
constexpr std::chrono::seconds kShortestLine{60};
constexpr std::size_t kWidestBar = 40;

bool isForbidden = false;

double bytesDone(const ProgressState& state)
{
    return state.fractionDone * static_cast<double>(state.sizeInBytes);
}

/// Rate and time left, once there is something to tell them by.
std::vector<std::string> paceOf(const ProgressState& state)
{
    const double seconds = state.elapsed.count();
    if (seconds <= 0 || state.fractionDone <= 0)
        return {};
    std::vector<std::string> pace{bytesText(bytesDone(state) / seconds) + "/s"};
    if (state.fractionDone < 1)
        pace.push_back(durationText(state.elapsed * (1 / state.fractionDone - 1)) + " left");
    return pace;
}

int percentOf(const ProgressState& state)
{
    return static_cast<int>(std::floor(std::clamp(state.fractionDone, 0.0, 1.0) * 100));
}

} // namespace

std::string bytesText(double bytes)
{
    static constexpr std::array<const char*, 7> units{"B", "kB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    // What would be rounded to 1000 of a unit is 1 of the next.
    for (; bytes >= (unit == 0 ? 999.5 : 999.95) && unit + 1 < units.size(); ++unit)
        bytes /= 1000;
    return fmt::format("{:.{}f} {}", bytes, unit == 0 ? 0 : 1, units.at(unit));
}

std::string durationText(std::chrono::duration<double> duration)
{
    constexpr double longest = 999.0 * 3600;
    const auto seconds = static_cast<long>(std::ceil(std::clamp(duration.count(), 0.0, longest)));
    if (seconds < 3600)
        return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string progressBar(const ProgressState& state, std::size_t columns)
{
    std::vector<std::string> facts{fmt::format("{:3}%", percentOf(state)),
                                   bytesText(bytesDone(state)) + " of " +
                                       bytesText(static_cast<double>(state.sizeInBytes))};
    std::ranges::copy(paceOf(state), std::back_inserter(facts));
    if (state.parts > 1)
        facts.push_back(fmt::format("part {} of {}", state.part, state.parts));
    std::string text;
    for (const std::string& fact : facts) {
        if (text.size() + fact.size() + 2 > columns)
            break;
        text += (text.empty() ? "" : "  ") + fact;
    }
    const std::size_t room = columns - std::min(columns, text.size());
    if (room < 10)
        return text;
    const std::size_t width = std::min(kWidestBar, room - 4);
    const std::size_t filled = width * static_cast<std::size_t>(percentOf(state)) / 100;
    return "[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " + text;
}

std::string progressSentence(const ProgressState& state)
{
    std::string text = fmt::format("{}% of {}", percentOf(state),
                                   bytesText(static_cast<double>(state.sizeInBytes)));
    for (const std::string& fact : paceOf(state))
        text += ", " + fact;
    if (state.parts > 1)
        text += fmt::format(", part {} of {}", state.part, state.parts);
    return text;
}

void forbidProgress()
{
    isForbidden = true;
}

ProgressStyle progressStyle()
{
    ProgressStyle style;
    style.write = [](const std::string& text) {
        (void)std::fwrite(text.data(), 1, text.size(), stderr);
        (void)std::fflush(stderr);
    };
    if (isForbidden || output().isQuiet())
        return style;
    style.kind =
        platform::standardErrorIsTerminal() ? ProgressStyle::Kind::bar : ProgressStyle::Kind::lines;
    style.columns = platform::standardErrorColumns();
    style.followsTerminal = true;
    return style;
}

std::size_t columnsNow(const ProgressStyle& style)
{
    return style.followsTerminal ? platform::standardErrorColumns() : style.columns;
}

ProgressDisplay::ProgressDisplay(ProgressStyle style, std::size_t parts)
    : style_(std::move(style)), begun_(style_.now())
{
    state_.part = 0;
    state_.parts = parts;
    if (style_.kind == ProgressStyle::Kind::lines)
        shown_ = begun_; // the first line comes after a minute
}

void ProgressDisplay::beginPart()
{
    ++state_.part;
    begun_ = style_.now();
}

void ProgressDisplay::update(double fractionDone, std::uint64_t sizeInBytes)
{
    if (style_.kind == ProgressStyle::Kind::none)
        return;
    const bool isBar = style_.kind == ProgressStyle::Kind::bar;
    const Moment now = style_.now();
    if (shown_ && now - *shown_ < (isBar ? kShortestRedraw : kShortestLine))
        return;
    shown_ = now;
    state_.fractionDone = fractionDone;
    state_.sizeInBytes = sizeInBytes;
    state_.elapsed = now - begun_;
    // One column stays free: a terminal may break the line after the last.
    style_.write(isBar ? "\r" + progressBar(state_, columnsNow(style_) - 1) + "\x1b[K"
                       : progressSentence(state_) + "\n");
    isBarShown_ = isBar;
}

void ProgressDisplay::updatePart(std::size_t part, double fractionDone, std::uint64_t sizeInBytes)
{
    state_.part = part;
    update(fractionDone, sizeInBytes);
}

void ProgressDisplay::clear()
{
    if (std::exchange(isBarShown_, false))
        style_.write("\r\x1b[K");
}

} // namespace stowline::cli
