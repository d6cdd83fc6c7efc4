#include "cli/backup/BackupRun.h"

#include "cli/backup/RemoteCatalogue.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace stowline::cli {

namespace {

using Kind = UploadOutcome::Kind;
using std::chrono::steady_clock;

/// How often progress is looked at.
constexpr std::chrono::milliseconds kLook{100};

class Run {
public:
    Run(const Session& session, const std::string& serverPath, const FileTree& tree,
        const BackupOptions& options)
        : tree_(tree), options_(options), session_(session), journal_(journalFolder().value_or("")),
          bandwidth_(options.bytesPerSecond, steady_clock::now),
          catalogue_(session, options.systemName), upload_{.session = session,
                                                           .systemName = options.systemName,
                                                           .serverPath = serverPath,
                                                           .journal = journal_,
                                                           .bandwidth = bandwidth_,
                                                           .partBytes = options.partBytes,
                                                           .budgetPerStep = options.budgetPerStep,
                                                           .registration = options.registration}
    {
    }

    BackupResult run()
    {
        const auto start = steady_clock::now();
        for (const std::string& path : tree_.missing)
            addFault("There is nothing at " + path + ".");
        for (const std::string& fault : tree_.faults)
            addFault(fault + ".");
        if (!options_.isDryRun)
            announcePackages();
        work();
        result_.leftOut = tree_.leftOut;
        result_.sentParts = upload_.sentParts;
        result_.onlyMissingPaths = tree_.files.empty() && tree_.faults.empty() &&
                                   !tree_.missing.empty() && tree_.leftOut == 0;
        result_.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
        result_.registrationSeconds =
            static_cast<double>(upload_.registrationMicroseconds.load()) / 1e6;
        return std::move(result_);
    }

private:
    void addFault(const std::string& sentence)
    {
        ++result_.failed;
        result_.faults.push_back(sentence);
        output().complain(sentence);
    }

    void announcePackages()
    {
        for (const LocalPackage& package : tree_.packages) {
            std::optional<Error> error;
            if (Interruptible::request())
                return;
            // The files are stored all the same; only how the folder is shown depends on it.
            if (!WebServiceBroker::preparePackagedFilesForProtectionForUserName(
                    session_.username, session_.password, session_.server, remotePath(package.path),
                    package.bytes, &error))
                output().note("The package " + package.path + " was not announced: " +
                              (error ? error->localizedDescription() : "the service said no") +
                              ".");
        }
    }

    void work()
    {
        std::vector<std::jthread> workers;
        running_ = std::min(options_.jobs, std::max<std::size_t>(tree_.files.size(), 1));
        for (std::size_t i = running_; i > 0; --i)
            workers.emplace_back([this] { takeFiles(); });
        showProgress();
    }

    void takeFiles()
    {
        for (std::size_t at = next_++; at < tree_.files.size() && !Interruptible::request();
             at = next_++)
            take(tree_.files[at]);
        const std::lock_guard lock(mutex_);
        if (--running_ == 0)
            ended_.notify_all();
    }

    void showProgress()
    {
        std::uint64_t all = 0;
        for (const LocalFile& file : tree_.files)
            all += file.size;
        ProgressDisplay progress(progressStyle(), tree_.files.size());
        progress.beginPart();
        std::unique_lock lock(mutex_);
        while (!ended_.wait_for(lock, kLook, [this] { return running_ == 0; })) {
            const std::size_t part = std::min(next_.load(), tree_.files.size());
            const std::uint64_t done = passedBytes_ + upload_.sentBytes;
            lock.unlock();
            progress.updatePart(
                part, all == 0 ? 0 : static_cast<double>(done) / static_cast<double>(all), all);
            lock.lock();
            for (const std::string& sentence : sentences_) {
                progress.clear();
                output().complain(sentence);
            }
            sentences_.clear();
        }
        progress.clear();
        for (const std::string& sentence : sentences_)
            output().complain(sentence);
        sentences_.clear();
    }

    void take(LocalFile file)
    {
        if (isHeld(file)) {
            passedBytes_ += file.size;
            tell(file, "unchanged");
            count(&BackupResult::unchanged, &BackupResult::unchangedBytes, file.size);
            return;
        }
        if (options_.isDryRun) {
            tell(file, "would-store");
            count(&BackupResult::stored, &BackupResult::storedBytes, file.size);
            return;
        }
        const UploadOutcome outcome = FileUploader(upload_, file).upload();
        if (outcome.kind == Kind::interrupted)
            return;
        if (outcome.kind == Kind::stored) {
            tell(file, "stored");
            count(&BackupResult::stored, &BackupResult::storedBytes, file.size);
            if (outcome.wasResumed)
                count(&BackupResult::resumed);
            return;
        }
        tell(file, "failed");
        passedBytes_ += file.size;
        const std::lock_guard lock(mutex_);
        ++result_.failed;
        result_.failedBytes += file.size;
        result_.faults.push_back(outcome.sentence);
        sentences_.push_back(outcome.sentence);
    }

    /// Whether the service has this file as it is. Marks one that has the service's size and date
    /// but another content.
    bool isHeld(LocalFile& file)
    {
        const auto remote = catalogue_.find(file.path);
        if (!remote || remote->size != file.size ||
            remote->modified != WebServiceBroker::clientTimeString(file.modified))
            return false;
        if (!options_.comparesChecksums)
            return true;
        const auto sum = Crc32::checksumOfFile(file.path);
        const std::string checksum = fmt::format("{:08x}", sum.checksum);
        if (sum.fault || checksum == remote->checksum)
            return !sum.fault;
        file.contentMark = checksum;
        return false;
    }

    void count(std::uint64_t BackupResult::*files, std::uint64_t BackupResult::*bytes = nullptr,
               std::uint64_t size = 0)
    {
        const std::lock_guard lock(mutex_);
        ++(result_.*files);
        if (bytes)
            result_.*bytes += size;
    }

    void tell(const LocalFile& file, const char* state)
    {
        if (!output().isJson())
            return;
        Fields fields;
        fields.emplace_back("path", file.path);
        fields.emplace_back("state", state);
        fields.emplace_back("bytes", file.size);
        const std::lock_guard lock(mutex_);
        output().item("", "file", fields);
    }

    const FileTree& tree_;
    const BackupOptions& options_;
    const Session& session_;
    UploadJournal journal_;
    BandwidthLimit bandwidth_;
    RemoteCatalogue catalogue_;
    UploadRun upload_;
    std::atomic<std::size_t> next_ = 0;
    std::atomic<std::uint64_t> passedBytes_ = 0; ///< of files that need no sending
    std::mutex mutex_;                           ///< of what follows
    std::condition_variable ended_;
    std::size_t running_ = 0;
    BackupResult result_;
    std::vector<std::string> sentences_; ///< to be said when the progress bar is out of the way
};

} // namespace

BackupResult runBackup(const Session& session, const std::string& serverPath, const FileTree& tree,
                       const BackupOptions& options)
{
    return Run(session, serverPath, tree, options).run();
}

namespace {

/// Seconds, to the nearest thousandth.
double inMilliseconds(double seconds)
{
    return std::round(seconds * 1000) / 1000;
}

} // namespace

ExitStatus finishBackup(const BackupResult& result)
{
    Fields fields{{"stored", result.stored},
                  {"resumed", result.resumed},
                  {"unchanged", result.unchanged},
                  {"failed", result.failed},
                  {"bytes", result.storedBytes},
                  {"parts", result.sentParts},
                  {"left_out", result.leftOut},
                  {"seconds", inMilliseconds(result.seconds)},
                  {"registration_seconds", inMilliseconds(result.registrationSeconds)}};
    if (const auto status = Interruptible::request()) {
        output().complain(fmt::format("Interrupted. {} files were stored; the same command goes on "
                                      "where this one stopped.",
                                      result.stored));
        return output().finish(*status, fields);
    }
    if (result.failed == 0)
        return output().finish(ExitStatus::done, fields);
    if (result.onlyMissingPaths)
        return output().finish(ExitStatus::notFound, fields);
    output().complain(
        fmt::format("{} files were stored, {} were not.", result.stored, result.failed));
    return output().finish(ExitStatus::someItemsFailed, fields);
}

std::string uploadPathIdentifier()
{
    return General::hardwareId().value_or("unknown");
}

std::optional<std::filesystem::path> journalFolder()
{
    const auto state = platform::stateFolder();
    return state ? std::optional(*state / "uploads") : std::nullopt;
}

Result<std::string> uploadPathFor(const Session& session)
{
    auto path = WebServiceBroker::getUploadServerPathForUsername(session.username, session.server,
                                                                 uploadPathIdentifier());
    if (path)
        return *path;
    return output().fail(ExitStatus::temporary,
                         "The backup server " + session.server +
                             " gave no upload path. Please try again later.");
}

} // namespace stowline::cli
