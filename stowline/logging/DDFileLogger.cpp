#include "stowline/logging/DDFileLogger.h"

#include "stowline/logging/CurrentLogFile.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/FreeSpace.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/AppendFile.h"
#include "stowline/platform/time/LocalClock.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace stowline {

namespace {

using platform::AppendFile;
using Duration = platform::TimerClock::Duration;

constexpr std::uint64_t kUsualFileSize = 1048576;
constexpr double kUsualFrequency = 86400;
constexpr std::size_t kMostGathered = 65536;
constexpr double kLongestDelay = 86400.0 * 365 * 100;

Duration milliseconds(double seconds)
{
    return Duration(
        static_cast<std::int64_t>(std::ceil(std::clamp(seconds, 0.0, kLongestDelay) * 1000)));
}

} // namespace

std::optional<LogText> DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message)
{
    std::string line = platform::localClockText(message.timestamp, '/');
    line.reserve(line.size() + message.logMsg.size() + 3);
    line.append("  ").append(message.logMsg);
    return LogText(std::move(line));
}

/// Everything about the files, under one lock: the queues of the log call it one after another, and
/// the end of the logger may come on any thread.
class DDFileLogger::State : public std::enable_shared_from_this<State>,
                            private platform::ForkParticipant {
public:
    State(std::shared_ptr<DDLogFileManager> manager, FileLoggerClocks clocks)
        : manager_(std::move(manager)), clocks_(std::move(clocks))
    {
    }

    [[nodiscard]] const std::shared_ptr<DDLogFileManager>& manager() const { return manager_; }

    /// @param line empty for none
    /// @param mayWait whether the line may be written with one that is sure to come
    void write(std::string_view line, bool mayWait)
    {
        locked([&] {
            const bool isTaken = !line.empty() && freeSpace_.isMoreThan(line.size(), now_);
            if (isTaken && !mayWait && lineEnds_.empty())
                return writeOrTell(line); // by far the most frequent for lines that are awaited
            if (isTaken)
                gather(line);
            if (!mayWait || gathered_.size() >= kMostGathered)
                writeGathered();
        });
    }

    void writeOut()
    {
        locked([&] { writeGathered(); });
    }

    void synchronize()
    {
        locked([&] {
            writeGathered();
            if (file_)
                file_->synchronize();
        });
    }

    void roll()
    {
        locked([&] {
            writeGathered();
            rollNow();
        });
    }

    void close()
    {
        locked([&] {
            writeGathered();
            if (file_)
                file_->synchronize();
            forgetFile();
        });
    }

    [[nodiscard]] std::uint64_t maximumFileSize()
    {
        return locked([&] { return maximumFileSize_; });
    }

    void setMaximumFileSize(std::uint64_t bytes)
    {
        locked([&] {
            writeGathered();
            maximumFileSize_ = bytes;
            if (file_ && isTooLarge(file_->size()))
                rollNow();
        });
    }

    [[nodiscard]] double rollingFrequency()
    {
        return locked([&] { return rollingFrequency_; });
    }

    void setRollingFrequency(double seconds)
    {
        locked([&] {
            rollingFrequency_ = seconds;
            if (file_)
                scheduleTimer();
        });
    }

    [[nodiscard]] std::optional<DDLogFileInfo> currentFile()
    {
        return locked([&] { return file_ ? std::optional(file_->info()) : std::nullopt; });
    }

private:
    struct Archived {
        std::string path;
        bool isRolled;
    };

    /// Tells the manager of archived files, with the lock free.
    struct Teller {
        State& state;
        std::vector<Archived> archived = {};
        ~Teller()
        {
            for (const Archived& file : archived) {
                if (file.isRolled)
                    state.manager_->didRollAndArchiveLogFile(file.path);
                else
                    state.manager_->didArchiveLogFile(file.path);
            }
        }
    };
    struct Collector {
        Teller& teller;
        ~Collector() { teller.archived.swap(teller.state.archived_); }
    };

    /// Runs a piece of work under the lock.
    template <class Work> auto locked(Work work) -> decltype(work())
    {
        Teller teller{*this};
        const std::lock_guard lock(mutex_);
        const Collector collector{teller};
        now_ = clocks_.timer.now();
        return work();
    }

    [[nodiscard]] bool isTooLarge(std::uint64_t size) const
    {
        return maximumFileSize_ > 0 && size >= maximumFileSize_;
    }

    [[nodiscard]] bool isTooOld(double age) const
    {
        return rollingFrequency_ > 0 && age >= rollingFrequency_;
    }

    /// By the wall clock; a file from the future has no age.
    [[nodiscard]] double wallAge(const DDLogFileInfo& info) const
    {
        const Date now = clocks_.now();
        const std::chrono::duration<double> age = now - info.creationDate().value_or(now);
        return std::max(0.0, age.count());
    }

    void gather(std::string_view line)
    {
        gathered_.append(line);
        lineEnds_.push_back(gathered_.size());
        // A file ends with the line that fills it.
        if (!file_ || isTooLarge(file_->size() + gathered_.size()))
            writeGathered();
    }

    /// All lines in one go; when that fails each by itself, so that some may still fit.
    void writeGathered()
    {
        if (lineEnds_.empty())
            return;
        if (lineEnds_.size() == 1 || !writeToCurrentFile(gathered_)) {
            std::size_t begin = 0;
            for (const std::size_t end : lineEnds_) {
                writeOrTell({gathered_.data() + begin, end - begin});
                begin = end;
            }
        }
        gathered_.clear();
        lineEnds_.clear();
    }

    void writeOrTell(std::string_view line)
    {
        if (!writeToCurrentFile(line))
            platform::consoleLog("write log error");
    }

    bool writeToCurrentFile(std::string_view line)
    {
        if (!file_ || !file_->isThere(now_)) {
            forgetFile();
            openFile();
            if (!file_)
                return false;
        }
        if (!file_->append(line))
            return false;
        if (isTooLarge(file_->size()))
            rollNow();
        return true;
    }

    void openFile()
    {
        if (auto info = fileToContinue())
            use(std::move(*info));
        if (file_)
            return;
        if (const auto path = manager_->createNewLogFile())
            use(DDLogFileInfo(*path));
    }

    /// The newest file that nobody else is writing, when it can take more.
    std::optional<DDLogFileInfo> fileToContinue()
    {
        auto infos = manager_->sortedLogFileInfos();
        const auto newest = std::find_if(infos.begin(), infos.end(), [](const DDLogFileInfo& info) {
            return !AppendFile::isInUse(info.filePath());
        });
        if (newest == infos.end() || newest->isArchived())
            return std::nullopt;
        if (!isTooLarge(newest->fileSize()) && !isTooOld(wallAge(*newest)))
            return *newest;
        newest->setArchived(true);
        archived_.push_back({newest->filePath(), false});
        return std::nullopt;
    }

    void use(DDLogFileInfo info)
    {
        info.reset();
        const double age = wallAge(info);
        file_ = CurrentLogFile::open(std::move(info), age, now_);
        if (file_)
            scheduleTimer();
    }

    void scheduleTimer()
    {
        timer_.reset();
        if (rollingFrequency_ <= 0)
            return;
        timer_ = std::make_unique<platform::Timer>(
            DDLog::loggingQueue(),
            [state = weak_from_this()] {
                if (const auto alive = state.lock())
                    alive->rollIfOld();
            },
            clocks_.timer);
        timer_->start(milliseconds(rollingFrequency_ - file_->age(now_)));
    }

    void rollIfOld()
    {
        locked([&] {
            writeGathered();
            if (!file_)
                return;
            if (isTooOld(file_->age(now_)))
                rollNow();
            else
                scheduleTimer();
        });
    }

    void rollNow()
    {
        if (!file_)
            return;
        file_->synchronize();
        DDLogFileInfo finished = file_->info();
        forgetFile();
        finished.setArchived(true);
        archived_.push_back({finished.filePath(), true});
    }

    void forgetFile()
    {
        file_.reset();
        timer_.reset();
    }

    void beforeFork() override {}
    void afterForkInParent() override {}
    /// What was gathered is the parent's to write.
    void afterForkInChild() override
    {
        gathered_.clear();
        lineEnds_.clear();
    }

    const std::shared_ptr<DDLogFileManager> manager_;
    const FileLoggerClocks clocks_;
    platform::ForkSafeMutex mutex_;
    std::uint64_t maximumFileSize_ = kUsualFileSize;
    double rollingFrequency_ = kUsualFrequency;
    std::optional<CurrentLogFile> file_;
    std::unique_ptr<platform::Timer> timer_;
    std::vector<Archived> archived_; ///< that the manager is still to be told of
    FreeSpace freeSpace_;
    platform::TimerClock::Moment now_{}; ///< of the work that is being done
    std::string gathered_;               ///< lines that are not written yet
    std::vector<std::size_t> lineEnds_;
};

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager,
                           FileLoggerClocks clocks)
    : DDAbstractLogger("com.Stowline.logging.fileLogger"),
      state_(std::make_shared<State>(std::move(logFileManager), std::move(clocks)))
{
    setLogFormatter(std::make_shared<DDLogFileFormatterDefault>());
}

DDFileLogger::~DDFileLogger()
{
    state_->close();
}

void DDFileLogger::logMessage(const DDLogMessage& message)
{
    std::string line;
    if (auto text = formattedText(message)) {
        line = std::move(*text).take();
        if (!line.ends_with('\n'))
            line.push_back('\n');
    }
    state_->write(line, DDLog::isMoreOnItsWay());
}

void DDFileLogger::willRemoveLogger()
{
    state_->writeOut();
}

void DDFileLogger::flush()
{
    state_->synchronize();
}

const std::shared_ptr<DDLogFileManager>& DDFileLogger::logFileManager() const
{
    return state_->manager();
}

std::uint64_t DDFileLogger::maximumFileSize()
{
    std::uint64_t bytes = 0;
    readInTurn([&] { bytes = state_->maximumFileSize(); });
    return bytes;
}

void DDFileLogger::setMaximumFileSize(std::uint64_t bytes)
{
    changeInTurn([state = state_, bytes] { state->setMaximumFileSize(bytes); });
}

double DDFileLogger::rollingFrequency()
{
    double seconds = 0;
    readInTurn([&] { seconds = state_->rollingFrequency(); });
    return seconds;
}

void DDFileLogger::setRollingFrequency(double seconds)
{
    changeInTurn([state = state_, seconds] { state->setRollingFrequency(seconds); });
}

void DDFileLogger::rollLogFile()
{
    changeInTurn([state = state_] { state->roll(); });
}

std::optional<DDLogFileInfo> DDFileLogger::currentLogFileInfo()
{
    std::optional<DDLogFileInfo> info;
    readInTurn([&] { info = state_->currentFile(); });
    return info;
}

} // namespace stowline
