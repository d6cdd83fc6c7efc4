// What a run comes to: every item is counted once, in one place.
#pragma once

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/tree/AllowedChanges.h"

#include <mutex>

namespace stowline::backup {

/// Counts for the summary and tells the observer. Any thread.
class RunAccounts {
public:
    explicit RunAccounts(BackupObserver& observer) : observer_(observer) {}

    /// Files that may change without the run ending as one in which something failed. Before the
    /// first item.
    void allow(AllowedChanges changes) { allowedChanges_ = std::move(changes); }

    /// An item has been found; it must end with done(). @param bytes of a file's content
    void found(std::uint64_t bytes = 0);

    /// An item that was found has ended.
    void done(const ItemReport& report);

    /// Both at once, for what needs no work.
    void foundAndDone(const ItemReport& report);

    void carriedForward();
    /// Files that were not looked at and whose content the service has lost.
    void lost(std::uint64_t files);
    void note(const std::string& sentence);

    /// What went wrong with the run as a whole: it cannot end as one in which nothing failed.
    void problem(const std::string& sentence);

    void walkIsOver();
    void activity(const std::string& what);

    /// Tells the observer how far it is. @param sentBytes confirmed by the service
    void showProgress(std::uint64_t sentBytes);

    [[nodiscard]] bool hasProblem() const;
    /// The figures so far. `end` is done, someFailed or failed (the numbers do not add up), as they
    /// tell.
    [[nodiscard]] BackupSummary summary() const;

private:
    void count(const ItemReport& report);

    BackupObserver& observer_;
    AllowedChanges allowedChanges_;
    mutable std::mutex mutex_;
    BackupSummary summary_;
    BackupProgress progress_;
    std::uint64_t finishedBytes_ = 0; ///< of items that are done but were not sent
    bool hasUnallowedChange_ = false;
    std::string problem_;
};

} // namespace stowline::backup
