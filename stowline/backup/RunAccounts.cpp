#include "stowline/backup/RunAccounts.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::size_t kFailuresKept = 1000;

/// What an observer throws is its own affair.
template <class Telling> void tell(const Telling& telling) noexcept
{
    try {
        telling();
    } catch (...) { // NOLINT: see above
    }
}

} // namespace

const char* nameOf(ItemState state)
{
    switch (state) {
    case ItemState::stored:
        return "stored";
    case ItemState::unchanged:
        return "unchanged";
    case ItemState::recorded:
        return "recorded";
    case ItemState::excluded:
        return "excluded";
    case ItemState::wouldStore:
        return "would-store";
    case ItemState::failed:
        break;
    }
    return "failed";
}

void RunAccounts::found(std::uint64_t bytes)
{
    const std::lock_guard lock(mutex_);
    ++progress_.foundItems;
    ++summary_.found;
    progress_.foundBytes += bytes;
}

void RunAccounts::done(const ItemReport& report)
{
    const std::lock_guard lock(mutex_);
    count(report);
    tell([&] { observer_.itemDone(report); });
}

void RunAccounts::foundAndDone(const ItemReport& report)
{
    found(report.bytes);
    done(report);
}

void RunAccounts::count(const ItemReport& report)
{
    ++progress_.doneItems;
    if (report.state != ItemState::stored)
        finishedBytes_ += report.bytes;
    switch (report.state) {
    case ItemState::stored:
        ++summary_.stored;
        summary_.storedBytes += report.bytes;
        summary_.resumed += report.wasResumed ? 1 : 0;
        break;
    case ItemState::unchanged:
        ++summary_.unchanged;
        summary_.unchangedBytes += report.bytes;
        break;
    case ItemState::recorded:
        ++summary_.recorded;
        break;
    case ItemState::excluded:
        ++summary_.excluded;
        break;
    case ItemState::wouldStore:
        ++summary_.wouldStore;
        summary_.wouldStoreBytes += report.bytes;
        break;
    case ItemState::failed:
        ++summary_.failed;
        summary_.failedBytes += report.bytes;
        if (summary_.failures.size() < kFailuresKept)
            summary_.failures.push_back(report);
        break;
    }
    if (report.changedWhileRead) {
        ++summary_.changedWhileRead;
        hasUnallowedChange_ = hasUnallowedChange_ || !allowedChanges_.allows(report.path);
    }
}

void RunAccounts::carriedForward()
{
    const std::lock_guard lock(mutex_);
    ++summary_.carriedForward;
}

void RunAccounts::lost(std::uint64_t files)
{
    const std::lock_guard lock(mutex_);
    summary_.stillLost += files;
}

void RunAccounts::note(const std::string& sentence)
{
    const std::lock_guard lock(mutex_);
    tell([&] { observer_.note(sentence); });
}

void RunAccounts::problem(const std::string& sentence)
{
    const std::lock_guard lock(mutex_);
    if (problem_.empty())
        problem_ = sentence;
    tell([&] { observer_.note(sentence); });
}

void RunAccounts::walkIsOver()
{
    const std::lock_guard lock(mutex_);
    progress_.isWalkOver = true;
}

void RunAccounts::activity(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    progress_.activity = what;
}

void RunAccounts::showProgress(std::uint64_t sentBytes)
{
    const std::lock_guard lock(mutex_);
    progress_.sentBytes = sentBytes;
    progress_.doneBytes = std::min(finishedBytes_ + sentBytes, progress_.foundBytes);
    tell([&] { observer_.progress(progress_); });
}

bool RunAccounts::hasProblem() const
{
    const std::lock_guard lock(mutex_);
    return !problem_.empty();
}

BackupSummary RunAccounts::summary() const
{
    const std::lock_guard lock(mutex_);
    BackupSummary summary = summary_;
    const std::uint64_t ended = summary.stored + summary.unchanged + summary.recorded +
                                summary.excluded + summary.failed + summary.wouldStore;
    summary.end = BackupEnd::done;
    if (summary.failed > 0 || hasUnallowedChange_ || !problem_.empty()) {
        summary.end = BackupEnd::someFailed;
        summary.sentence = problem_;
    }
    if (ended != summary.found) {
        summary.end = BackupEnd::failed;
        summary.sentence =
            fmt::format("{} items were found, but {} are accounted for.", summary.found, ended);
    }
    return summary;
}

} // namespace stowline::backup
