#include "stowline/logging/DDAbstractDatabaseLogger.h"

#include "stowline/logging/LoggerGuard.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stowline {

namespace {

using platform::Timer;
using platform::TimerClock;

/// Never 0, which means "not again" to a timer.
TimerClock::Duration milliseconds(double seconds)
{
    constexpr double longest = 86400.0 * 365 * 100;
    return TimerClock::Duration(
        std::max<std::int64_t>(1, std::llround(std::min(seconds, longest) * 1000)));
}

} // namespace

/// The state of the batches; touched on the logger's own queue only.
class DDAbstractDatabaseLogger::Batches : public std::enable_shared_from_this<Batches>,
                                          private platform::ForkParticipant {
public:
    Batches(DDAbstractDatabaseLogger& owner, TimerClock& clock)
        : owner_(&owner), queue_(owner.loggerQueue()), clock_(clock)
    {
    }

    struct Settings {
        std::size_t saveThreshold = 500;
        double saveInterval = 60;
        double maxAge = 7.0 * 24 * 3600;
        double deleteInterval = 300;
        bool deleteOnEverySave = false;
    };

    /// One of the settings, read in turn.
    template <class T> [[nodiscard]] T read(T Settings::*setting)
    {
        T value{};
        queue_->sync([&] { value = settings_.*setting; });
        return value;
    }

    /// Runs a member function in turn when the logger still lives then.
    template <class... Arguments>
    void inTurn(void (Batches::*operation)(Arguments...), Arguments... arguments)
    {
        if (queue_->isCurrent())
            return run(operation, arguments...);
        queue_->async([batches = shared_from_this(), operation, arguments...] {
            batches->run(operation, arguments...);
        });
    }

    /// The same, and waits.
    template <class... Arguments>
    void inTurnAndWait(void (Batches::*operation)(Arguments...), Arguments... arguments)
    {
        queue_->sync([&] { run(operation, arguments...); });
    }

    void logged(const DDLogMessage& message)
    {
        if (!owner_ || !owner_->db_log(message))
            return;
        if (std::exchange(areTimersGone_, false))
            renewTimers();
        ++unsavedCount_;
        if (isThresholdReached()) {
            save();
        } else if (unsavedCount_ == 1) {
            unsavedTime_ = clock_.now();
            rearmSaveTimer();
        }
    }

    void save()
    {
        if (unsavedCount_ > 0 || owner_->db_hasRefused()) {
            if (settings_.deleteOnEverySave)
                owner_->db_saveAndDelete();
            else
                owner_->db_save();
        }
        unsavedCount_ = 0;
        unsavedTime_.reset();
        if (owner_->db_hasRefused()) {
            unsavedTime_ = clock_.now();
            rearmSaveTimer();
        } else if (saveTimer_ && !std::exchange(saveTimerSuspended_, true)) {
            saveTimer_->suspend();
        }
    }

    void deleteOld()
    {
        if (settings_.maxAge <= 0)
            return;
        owner_->db_delete();
        lastDeleteTime_ = clock_.now();
    }

    void startTimers()
    {
        createSaveTimer();
        createDeleteTimer();
    }

    void saveAndEndTimers()
    {
        guarded(owner_->loggerName(), [this] { save(); });
        saveTimer_.reset();
        deleteTimer_.reset();
    }

    void end()
    {
        saveAndEndTimers();
        owner_ = nullptr;
    }

    void changeSaveThreshold(std::size_t entries)
    {
        if (std::exchange(settings_.saveThreshold, entries) != entries && isThresholdReached())
            save();
    }

    void changeSaveInterval(double seconds)
    {
        if (std::exchange(settings_.saveInterval, seconds) == seconds)
            return;
        if (seconds > 0) {
            createSaveTimer();
            rearmSaveTimer();
        } else {
            saveTimer_.reset();
        }
    }

    void changeMaxAge(double seconds)
    {
        const double old = std::exchange(settings_.maxAge, seconds);
        if (old == seconds)
            return;
        if (old > 0 && seconds <= 0) {
            deleteTimer_.reset();
            return;
        }
        if ((old <= 0 && seconds > 0) || old > seconds)
            deleteOld();
        rearmDeleteTimer();
    }

    void changeDeleteInterval(double seconds)
    {
        if (std::exchange(settings_.deleteInterval, seconds) == seconds)
            return;
        if (seconds > 0)
            rearmDeleteTimer();
        else
            deleteTimer_.reset();
    }

    void changeDeleteOnEverySave(bool together) { settings_.deleteOnEverySave = together; }

private:
    template <class... Arguments>
    void run(void (Batches::*operation)(Arguments...), Arguments... arguments)
    {
        if (owner_)
            guarded(owner_->loggerName(), [&] { (this->*operation)(arguments...); });
    }

    /// In unsigned arithmetic, so a threshold of 0 is never reached.
    [[nodiscard]] bool isThresholdReached() const
    {
        return settings_.saveThreshold - 1 < unsavedCount_;
    }

    [[nodiscard]] std::unique_ptr<Timer> timerFor(void (Batches::*operation)())
    {
        return std::make_unique<Timer>(
            *queue_,
            [batches = weak_from_this(), operation] {
                if (const auto alive = batches.lock())
                    alive->run(operation);
            },
            clock_);
    }

    void createSaveTimer()
    {
        if (saveTimer_ || settings_.saveInterval <= 0)
            return;
        saveTimer_ = timerFor(&Batches::save);
        saveTimer_->suspend();
        saveTimerSuspended_ = true;
    }

    void rearmSaveTimer()
    {
        if (!saveTimer_ || settings_.saveInterval <= 0 || !unsavedTime_)
            return;
        const auto interval = milliseconds(settings_.saveInterval);
        saveTimer_->start(untilOneAfter(*unsavedTime_, interval), interval);
        if (std::exchange(saveTimerSuspended_, false))
            saveTimer_->resume();
    }

    void createDeleteTimer()
    {
        if (!deleteTimer_)
            rearmDeleteTimer();
    }

    void rearmDeleteTimer()
    {
        if (settings_.deleteInterval <= 0 || settings_.maxAge <= 0)
            return;
        if (!deleteTimer_)
            deleteTimer_ = timerFor(&Batches::deleteOld);
        const auto interval = milliseconds(settings_.deleteInterval);
        deleteTimer_->start(untilOneAfter(lastDeleteTime_.value_or(clock_.now()), interval),
                            interval);
    }

    void renewTimers()
    {
        if (std::exchange(saveTimer_, nullptr))
            createSaveTimer();
        if (std::exchange(deleteTimer_, nullptr))
            createDeleteTimer();
    }

    void beforeFork() override {}
    void afterForkInParent() override {}
    /// What is unsaved, and the timers, are the parent's.
    void afterForkInChild() override
    {
        unsavedCount_ = 0;
        unsavedTime_.reset();
        areTimersGone_ = true;
    }

    [[nodiscard]] TimerClock::Duration untilOneAfter(TimerClock::Moment moment,
                                                     TimerClock::Duration interval) const
    {
        return std::max(moment + interval - clock_.now(), TimerClock::Duration::zero());
    }

    DDAbstractDatabaseLogger* owner_; ///< null when the logger is gone
    const std::shared_ptr<platform::SerialQueue> queue_;
    TimerClock& clock_;
    Settings settings_;
    std::size_t unsavedCount_ = 0;
    std::optional<TimerClock::Moment> unsavedTime_;
    std::optional<TimerClock::Moment> lastDeleteTime_;
    std::unique_ptr<Timer> saveTimer_;
    bool saveTimerSuspended_ = true;
    std::unique_ptr<Timer> deleteTimer_;
    bool areTimersGone_ = false; ///< they were left with the parent of a fork
    const platform::ForkRegistration registration_{*this};
};

DDAbstractDatabaseLogger::DDAbstractDatabaseLogger(std::string loggerName, TimerClock& clock)
    : DDAbstractLogger(std::move(loggerName)), batches_(std::make_shared<Batches>(*this, clock))
{
}

DDAbstractDatabaseLogger::~DDAbstractDatabaseLogger()
{
    DDAbstractDatabaseLogger::shutDown();
}

bool DDAbstractDatabaseLogger::db_log(const DDLogMessage&)
{
    return false;
}

void DDAbstractDatabaseLogger::shutDown()
{
    batches_->inTurnAndWait(&Batches::end);
}

std::size_t DDAbstractDatabaseLogger::saveThreshold()
{
    return batches_->read(&Batches::Settings::saveThreshold);
}

void DDAbstractDatabaseLogger::setSaveThreshold(std::size_t entries)
{
    batches_->inTurn(&Batches::changeSaveThreshold, entries);
}

double DDAbstractDatabaseLogger::saveInterval()
{
    return batches_->read(&Batches::Settings::saveInterval);
}

void DDAbstractDatabaseLogger::setSaveInterval(double seconds)
{
    batches_->inTurn(&Batches::changeSaveInterval, seconds);
}

double DDAbstractDatabaseLogger::maxAge()
{
    return batches_->read(&Batches::Settings::maxAge);
}

void DDAbstractDatabaseLogger::setMaxAge(double seconds)
{
    batches_->inTurn(&Batches::changeMaxAge, seconds);
}

double DDAbstractDatabaseLogger::deleteInterval()
{
    return batches_->read(&Batches::Settings::deleteInterval);
}

void DDAbstractDatabaseLogger::setDeleteInterval(double seconds)
{
    batches_->inTurn(&Batches::changeDeleteInterval, seconds);
}

bool DDAbstractDatabaseLogger::deleteOnEverySave()
{
    return batches_->read(&Batches::Settings::deleteOnEverySave);
}

void DDAbstractDatabaseLogger::setDeleteOnEverySave(bool together)
{
    batches_->inTurn(&Batches::changeDeleteOnEverySave, together);
}

void DDAbstractDatabaseLogger::savePendingLogEntries()
{
    batches_->inTurn(&Batches::save);
}

void DDAbstractDatabaseLogger::deleteOldLogEntries()
{
    batches_->inTurn(&Batches::deleteOld);
}

void DDAbstractDatabaseLogger::logMessage(const DDLogMessage& message)
{
    batches_->logged(message);
}

void DDAbstractDatabaseLogger::didAddLogger()
{
    batches_->startTimers();
}

void DDAbstractDatabaseLogger::willRemoveLogger()
{
    batches_->saveAndEndTimers();
}

void DDAbstractDatabaseLogger::flush()
{
    batches_->save();
}

} // namespace stowline
