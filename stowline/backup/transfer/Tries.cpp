#include "stowline/backup/transfer/Tries.h"

#include "stowline/service/FailureSentence.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <random>

namespace stowline::backup {

namespace {

using std::chrono::steady_clock;

/// Of a try at the end of its step's time; a service that works answers within it.
constexpr std::chrono::seconds kShortestTry{5};
constexpr std::chrono::seconds kLongestSingleTry{30};
/// How soon the end of a try's time, or a request to stop, is noticed.
constexpr std::chrono::milliseconds kLook{50};

double randomFraction()
{
    static thread_local std::minstd_rand generator(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(generator);
}

/// Errors that stay the same however often one tries: what cannot be sent, and answers that are
/// not followed or too large.
bool isPermanent(const Error& error)
{
    switch (error.kind) {
    case FailureKind::invalidSettings:
    case FailureKind::unsendableValue:
    case FailureKind::certificate:
    case FailureKind::refusedRedirect:
    case FailureKind::tooLarge:
    case FailureKind::requestTooLarge:
    case FailureKind::badRequest:
        return true;
    default:
        return false;
    }
}

/// Where the error's own text is the same for every cause, the cause in words.
std::string textOf(const Error& error)
{
    if (error.kind == FailureKind::stopped) // for its time was over; a person's stop ends all
        return "The service did not answer in time.";
    return error.code == kFaultErrorCode ? sentenceFor(error.kind, "the service")
                                         : error.localizedDescription();
}

std::string sentence(std::string text)
{
    if (!text.empty() && !text.ends_with('.'))
        text += '.';
    return text;
}

} // namespace

Tries::Tries(Duration budgetPerStep, StopRequest stop, std::function<Moment()> now)
    : budget_(budgetPerStep), stop_(std::move(stop)), now_(std::move(now)),
      watcher_([this] { watch(); })
{
}

Tries::~Tries()
{
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    ended_.notify_all();
    watcher_.join();
}

void Tries::watch()
{
    std::unique_lock lock(mutex_);
    while (!isOver_) {
        const bool isStopped = stop_.isRequested();
        const Moment now = steady_clock::now();
        for (const auto& [deadline, attempt] : running_) {
            if (isStopped || deadline <= now)
                attempt.request();
        }
        ended_.wait_for(lock, kLook, [this] { return isOver_; });
    }
}

bool Tries::tryOnce(const Attempt& attempt, std::optional<Error>& error, Moment deadline)
{
    const StopRequest ofThisTry;
    const StopScope scope(ofThisTry);
    std::multimap<Moment, StopRequest>::iterator place;
    {
        const std::lock_guard lock(mutex_);
        place = running_.emplace(deadline, ofThisTry);
    }
    const FailureWatch watch;
    const bool isDone = attempt(error);
    // What no slot tells (no answer in time, a helper that died, a server that cannot serve now) is
    // not a refusal.
    if (!isDone && !error &&
        (watch.kind() == FailureKind::timeOut || watch.kind() == FailureKind::helperFailed ||
         watch.kind() == FailureKind::unavailable))
        error = watch.failure();
    const std::lock_guard lock(mutex_);
    running_.erase(place);
    return isDone;
}

bool Tries::once(const Attempt& attempt)
{
    std::optional<Error> unimportant;
    return !stop_.isRequested() &&
           tryOnce(attempt, unimportant, steady_clock::now() + kLongestSingleTry);
}

std::optional<StepFailure> Tries::repeat(const Attempt& attempt, int refusalsTaken)
{
    Backoff backoff(isServiceDown_ ? Duration::zero() : budget_, now_, randomFraction);
    const Moment end = steady_clock::now() + budget_;
    for (int refusals = 0;;) {
        if (stop_.isRequested())
            return StepFailure{StepEnd::interrupted, {}};
        std::optional<Error> error;
        if (tryOnce(attempt, error, std::max(end, steady_clock::now() + kShortestTry))) {
            isServiceDown_ = false;
            return std::nullopt;
        }
        if (stop_.isRequested())
            return StepFailure{StepEnd::interrupted, {}};
        if (error && isPermanent(*error))
            return StepFailure{StepEnd::failed, sentence(textOf(*error))};
        const bool isRefusal = !error || error->kind == FailureKind::refusedByService;
        const auto pause = backoff.next();
        // A no stays a no when there is no time to ask three times; the service is not down.
        if (isRefusal && (++refusals >= refusalsTaken || !pause))
            return StepFailure{StepEnd::refused, error ? sentence(textOf(*error)) : std::string()};
        if (!pause) {
            isServiceDown_ = true;
            return StepFailure{StepEnd::temporary,
                               sentence(textOf(*error)) +
                                   " It was tried until the time for it was used up."};
        }
        if (stop_.waitFor(*pause))
            return StepFailure{StepEnd::interrupted, {}};
    }
}

} // namespace stowline::backup
