#include "stowline/backup/FileJobs.h"

#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/transfer/VersionCheck.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <system_error>

namespace stowline::backup {

namespace {

Timestamp stamp(const platform::StatusTime& time)
{
    return {.seconds = time.seconds, .nanoseconds = time.nanoseconds};
}

void takeState(ItemRecord& item, const platform::FileState& state)
{
    item.size = state.size;
    item.modified = stamp(state.modified);
    item.changed = stamp(state.changed);
    item.inode = state.inode;
}

/// The rest of the description as it is at the state that was read, when that is another one than
/// the walk saw.
void describe(FoundItem& found, const platform::FileState& state)
{
    ItemRecord& item = found.item;
    int error = 0;
    if (item.changed != stamp(state.changed) && found.folder) {
        const auto now = found.folder->statusOf(std::string(nameOf(item.path)), error);
        if (now && now->type == platform::ItemType::file) {
            item.mode = now->mode;
            item.links = now->links;
            if (item.owner != now->owner)
                item.ownerName.clear();
            if (item.group != now->group)
                item.groupName.clear();
            item.owner = now->owner;
            item.group = now->group;
            (void)readAttributes(found); // those that the walk saw stay
        }
    }
    takeState(item, state);
}

std::optional<platform::SourceFile> openAgain(const FileJob& job, int& error)
{
    const std::string& path = job.found.item.path;
    if (job.source)
        return job.source->again(error);
    if (!job.found.folder)
        return platform::SourceFile::open(platform::SourceFile::kNoFolder, path, error);
    return platform::SourceFile::open(job.found.folder->descriptor(), std::string(nameOf(path)),
                                      error);
}

} // namespace

void FileJobs::start(std::size_t threads)
{
    for (std::size_t i = 0; i < threads; ++i) {
        try {
            threads_.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            if (threads_.empty())
                throw;
            accounts_.note(fmt::format("The system allows only {} for the files.",
                                       platform::countText(i, "thread", "threads")));
            return;
        }
    }
}

bool FileJobs::add(FileJob job)
{
    return queue_.push(std::move(job));
}

void FileJobs::finish()
{
    queue_.end();
    for (std::thread& thread : threads_)
        thread.join();
    threads_.clear();
}

void FileJobs::stop()
{
    queue_.close();
    finish();
}

std::optional<std::string> FileJobs::fault() const
{
    const std::lock_guard lock(mutex_);
    return fault_;
}

void FileJobs::noteFault(std::string sentence)
{
    {
        const std::lock_guard lock(mutex_);
        if (!fault_)
            fault_ = std::move(sentence);
    }
    queue_.close();
}

void FileJobs::work()
{
    const StopScope scope(context_.tries.stop());
    try {
        while (auto job = queue_.pop()) {
            if (context_.tries.stop().isRequested()) {
                queue_.close();
                return;
            }
            take(*job);
        }
    } catch (...) {
        noteFault(platform::handledSentence());
    }
}

/// Whether the content may be the known one. Contents of other sizes are not.
bool FileJobs::mayBeKnownContent(const FileJob& job) const
{
    return job.known && job.known->content && !job.known->changedWhileRead &&
           job.known->item.size == job.found.item.size;
}

void FileJobs::take(FileJob& job)
{
    accounts_.activity(job.found.item.path);
    if (mayBeKnownContent(job) && hasKnownContent(job))
        return;
    if (!job.known && isHeldByService(job))
        return;
    if (context_.tries.stop().isRequested())
        return;
    if (isDryRun_) {
        int error = 0;
        if (!job.source && !openAgain(job, error)) {
            const UploadOutcome outcome = uploaderFor(job).outcomeOf(error);
            return fail(job, outcome.sentence, outcome.kind == UploadOutcome::Kind::vanished);
        }
        accounts_.done({.path = job.found.item.path,
                        .state = ItemState::wouldStore,
                        .bytes = job.found.item.size,
                        .cause = {}});
        return;
    }
    upload(job);
}

/// Reads it; keeps the known content when that is still it.
bool FileJobs::hasKnownContent(FileJob& job)
{
    int error = 0;
    const auto file = openAgain(job, error);
    const auto reading = file ? readContent(*file, context_.tries.stop()) : std::nullopt;
    if (!reading)
        return false; // the upload tells why, or sends it
    const StoredContent& known = *job.known->content;
    if (reading->digest != known.digest)
        return false;
    keep(job, *reading, known);
    return true;
}

/// Of a file that no record and no index knows: whether the service holds it with the same size and
/// checksum, and what it tells of that version, its digest too where it tells one, is no other
/// thing. When the service does not say, the file has failed and true is returned.
bool FileJobs::isHeldByService(FileJob& job)
{
    const std::string& path = job.found.item.path;
    if (!believesListings_ || (knowsAll_ && !index_.isMissed(path)))
        return false;
    const auto answer = held_.find(remotePath(parentOf(path)), remotePath(nameOf(path)));
    if (answer.failure) {
        if (answer.failure->end != StepEnd::interrupted)
            fail(job, path +
                          " is not stored: the service did not say what it holds of its folder. " +
                          answer.failure->reason);
        return true;
    }
    if (!answer.file || answer.file->size != job.found.item.size)
        return false;
    int error = 0;
    const auto file = openAgain(job, error);
    const auto reading = file ? readContent(*file, context_.tries.stop()) : std::nullopt;
    if (!reading || fmt::format("{:08x}", reading->checksum) != answer.file->checksum)
        return false;
    // Without the number of the version nothing could ever be given back of it.
    std::optional<StepFailure> failure;
    const auto version = versionOf(context_.account, *answer.file, context_.tries, failure);
    if (failure && failure->end == StepEnd::interrupted)
        return true;
    if (!version || version->version.empty())
        return false;
    const StoredContent content{.version = version->version,
                                .list = version->list,
                                .digest = reading->digest,
                                .checksum = reading->checksum,
                                .storedSize = reading->state.size,
                                .run = context_.run};
    if (!WebServiceBroker::isRestoringConfigured()) { // nor is anything known of versions then
        keep(job, *reading, content);
        return true;
    }
    const StoredVersion held{path, reading->state.size, content};
    const auto verdicts = askedAfter(context_.account, {&held, 1}, context_.tries, failure);
    if (!verdicts) {
        if (failure->end != StepEnd::interrupted)
            fail(job, path +
                          " is not stored: the service did not say whether what it holds of it "
                          "is whole. " +
                          failure->reason);
        return true;
    }
    using Kind = VersionVerdict::Kind;
    const Kind kind = verdicts->front().kind;
    if (kind == Kind::missing || kind == Kind::damaged)
        return false;
    keep(job, *reading, content);
    return true;
}

void FileJobs::put(FileJob& job, StoredContent content, Timestamp readBegan, bool changedWhileRead,
                   bool wasUploaded)
{
    StoredItem item;
    item.item = job.found.item;
    item.content = std::move(content);
    item.readBegan = readBegan;
    item.changedWhileRead = changedWhileRead;
    if (wasUploaded)
        index_.putStored(item);
    else
        index_.put(item);
}

void FileJobs::keep(FileJob& job, const ContentReading& reading, StoredContent content)
{
    describe(job.found, reading.state);
    // It may have been stored by a run that was killed before it could note that.
    put(job, std::move(content), reading.began, false, true);
    accounts_.done({.path = job.found.item.path,
                    .state = ItemState::unchanged,
                    .bytes = job.found.item.size,
                    .cause = {}});
}

FileUploader FileJobs::uploaderFor(const FileJob& job)
{
    const std::string& path = job.found.item.path;
    return {context_,
            {.path = path,
             .remoteFolder = remotePath(parentOf(path)),
             .remoteName = remotePath(nameOf(path)),
             .open = [&job](int& error) { return openAgain(job, error); },
             .isJournaled = !job.source}};
}

void FileJobs::upload(FileJob& job)
{
    using Kind = UploadOutcome::Kind;
    const UploadOutcome outcome = uploaderFor(job).upload();
    switch (outcome.kind) {
    case Kind::interrupted:
        return;
    case Kind::stored:
        putStored(job, outcome);
        return;
    case Kind::failed:
    case Kind::temporary:
    case Kind::refused:
    case Kind::vanished:
        break;
    }
    fail(job, outcome.sentence, outcome.kind == Kind::vanished);
}

void FileJobs::putStored(FileJob& job, const UploadOutcome& outcome)
{
    const std::string path = job.found.item.path;
    if (!job.source)
        describe(job.found, outcome.state);
    put(job, outcome.content, outcome.readBegan, outcome.changedWhileRead, true);
    accounts_.done(
        {.path = path,
         .state = ItemState::stored,
         .bytes = outcome.content.storedSize,
         .cause =
             outcome.changedWhileRead
                 ? path + " changed while it was read: what is stored may mix several states of it."
                 : std::string(),
         .changedWhileRead = outcome.changedWhileRead,
         .wasResumed = outcome.wasResumed});
}

void FileJobs::fail(const FileJob& job, const std::string& cause, bool isGone)
{
    const std::string& path = job.found.item.path;
    if (isGone)
        index_.vanish(path); // where it is now may not be stored yet
    else
        for (std::uint64_t kept = index_.keepAsStale(path); kept > 0; --kept)
            accounts_.carriedForward();
    if (!isGone && !isDryRun_)
        index_.noteMissed(path, cause);
    accounts_.done(
        {.path = path, .state = ItemState::failed, .bytes = job.found.item.size, .cause = cause});
}

} // namespace stowline::backup
