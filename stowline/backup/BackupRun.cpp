#include "stowline/backup/BackupRun.h"

#include "stowline/backup/FileJobs.h"
#include "stowline/backup/RunAccounts.h"
#include "stowline/backup/RunFault.h"
#include "stowline/backup/RunIndex.h"
#include "stowline/backup/RunRecords.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/TreeIntake.h"
#include "stowline/backup/VersionAudit.h"
#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/proof/TestFolder.h"
#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/tree/PathBelow.h"
#include "stowline/backup/tree/RuleText.h"
#include "stowline/backup/tree/ShortList.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <set>
#include <thread>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLook{100};
/// Why nobody knows whether all of a folder is held; stands in index and record.
constexpr const char* kCutOff = "a run that was to back it up was cut off";
/// Of how many runs one asks after every version.
constexpr std::uint64_t kRunsForAllVersions = 30;

/// Of rules in the note of each folder that was named.
constexpr std::size_t kMostNotedRules = 16384;
/// A record holds them in one line, in which a byte may take six.
constexpr std::size_t kMostRuleBytes = 1U << 20;
constexpr std::size_t kBytesAroundPattern = 12;

std::size_t bytesOf(const BackupRules& rules)
{
    std::size_t bytes = rules.excludeLines.size();
    for (const auto* patterns : {&rules.include, &rules.exclude})
        for (const std::string& pattern : *patterns)
            bytes += pattern.size() + kBytesAroundPattern;
    return bytes;
}

/// The rules as the walk takes them, and what is wrong with them; empty: nothing.
std::pair<TreeRules, std::string> readRules(const BackupRules& rules)
{
    if (const std::size_t bytes = bytesOf(rules); bytes > kMostRuleBytes)
        return {TreeRules(), fmt::format("The patterns come to {} bytes, but the record of a run "
                                         "takes at most {} of them. Please shorten the list.",
                                         bytes, kMostRuleBytes)};
    TreeRules tree;
    tree.skipsHidden = rules.skipsHidden;
    tree.skipsCaches = rules.skipsCaches;
    tree.staysOnFileSystem = rules.staysOnFileSystem;
    for (const std::string& pattern : rules.include) {
        if (!tree.include(pattern))
            return {tree, "\"" + pattern + "\" is not a pattern."};
    }
    for (const std::string& pattern : rules.exclude) {
        if (!tree.exclude(pattern))
            return {tree, "\"" + pattern + "\" is not a pattern."};
    }
    const auto line = tree.excludeLines(rules.excludeLines);
    return {tree, line ? fmt::format("Line {} of the patterns is not a pattern.", *line) : ""};
}

TreeRules treeRules(const BackupRules& rules)
{
    auto [tree, fault] = readRules(rules);
    if (!fault.empty())
        throw RunFault(BackupEnd::badRequest, fault);
    return tree;
}

class Run {
public:
    Run(const BackupRequest& request, BackupObserver& observer, const StopRequest& stop)
        : request_(request), accounts_(observer), stop_(stop), tries_(request.budgetPerStep, stop)
    {
    }

    BackupSummary run()
    {
        const auto start = steady_clock::now();
        BackupSummary summary;
        try {
            whole();
            summary = accounts_.summary();
        } catch (const RunFault& fault) {
            summary = ended(fault.end(), fault.what());
        } catch (const RecordFault& fault) {
            summary = ended(endOf(fault), fault.what());
        } catch (const IndexFault& fault) {
            summary = ended(BackupEnd::stateFolder, fault.what());
        }
        if (foundNothing_ && summary.end == BackupEnd::someFailed)
            summary.end = BackupEnd::nothingThere;
        if (stop_.isRequested())
            summary.end = BackupEnd::interrupted;
        if (uploads_) {
            summary.sentParts = uploads_->sentParts;
            summary.registrationSeconds =
                static_cast<double>(uploads_->registrationMicroseconds.load()) / 1e6;
        }
        summary.run = record_.position.run;
        summary.recordDigest = record_.position.digest;
        summary.recordItems = record_.items;
        summary.recordBytes = record_.bytes;
        summary.losses = record_.losses;
        summary.vanishedVersions = vanishedVersions_;
        summary.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
        return summary;
    }

private:
    BackupSummary ended(BackupEnd end, const std::string& sentence)
    {
        BackupSummary summary = accounts_.summary();
        summary.end = end;
        summary.sentence = sentence;
        return summary;
    }

    /// What a self-test of some profile is restoring just now is not a file of this machine's own.
    void leaveOutTestFolders(WalkOptions& walk) const
    {
        int unimportant = 0;
        for (const fs::path& profile : profileFolders(request_.stateFolder, unimportant)) {
            for (const fs::path& folder : TestFolder::noted(profile))
                walk.ownFolders.push_back(folder.string());
        }
    }

    void whole()
    {
        const StopScope scope(stop_);
        // Rules first: a pattern that is none must not cost a sign of life of the service.
        WalkOptions walk{.paths = request_.paths,
                         .rules = treeRules(request_.rules),
                         .ownFolders = {request_.stateFolder.string()}};
        accounts_.allow(allowedChanges());
        state_.emplace(RunState::take(request_.stateFolder, request_.identity.profile,
                                      request_.isDryRun ? Leftovers::kept : Leftovers::takenOut));
        leaveOutTestFolders(walk);
        if (!request_.isDryRun)
            giveUpOvertakenUploads();
        if (request_.resumesOnly) {
            walk.paths = unfinishedPaths();
            if (walk.paths.empty())
                return accounts_.note("There is nothing to go on with.");
            resumedPaths_ = walk.paths;
        }
        begin();
        if (!request_.resumesOnly)
            askAfterVersions();
        noteBegun(walk.paths);
        work(walk);
        end();
    }

    [[nodiscard]] AllowedChanges allowedChanges() const
    {
        std::vector<std::string> named;
        for (const std::string& path : request_.paths) {
            std::error_code fault; // what is not there has no files
            named.push_back(fs::absolute(path, fault).lexically_normal().string());
            named.push_back(fs::canonical(path, fault).string());
        }
        AllowedChanges changes(std::move(named));
        for (const std::string& pattern : request_.allowChanging) {
            if (!changes.add(pattern))
                throw RunFault(BackupEnd::badRequest, "\"" + pattern + "\" is not a pattern.");
        }
        return changes;
    }

    /// What was begun of files that are gone or others by now; told where only that is wanted.
    void giveUpOvertakenUploads()
    {
        std::set<std::string> begun;
        for (const JournalEntry& entry : state_->journal().entries())
            begun.insert(entry.path);
        state_->journal().removeOvertaken();
        for (const JournalEntry& entry : state_->journal().entries())
            begun.erase(entry.path);
        if (request_.resumesOnly)
            for (const std::string& path : begun)
                accounts_.problem(path + " has changed or disappeared since its upload began; the "
                                         "upload is given up. Please back it up again.");
    }

    /// Everything between the state folder and the first item.
    void begin()
    {
        accounts_.activity("asks where to upload");
        const UploadOwner owner = uploadOwner(request_.account, request_.identity);
        bandwidth_.emplace(request_.bytesPerSecond, steady_clock::now);
        for (auto* context : {&uploads_, &recordUploads_}) {
            context->emplace(state_->journal(), *bandwidth_, tries_);
            (*context)->account = request_.account;
            if (WebServiceBroker::isRestoringConfigured())
                (*context)->tickets.emplace(request_.account, steady_clock::now);
            (*context)->owner = owner;
            (*context)->spoolFolder = state_->spoolFolder();
            (*context)->partBytes = request_.partBytes;
            (*context)->registration = request_.registersWithProtectFile ? Registration::protectFile
                                                                         : Registration::protect2;
        }
        if (!request_.isDryRun)
            uploads_->serverPath = recordUploads_->serverPath = uploadPath();
        index_.emplace(state_->openIndex(owner, request_.isDryRun, request_.rebuildsIndex),
                       state_->journal(), owner, !request_.isDryRun);
        noteIndexState();
        records_.emplace(request_, *state_, tries_, *bandwidth_, *recordUploads_, accounts_);
        if (request_.resumesOnly)
            records_->setPaths(resumedPaths_);
        knowsAll_ = records_->bringUpToDate(index_->alone());
        if (!request_.isDryRun)
            forgetFinishedUploads();
        index_->beginRun(records_->begin(index_->alone()));
        uploads_->run = index_->run();
        if (!knowsAll_ && records_->areRunsForgotten())
            accounts_.note("Runs were forgotten under this machine's name: what neither index nor "
                           "record knows is sent, whether the service shows it or not.");
        // What neither index nor record knows may be there all the same.
        held_.emplace(request_.account, tries_);
    }

    [[nodiscard]] static bool hasState(const ItemRecord& item, const platform::FileState& state)
    {
        const auto isSame = [](const Timestamp& stamp, const platform::StatusTime& time) {
            return stamp.seconds == time.seconds && stamp.nanoseconds == time.nanoseconds;
        };
        return item.size == state.size && item.inode == state.inode &&
               isSame(item.modified, state.modified) && isSame(item.changed, state.changed);
    }

    /// A run that was killed between noting that a file is stored and forgetting its upload left
    /// the journal's entry.
    void forgetFinishedUploads()
    {
        for (const JournalEntry& entry : state_->journal().entries()) {
            const auto item = index_->alone().find(entry.path);
            if (entry.owner == uploads_->owner && item && item->content &&
                hasState(item->item, entry.state))
                state_->journal().remove(entry);
        }
    }

    /// Of what an earlier run did not come to the end of, index and record know from now on. What
    /// this one is to look at is noted before anything of it is known: it may be killed.
    void noteBegun(const std::vector<std::string>& paths)
    {
        if (request_.isDryRun)
            return;
        for (const std::string& folder : state_->begunFolders(uploads_->owner))
            index_->noteCutOff(folder, kCutOff);
        index_->commit();
        std::vector<std::string> folders;
        for (const std::string& path : paths) {
            std::error_code fault; // what cannot be looked at now fails in the walk
            if (const fs::path real = fs::canonical(path, fault); fs::is_directory(real, fault))
                folders.push_back(real.string());
        }
        state_->noteBegunFolders(uploads_->owner, folders);
    }

    /// The run is whole: what was found is stored, or told as failed.
    void conclude()
    {
        if (!stop_.isRequested())
            index_->conclude();
        index_->commit();
        if (stop_.isRequested() || request_.isDryRun)
            return;
        state_->noteBegunFolders(uploads_->owner, {});
        ShortList folders;
        index_->alone().forEachNote([&folders](const PlaceNote& note) {
            if (note.kind == PlaceNote::Kind::cutOff)
                folders.add(note.path);
            return true;
        });
        if (folders.count() > 0)
            accounts_.note("An earlier backup of " + folders.text() +
                           " was cut off, and none has been whole since: what is stored of it may "
                           "be incomplete. Please back it up again; if it is gone by now, back up "
                           "the folder that it was in.");
    }

    std::string uploadPath()
    {
        std::optional<std::string> path;
        const auto failure = tries_.repeat([&](std::optional<Error>& error) {
            const FailureWatch watch;
            path = WebServiceBroker::getUploadServerPathForUsername(
                request_.account.username, request_.account.server,
                General::hardwareId().value_or("unknown"));
            error = watch.failure();
            return path.has_value();
        });
        if (failure && failure->end == StepEnd::interrupted)
            throw RunFault(BackupEnd::interrupted, "");
        if (failure)
            throw RunFault(failure->end == StepEnd::refused     ? BackupEnd::refused
                           : failure->end == StepEnd::temporary ? BackupEnd::temporary
                                                                : BackupEnd::failed,
                           "The backup server " + request_.account.server +
                               " gives no upload path. " + failure->reason);
        return *path;
    }

    void noteIndexState()
    {
        using State = ItemIndex::State;
        const State state = index_->alone().state();
        if (state == State::damaged)
            accounts_.note("The index of earlier runs is damaged; it is rebuilt.");
        if (state == State::ofNewerVersion)
            accounts_.note(
                "The index of earlier runs was written by a newer version of the program; it is "
                "rebuilt.");
        if (state == State::ofAnotherOwner)
            accounts_.note("The index of earlier runs belongs to another account or machine; it is "
                           "rebuilt.");
    }

    std::vector<std::string> unfinishedPaths()
    {
        const UploadOwner owner = uploadOwner(request_.account, request_.identity);
        std::vector<std::string> paths;
        int error = 0;
        const auto entries = state_->journal().entries(error);
        requireRead(request_.stateFolder, error);
        for (const JournalEntry& entry : entries) {
            if (entry.owner == owner)
                paths.push_back(entry.path);
        }
        return paths;
    }

    /// Asks after a thirtieth of the versions that the index relies on, the longest not asked after
    /// first; after all when nothing is to be trusted.
    void askAfterVersions()
    {
        const bool wereDeleted = state_->hasDeletionNote();
        const bool asksAll = request_.trustsNothing || request_.rebuildsIndex || wereDeleted ||
                             records_->distrustsService();
        const std::uint64_t all = index_->alone().itemCount();
        VersionAudit audit(request_.account, *index_, accounts_, tries_, state_->damagedVersions());
        const bool isAnswered =
            audit.ask(asksAll ? all : (all + kRunsForAllVersions - 1) / kRunsForAllVersions);
        vanishedVersions_ = audit.lost();
        // What is lost and is not met in this run is lost for the next one too.
        if (wereDeleted && isAnswered && audit.lost() == 0 && !request_.isDryRun)
            state_->dropDeletionNote();
    }

    void work(const WalkOptions& options)
    {
        FileJobs jobs(*uploads_, *index_, accounts_, *held_, knowsAll_,
                      !records_->areRunsForgotten(), request_.isDryRun);
        jobs.start(std::max<std::size_t>(request_.jobs, 1));
        const StopRequest walkStop;
        std::thread walker([&] { walk(options, jobs, walkStop); });
        try {
            showProgressUntilDone(jobs, walkStop);
        } catch (...) { // for want of memory
            walkStop.request();
            walker.join();
            throw;
        }
        walker.join();
        if (const auto fault = jobs.fault())
            throw RunFault(BackupEnd::failed, *fault);
        if (walkFault_)
            throw RunFault(BackupEnd::failed, *walkFault_);
    }

    void walk(const WalkOptions& options, FileJobs& jobs, const StopRequest& walkStop)
    {
        try {
            if (request_.streamDescriptor >= 0)
                takeStream(jobs);
            else
                walkTrees(options, jobs, walkStop);
            jobs.finish();
        } catch (...) {
            walkFault_ = platform::handledSentence();
        }
        jobs.stop();
        const std::lock_guard lock(mutex_);
        isOver_ = true;
        over_.notify_all();
    }

    void walkTrees(const WalkOptions& options, FileJobs& jobs, const StopRequest& walkStop)
    {
        TreeIntake intake(
            *index_, accounts_, jobs,
            {.ignoresChangeTime = request_.ignoresCtime,
             .ignoresInode = request_.ignoresInode,
             .trustsNothing = request_.trustsNothing},
            notedRules(), walkStop,
            [this](const std::string& path, std::uint64_t bytes) { announcePackage(path, bytes); });
        const WalkResult result = walkTree(options, intake, walkStop);
        if (!result.isStopped) {
            accounts_.walkIsOver();
            intake.tellFileSystems();
            tellIdlePatterns(result.idlePatterns);
        }
        foundNothing_ = intake.foundNothing();
    }

    /// The rules for the notes of the folders that were named; of very long ones only that.
    [[nodiscard]] std::string notedRules() const
    {
        std::string rules = packedRules(recordedRules(request_.rules));
        return rules.size() <= kMostNotedRules
                   ? rules
                   : packedRules({textOf({NotedRule::Kind::tooLong, {}})});
    }

    void tellIdlePatterns(const std::vector<std::string>& patterns)
    {
        for (const std::string& pattern : patterns)
            accounts_.note(idleSentence(pattern));
    }

    void announcePackage(const std::string& path, std::uint64_t bytes)
    {
        if (request_.isDryRun || stop_.isRequested())
            return;
        std::optional<Error> error;
        const bool isDone = tries_.once([&](std::optional<Error>& wrong) {
            const bool isTaken = WebServiceBroker::preparePackagedFilesForProtectionForUserName(
                request_.account.username, request_.account.password, request_.account.server,
                remotePath(path), bytes, &wrong);
            error = wrong;
            return isTaken;
        });
        // The files are stored all the same; only how the folder is shown depends on it.
        if (!isDone && !stop_.isRequested())
            accounts_.note("The package " + path + " was not announced: " +
                           (error ? error->localizedDescription() : "the service said no") + ".");
    }

    void takeStream(FileJobs& jobs)
    {
        const std::string path = streamPathOf(request_.streamName);
        accounts_.found();
        accounts_.activity("reads standard input");
        int error = 0;
        auto spool = platform::SourceFile::spooled(request_.streamDescriptor, state_->spoolFolder(),
                                                   stop_, error);
        if (stop_.isRequested())
            return;
        if (!spool) {
            const std::string cause = "Standard input cannot be buffered for sending: " +
                                      platform::systemErrorText(error) + ".";
            for (std::uint64_t kept = index_->keepAsStale(path); kept > 0; --kept)
                accounts_.carriedForward();
            if (!request_.isDryRun)
                index_->noteMissed(path, cause);
            accounts_.done({.path = path, .cause = cause});
            return;
        }
        const auto state = spool->state();
        FileJob job;
        job.found.item.path = path;
        job.found.item.mode = 0600;
        job.found.item.modified = job.found.item.changed = timestampNow();
        job.found.item.size = state ? state->size : 0;
        job.known = index_->find(path);
        job.source = std::make_shared<platform::SourceFile>(std::move(*spool));
        (void)jobs.add(std::move(job));
        accounts_.walkIsOver();
    }

    void showProgressUntilDone(FileJobs& jobs, const StopRequest& walkStop)
    {
        auto unfinishedAt = steady_clock::now() + request_.betweenRecords;
        std::unique_lock lock(mutex_);
        while (!over_.wait_for(lock, kLook, [this] { return isOver_; })) {
            lock.unlock();
            if (stop_.isRequested() || jobs.fault())
                walkStop.request();
            accounts_.showProgress(uploads_->sentBytes);
            if (steady_clock::now() >= unfinishedAt) {
                storeUnfinished();
                unfinishedAt = steady_clock::now() + request_.betweenRecords;
            }
            lock.lock();
        }
    }

    void storeUnfinished()
    {
        try {
            index_->commit();
            index_->withLock([this](ItemIndex& index) {
                records_->storeUnfinished(index, accounts_.summary().storedBytes);
            });
        } catch (const std::exception&) {
            accounts_.note("What the run has done so far could not be recorded yet: " +
                           platform::handledException().sentence);
        }
    }

    /// What the service has lost and this run did not meet, so that it was not sent again. What a
    /// person had deleted is not lost.
    void tellWhatStaysLost()
    {
        const std::vector<std::string> deleted = state_->deletedFolders(request_.account);
        const auto isDeleted = [&deleted](const std::string& path) {
            return std::ranges::any_of(
                deleted, [&path](const std::string& folder) { return isBelow(path, folder); });
        };
        ShortList lost;
        ShortList gone;
        for (const std::string& path : index_->lostAndNotMet()) {
            (isDeleted(path) ? gone : lost).add(path);
            if (isDeleted(path))
                index_->remove(path);
        }
        if (gone.count() > 0)
            accounts_.note(
                "Not part of the backup any more, because it was deleted on the service: " +
                gone.text() + ".");
        if (lost.count() == 0)
            return;
        accounts_.lost(lost.count());
        accounts_.problem(fmt::format(
            "The service does not have what was stored of {} any more, and this run did not look "
            "at {}: {}. Please back up {} too; where a file is gone, the folder that it was in.",
            platform::countText(lost.count(), "file", "files"), lost.count() == 1 ? "it" : "them",
            lost.text(), lost.count() == 1 ? "it" : "them"));
    }

    void end()
    {
        conclude();
        if (stop_.isRequested() || request_.isDryRun || foundNothing_)
            return;
        tellWhatStaysLost();
        accounts_.activity("stores the record of the run");
        try {
            record_ = records_->storeFinished(index_->alone(), accounts_.summary().storedBytes);
            index_->alone().commit();
            tellLoss();
        } catch (const RecordFault& fault) {
            if (!stop_.isRequested())
                accounts_.problem(fault.what());
        }
    }

    /// What this run found gone, where it is much. That a record cannot be read is told already.
    void tellLoss()
    {
        if (record_.losses.empty())
            return;
        const RunLoss& last = record_.losses.back();
        if (last.run == record_.position.run && last.items != 0)
            accounts_.note(sentenceOf(last));
    }

    static BackupEnd endOf(const RecordFault& fault)
    {
        switch (fault.kind()) {
        case RecordFault::Kind::temporary:
            return BackupEnd::temporary;
        case RecordFault::Kind::refused:
            return BackupEnd::refused;
        case RecordFault::Kind::interrupted:
            return BackupEnd::interrupted;
        case RecordFault::Kind::rolledBack:
            return BackupEnd::rolledBack;
        case RecordFault::Kind::failed:
        case RecordFault::Kind::notFound:
        case RecordFault::Kind::damaged:
        case RecordFault::Kind::tooNew:
            break;
        }
        return BackupEnd::failed;
    }

    const BackupRequest& request_;
    std::vector<std::string> resumedPaths_;
    RunAccounts accounts_;
    const StopRequest stop_;
    Tries tries_;
    std::optional<RunState> state_;
    std::optional<BandwidthLimit> bandwidth_;
    std::optional<UploadContext> uploads_;
    std::optional<UploadContext> recordUploads_; ///< whose parts are no part of the figures
    std::optional<RunIndex> index_;
    std::optional<RunRecords> records_;
    std::optional<HeldFiles> held_;
    bool knowsAll_ = false; ///< the index, but for what is noted as missed
    StoredRecord record_;
    std::uint64_t vanishedVersions_ = 0;
    bool foundNothing_ = false;
    std::optional<std::string> walkFault_;
    std::mutex mutex_;
    std::condition_variable over_;
    bool isOver_ = false;
};

/// How a run ended of which nobody knows why; only in a catch block.
BackupSummary unexpectedEnd() noexcept
{
    BackupSummary summary;
    summary.end = BackupEnd::failed;
    summary.sentence = platform::handledSentence();
    return summary;
}

} // namespace

BackupSummary runBackup(const BackupRequest& request, BackupObserver& observer,
                        const StopRequest& stop) noexcept
{
    try {
        return Run(request, observer, stop).run();
    } catch (...) {
        return unexpectedEnd();
    }
}

std::optional<std::string> faultIn(const BackupRules& rules) noexcept
{
    try {
        const auto fault = readRules(rules).second;
        return fault.empty() ? std::nullopt : std::optional(fault);
    } catch (...) {
        return std::nullopt; // the run finds it again
    }
}

} // namespace stowline::backup
