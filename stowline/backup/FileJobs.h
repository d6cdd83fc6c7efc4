// What is done with the files whose content has to be looked at, several at a time.
#pragma once

#include "stowline/backup/BoundedQueue.h"
#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunIndex.h"
#include "stowline/backup/transfer/FileUploader.h"
#include "stowline/backup/transfer/ServiceQuestions.h"
#include "stowline/backup/tree/TreeWalk.h"

#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace stowline::backup {

/// A file whose content is not known by its stamps.
struct FileJob {
    FoundItem found; ///< with its attributes
    std::optional<StoredItem> known;
    /// What is read instead of what lies at its path; null: that.
    std::shared_ptr<const platform::SourceFile> source = nullptr;
};

/// The threads of a run that read and send files. Each job ends in the accounts and the index,
/// unless the run is stopped.
class FileJobs {
public:
    /// @param held what the service holds of files that the index does not know
    /// @param knowsAll the index knows all that is held but what a run could not ask about, which
    ///        is noted as missed
    /// @param believesListings what a listing shows may count as stored
    FileJobs(UploadContext& context, RunIndex& index, RunAccounts& accounts, HeldFiles& held,
             bool knowsAll, bool believesListings, bool isDryRun)
        : context_(context), index_(index), accounts_(accounts), held_(held), knowsAll_(knowsAll),
          believesListings_(believesListings), isDryRun_(isDryRun), queue_(kWaiting)
    {
    }
    ~FileJobs() { stop(); }

    /// Starts so many threads; fewer where the system has no more.
    void start(std::size_t threads);

    /// Waits for room in the queue. @return false when the run is to end
    bool add(FileJob job);

    /// No more jobs come: waits until all are done.
    void finish();
    /// Drops what waits, and waits for what is under way.
    void stop();

    /// What no job may go on after: the index cannot be written.
    [[nodiscard]] std::optional<std::string> fault() const;

private:
    /// Each may hold a folder open.
    static constexpr std::size_t kWaiting = 8;

    void work();
    void take(FileJob& job);
    [[nodiscard]] bool isHeldByService(FileJob& job);
    [[nodiscard]] bool hasKnownContent(FileJob& job);
    void keep(FileJob& job, const ContentReading& reading, StoredContent content);
    [[nodiscard]] FileUploader uploaderFor(const FileJob& job);
    void upload(FileJob& job);
    void putStored(FileJob& job, const UploadOutcome& outcome);
    void put(FileJob& job, StoredContent content, Timestamp readBegan, bool changedWhileRead,
             bool wasUploaded);
    [[nodiscard]] bool mayBeKnownContent(const FileJob& job) const;
    void fail(const FileJob& job, const std::string& cause, bool isGone = false);
    void noteFault(std::string sentence);

    UploadContext& context_;
    RunIndex& index_;
    RunAccounts& accounts_;
    HeldFiles& held_;
    const bool knowsAll_;
    const bool believesListings_;
    const bool isDryRun_;
    BoundedQueue<FileJob> queue_;
    std::vector<std::thread> threads_;
    mutable std::mutex mutex_;
    std::optional<std::string> fault_;
};

} // namespace stowline::backup
