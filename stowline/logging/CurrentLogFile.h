// The file that a logger is writing.
#pragma once

#include "stowline/logging/DDLogFileInfo.h"
#include "stowline/platform/files/AppendFile.h"
#include "stowline/platform/threads/Timer.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace stowline {

/// An open log file and what is known of it. Not for several threads at once.
class CurrentLogFile {
public:
    using Moment = platform::TimerClock::Moment;

    /// @param age seconds since its creation, as the wall clock has it
    /// @return absent when it cannot be opened, is in use or has just been deleted
    [[nodiscard]] static std::optional<CurrentLogFile> open(DDLogFileInfo info, double age,
                                                            Moment now);

    [[nodiscard]] const DDLogFileInfo& info() const { return info_; }

    /// Seconds: the age at the opening, and what the steady clock says since.
    [[nodiscard]] double age(Moment now) const;

    /// Bytes, at the last look or after the last addition.
    [[nodiscard]] std::uint64_t size() const { return size_; }

    /// Whether nobody has deleted it: nobody would ever read what is added to one that is. Looked
    /// after at most every millisecond, which is often enough for people and spares a burst of
    /// lines a third of its time.
    [[nodiscard]] bool isThere(Moment now);

    /// Adds all bytes or none.
    [[nodiscard]] bool append(std::string_view bytes);

    /// Makes durable what was added.
    void synchronize() { file_.synchronize(); }

private:
    CurrentLogFile(DDLogFileInfo info, platform::AppendFile file, double age, Moment now)
        : info_(std::move(info)), file_(std::move(file)), ageWhenOpened_(age), openedAt_(now)
    {
    }
    [[nodiscard]] bool look(Moment now);

    DDLogFileInfo info_;
    platform::AppendFile file_;
    double ageWhenOpened_;
    Moment openedAt_;
    Moment lookedAt_{};
    std::uint64_t size_ = 0;
};

} // namespace stowline
