#include "stowline/logging/LogFileWriter.h"

#include "stowline/logging/DDLog.h"
#include "stowline/logging/LoggerGuard.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/AppendFile.h"
#include "stowline/platform/files/FileStatus.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stowline {

namespace {

using platform::AppendFile;
using Duration = platform::TimerClock::Duration;

constexpr double kLongestDelay = 86400.0 * 365 * 100;
constexpr int kMostAttempts = 100;

Duration milliseconds(double seconds)
{
    return Duration(
        static_cast<std::int64_t>(std::ceil(std::clamp(seconds, 0.0, kLongestDelay) * 1000)));
}

/// Whether another program was quicker to take a file, or to delete it.
bool wasTaken(const std::string& path)
{
    return !platform::fileStatus(path) || AppendFile::isInUse(path);
}

} // namespace

LogFileWriter::LogFileWriter(std::shared_ptr<DDLogFileManager> manager, FileLoggerClocks clocks)
    : manager_(std::move(manager)), clocks_(std::move(clocks))
{
}

/// Does a piece of work under the lock, then tells the manager of the files that it finished.
template <class Piece> void LogFileWriter::work(Piece piece)
{
    std::vector<Finished> finished;
    {
        const platform::WholeInFork whole;
        const std::lock_guard lock(mutex_);
        now_ = clocks_.timer.now();
        if (std::exchange(isTimerGone_, false) && file_)
            scheduleTimer();
        piece();
        finished.swap(finished_);
    }
    tell(finished);
}

void LogFileWriter::tell(const std::vector<Finished>& finished) const
{
    for (const Finished& file : finished) {
        guarded("of files", [&] {
            if (file.isRolled)
                manager_->didRollAndArchiveLogFile(file.path);
            else
                manager_->didArchiveLogFile(file.path);
        });
    }
}

void LogFileWriter::write(std::string_view lines, std::span<const std::size_t> ends)
{
    work([&] {
        if (freeSpace_.isMoreThan(lines.size(), now_))
            return writeLines(lines, ends);
        std::size_t begin = 0;
        for (const std::size_t end : ends) {
            const std::string_view line = lines.substr(begin, end - begin);
            if (freeSpace_.isMoreThan(line.size(), now_))
                writeOrTell(line);
            begin = end;
        }
    });
}

/// As many lines in one go as the file takes: it ends with the line that fills it.
void LogFileWriter::writeLines(std::string_view lines, std::span<const std::size_t> ends)
{
    std::size_t begin = 0;
    for (std::size_t first = 0; first < ends.size();) {
        std::size_t last = first;
        while (file_ && last + 1 < ends.size() && !isTooLarge(file_->size() + (ends[last] - begin)))
            ++last;
        if (last == first || !append(lines.substr(begin, ends[last] - begin))) {
            // One line, or each by itself, so that some may still fit.
            for (std::size_t i = first; i <= last; ++i) {
                writeOrTell(lines.substr(begin, ends[i] - begin));
                begin = ends[i];
            }
        }
        begin = ends[last];
        first = last + 1;
    }
}

void LogFileWriter::writeOrTell(std::string_view line)
{
    if (!append(line))
        platform::consoleLog("write log error");
}

/// All or nothing. A manager that throws is one that has no file.
bool LogFileWriter::append(std::string_view lines)
{
    try {
        return appendToCurrentFile(lines);
    } catch (...) { // NOLINT: told by who asked
        return false;
    }
}

bool LogFileWriter::appendToCurrentFile(std::string_view lines)
{
    if (!file_ || !file_->isThere(now_)) {
        forgetFile();
        openFile();
        if (!file_)
            return false;
    }
    if (!file_->append(lines))
        return false;
    if (isTooLarge(file_->size()))
        rollNow();
    return true;
}

void LogFileWriter::synchronize()
{
    work([&] {
        if (file_)
            file_->synchronize();
    });
}

void LogFileWriter::roll()
{
    work([&] { rollNow(); });
}

void LogFileWriter::close()
{
    work([&] {
        if (file_)
            file_->synchronize();
        forgetFile();
    });
}

std::uint64_t LogFileWriter::maximumFileSize()
{
    const std::lock_guard lock(mutex_);
    return maximumFileSize_;
}

void LogFileWriter::setMaximumFileSize(std::uint64_t bytes)
{
    work([&] {
        maximumFileSize_ = bytes;
        if (file_ && isTooLarge(file_->size()))
            rollNow();
    });
}

double LogFileWriter::rollingFrequency()
{
    const std::lock_guard lock(mutex_);
    return rollingFrequency_;
}

void LogFileWriter::setRollingFrequency(double seconds)
{
    work([&] {
        rollingFrequency_ = seconds;
        if (file_)
            scheduleTimer();
    });
}

std::optional<DDLogFileInfo> LogFileWriter::currentFile()
{
    const std::lock_guard lock(mutex_);
    return file_ ? std::optional(file_->info()) : std::nullopt;
}

bool LogFileWriter::isTooLarge(std::uint64_t size) const
{
    return maximumFileSize_ > 0 && size >= maximumFileSize_;
}

bool LogFileWriter::isTooOld(double age) const
{
    return rollingFrequency_ > 0 && age >= rollingFrequency_;
}

/// By the wall clock; a file from the future has no age.
double LogFileWriter::wallAge(const DDLogFileInfo& info) const
{
    const Date now = clocks_.now();
    const std::chrono::duration<double> age = now - info.creationDate().value_or(now);
    return std::max(0.0, age.count());
}

void LogFileWriter::openFile()
{
    continueFile();
    for (int attempt = 0; !file_ && attempt < kMostAttempts; ++attempt) {
        const auto path = manager_->createNewLogFile();
        if (!path)
            return;
        use(DDLogFileInfo(*path));
        if (!file_ && !wasTaken(*path))
            return;
    }
}

/// Goes on in the newest file that nobody else is writing, when it can take more.
void LogFileWriter::continueFile()
{
    for (DDLogFileInfo& info : manager_->sortedLogFileInfos()) {
        if (AppendFile::isInUse(info.filePath()))
            continue;
        if (info.isArchived())
            return;
        if (isTooLarge(info.fileSize()) || isTooOld(wallAge(info))) {
            info.setArchived(true);
            finished_.push_back({info.filePath(), false});
            return;
        }
        use(info);
        if (file_ || !wasTaken(info.filePath()))
            return;
    }
}

void LogFileWriter::use(DDLogFileInfo info)
{
    info.reset();
    const double age = wallAge(info);
    file_ = CurrentLogFile::open(std::move(info), age, now_);
    if (file_)
        scheduleTimer();
}

void LogFileWriter::scheduleTimer()
{
    timer_.reset();
    if (rollingFrequency_ <= 0)
        return;
    timer_ = std::make_unique<platform::Timer>(
        DDLog::loggingQueue(),
        [writer = weak_from_this()] {
            if (const auto alive = writer.lock())
                alive->rollIfOld();
        },
        clocks_.timer);
    timer_->start(milliseconds(rollingFrequency_ - file_->age(now_)));
}

void LogFileWriter::rollIfOld()
{
    work([&] {
        if (!file_)
            return;
        if (isTooOld(file_->age(now_)))
            rollNow();
        else
            scheduleTimer();
    });
}

void LogFileWriter::rollNow()
{
    if (!file_)
        return;
    file_->synchronize();
    DDLogFileInfo info = file_->info();
    forgetFile();
    info.setArchived(true);
    finished_.push_back({info.filePath(), true});
}

void LogFileWriter::forgetFile()
{
    file_.reset();
    timer_.reset();
}

} // namespace stowline
