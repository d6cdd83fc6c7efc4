#include "stowline/backup/restore/FilePlacer.h"

#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/files/DescriptorLimit.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>

namespace stowline::backup {

namespace {

constexpr std::string_view kGathering = ".stowline-restore-";
constexpr std::size_t kGatheringDigits = 16;
constexpr std::size_t kPiece = 1U << 20;
/// So many whole files wait for each other, or so many bytes.
constexpr std::size_t kMostWaiting = 128;
/// Of as many descriptors as this process may have, one may be such a file. It costs two.
constexpr std::size_t kDescriptorsForEach = 8;
constexpr std::uint64_t kMostWaitingBytes = 64U << 20;
/// Which are enough for as many files on their way and as many waiting as there may be.
constexpr std::size_t kManyDescriptors = 1024;
constexpr std::size_t kDescriptorsOfATask = 6;
constexpr std::size_t kMostDescriptorsKeptFree = 64;
/// What was gone on with, from the start, and once more.
constexpr int kMostFillings = 3;

std::string because(const std::string& path, const std::string& what, int error)
{
    return path + ": " + what + ": " + platform::systemErrorText(error) + ".";
}

constexpr std::uint32_t kOwnerWrites = 0200;
constexpr std::uint32_t kOthersWrite = 022;

/// Whether somebody else may hold a file open for writing who is not to have what it is to become.
bool mayHaveOtherWriters(const platform::TargetStatus& there, std::uint32_t wantedOwner)
{
    const bool isKnownOwner =
        there.owner == wantedOwner || there.owner == platform::ownUserNumber();
    return !isKnownOwner || (there.mode & kOthersWrite) != 0;
}

/// Whether a file is another user's that the superuser would give to somebody else: its old owner
/// may hold it open for writing.
bool isAnothers(const platform::TargetStatus& there, std::uint32_t wantedOwner)
{
    constexpr std::uint32_t superuser = 0;
    return platform::ownUserNumber() == superuser && there.owner != superuser &&
           there.owner != wantedOwner;
}

} // namespace

bool isLeftAlone(Overwrite rule, const ItemRecord& item, const platform::TargetStatus& there)
{
    const Timestamp modified{there.modifiedSeconds, there.modifiedNanoseconds};
    return rule == Overwrite::never || (rule == Overwrite::ifNewer && item.modified <= modified);
}

void takeOutcome(MetadataOutcome& outcome, RestoredItem& report)
{
    std::ranges::move(outcome.losses, std::back_inserter(report.losses));
    if (outcome.fault.empty())
        return;
    report.state = RestoredState::failed;
    report.faults.push_back(std::move(outcome.fault));
}

std::string gatheringName(const std::string& name, const std::string& digest, unsigned attempt)
{
    const std::string more = attempt == 0 ? "" : '\0' + std::to_string(attempt);
    const std::string mark = platform::Sha256::of(name + '\0' + digest + more);
    return std::string(kGathering) + mark.substr(0, kGatheringDigits);
}

bool isGatheringName(std::string_view name)
{
    return name.size() == kGathering.size() + kGatheringDigits && name.starts_with(kGathering) &&
           name.find_first_not_of("0123456789abcdef", kGathering.size()) == std::string_view::npos;
}

void removeLeftGathering(const platform::TargetFolder& folder, const std::string& name)
{
    int error = 0;
    const auto file = folder.openFile(name, error);
    const auto status = file ? file->status() : std::nullopt;
    if (status && status->owner == platform::ownUserNumber() && file->lock())
        (void)folder.remove(name);
}

std::string mistakenSentence(const std::string& path, const std::string& other)
{
    return path + ": the target does not distinguish its name from that of " + other + ".";
}

std::string anothersFolderSentence(const std::string& path)
{
    return path + ": another folder has taken the place of its folder since the restore came to "
                  "it, and is left alone.";
}

void FilePlacer::place(const FileTask& task)
{
    RestoredItem report{.path = task.stored.item.path,
                        .kind = ItemKind::file,
                        .bytes = task.stored.content->storedSize};
    awaitDescriptors();
    int error = 0;
    auto folder = context_.openFolder(task.folder, error);
    if (!folder && context_.request.isDryRun) {
        report.state = RestoredState::wouldRestore;
        context_.done(std::move(report));
        return;
    }
    if (!folder) {
        report.faults.push_back(error == ESTALE
                                    ? anothersFolderSentence(report.path)
                                    : because(report.path, "its folder cannot be opened", error));
        context_.done(std::move(report));
        return;
    }
    if (settleExisting(task, *folder, report)) {
        context_.done(std::move(report));
        return;
    }
    if (context_.request.isDryRun) {
        report.state = RestoredState::wouldRestore;
        context_.done(std::move(report));
        return;
    }
    gather(task, std::make_shared<platform::TargetFolder>(std::move(*folder)), std::move(report));
}

/// Decides about what stands in the file's place. @return whether that is all there is to do
bool FilePlacer::settleExisting(const FileTask& task, const platform::TargetFolder& folder,
                                RestoredItem& report)
{
    int error = 0;
    const auto existing = folder.find(task.name, error);
    if (!existing) {
        if (error == ENOENT)
            return false;
        report.faults.push_back(because(report.path, "what stands there cannot be seen", error));
        return true;
    }
    const ItemRecord& item = task.stored.item;
    const std::string other = task.hasStood ? "" : context_.mistakenFor(folder, item.path);
    if (!other.empty()) {
        report.faults.push_back(mistakenSentence(item.path, other));
        return true;
    }
    const Overwrite rule = context_.request.overwrite;
    if (isLeftAlone(rule, item, *existing)) {
        const auto same = itemOfSameContent(task.stored, folder, task.name, Use::look);
        const bool isUnchanged = same && !isMetadataOther(*same, item, context_.owners);
        report.isMetadataOnly = same.has_value();
        report.state = isUnchanged ? RestoredState::unchanged : RestoredState::skipped;
        return true;
    }
    if (existing->kind == platform::TargetKind::folder) {
        report.faults.push_back(report.path +
                                ": a folder stands in its place. Please move the folder away.");
        return true;
    }
    const auto same = rule == Overwrite::always
                          ? std::nullopt
                          : itemOfSameContent(task.stored, folder, task.name, Use::putMetadata);
    if (!same) {
        // What stands there may be what the run could not look at.
        if (task.stored.isStale && rule == Overwrite::ifChanged && !context_.stop.isRequested()) {
            report.state = RestoredState::skipped;
            report.faults.push_back(report.path +
                                    ": the run could not look at it, and what stands there is not "
                                    "what an earlier one saw. It is left as it is; \"--overwrite "
                                    "always\" puts the earlier one there.");
            return true;
        }
        return context_.stop.isRequested();
    }
    report.isMetadataOnly = true;
    if (context_.request.isDryRun) {
        report.state = isMetadataOther(*same, item, context_.owners) ? RestoredState::wouldRestore
                                                                     : RestoredState::unchanged;
        report.bytes = 0;
        return true;
    }
    MetadataOutcome outcome = putMetadata(*same, item, context_.owners);
    report.losses = task.losses;
    report.state = outcome.hasChanged ? RestoredState::restored : RestoredState::unchanged;
    takeOutcome(outcome, report);
    removeLeftGathering(folder, task.temporary);
    context_.gathered(static_cast<std::int64_t>(report.bytes));
    report.bytes = 0; // no content was put there
    return true;
}

/// The file under a name when it has the content of the run; to put metadata on it, when it may
/// become that of the run by its metadata alone.
std::optional<platform::TargetItem>
FilePlacer::itemOfSameContent(const StoredItem& stored, const platform::TargetFolder& folder,
                              const std::string& name, Use use) const
{
    int error = 0;
    const auto file = platform::openedPatiently([&] { return folder.openFile(name, error); }, error,
                                                context_.stop);
    const auto there = file ? file->status() : std::nullopt;
    // A file with further names may have them outside: its metadata is not touched.
    if (!there || there->size != stored.content->storedSize ||
        (use == Use::putMetadata && there->links != 1 && stored.item.links <= 1))
        return std::nullopt;
    auto item = file->item(error);
    const std::uint32_t owner = context_.owners.owner(stored.item);
    const bool isPrivilegedFor = hasPrivileges(stored.item) && mayHaveOtherWriters(*there, owner);
    if (item && use == Use::putMetadata && (isPrivilegedFor || isAnothers(*there, owner)) &&
        isMetadataOther(*item, stored.item, context_.owners))
        return std::nullopt;
    platform::Sha256 digest;
    std::string room(kPiece, '\0');
    for (std::uint64_t at = 0;;) {
        const auto count = file->readAt(at, room);
        if (!count || context_.stop.isRequested())
            return std::nullopt;
        if (*count == 0)
            break;
        digest.update({room.data(), *count});
        at += *count;
    }
    return digest.hexadecimal() == stored.content->digest ? std::move(item) : std::nullopt;
}

std::optional<platform::TargetFile> FilePlacer::openGathering(const platform::TargetFolder& folder,
                                                              const std::string& temporary,
                                                              RestoredItem& report) const
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        int error = 0;
        auto file = platform::openedPatiently(
            [&] { return folder.openOrMakeFile(temporary, error); }, error, context_.stop);
        if (file && !file->lock()) {
            report.faults.push_back(report.path + ": another restore is putting it back.");
            return std::nullopt;
        }
        const auto status = file ? file->status() : std::nullopt;
        // What another user holds a descriptor of could change after it was checked.
        if (status && status->owner == platform::ownUserNumber())
            return file;
        if (attempt == 1 || (!file && error != EEXIST && error != ELOOP && error != EACCES)) {
            report.faults.push_back(because(report.path, "it cannot be written", error));
            return std::nullopt;
        }
        (void)folder.remove(temporary);
    }
    return std::nullopt;
}

void FilePlacer::gather(const FileTask& task, std::shared_ptr<platform::TargetFolder> folder,
                        RestoredItem report)
{
    const std::string& temporary = task.temporary;
    report.losses = task.losses;
    auto file = openGathering(*folder, temporary, report);
    int error = 0;
    const auto item =
        file ? platform::openedPatiently([&] { return file->item(error); }, error, context_.stop)
             : std::nullopt;
    if (!item) {
        if (file)
            report.faults.push_back(because(report.path, "it cannot be written", error));
        context_.done(std::move(report));
        return;
    }
    // Whoever finds it knows by that what it is. Some file systems keep no attributes.
    (void)item->setAttribute(kGatheringMark, "1");
    bool isKept = false;
    if (!fill(task, *file, report, isKept)) {
        if (!isKept)
            removeIfStill(*folder, *item, temporary);
        context_.done(std::move(report));
        return;
    }
    // Of a file that it may not write, its owner could not take the mark away later.
    const bool keepsMark = (task.stored.item.mode & kOwnerWrites) != 0;
    MetadataOutcome outcome = putMetadata(*item, task.stored.item, context_.owners,
                                          {.keepsMark = keepsMark, .withholdsPrivileges = true});
    auto privileged = hasPrivileges(task.stored.item)
                          ? std::make_unique<const ItemRecord>(task.stored.item)
                          : nullptr;
    if (!privileged) // else once it has its name, when everything is told
        takeOutcome(outcome, report);
    enqueue({std::move(folder), std::move(*file), temporary, task.name, task.hasStood,
             std::move(privileged), std::move(report)});
}

/// Fills a file until its digest is right. @param isKept whether another restore may go on with it
bool FilePlacer::fill(const FileTask& task, const platform::TargetFile& file, RestoredItem& report,
                      bool& isKept)
{
    if (task.stored.content->kind != "plain") {
        report.faults.push_back(report.path + ": its content is of the kind \"" +
                                task.stored.content->kind + "\", which this program cannot read.");
        return false;
    }
    const std::string version = versionFor(task, report, isKept);
    if (version.empty())
        return false;
    const auto status = file.status();
    std::uint64_t from = status ? status->size : 0;
    if (from > task.stored.content->storedSize)
        from = 0;
    for (int filling = 0; filling < kMostFillings; ++filling) {
        bool isDigestWrong = false;
        if (fillOnce(task, version, file, from, report, isKept, isDigestWrong))
            return true;
        if (!isDigestWrong)
            return false;
        from = 0;
    }
    report.isBadContent = true;
    report.badVersion = version;
    report.faults.push_back(report.path + ": its content is not what was stored.");
    return false;
}

/// @return empty when there is none; the report says why
std::string FilePlacer::versionFor(const FileTask& task, RestoredItem& report, bool& isKept)
{
    VersionFinder::Answer answer = context_.versions.versionFor(report.path, *task.stored.content);
    if (answer.failure) {
        isKept = answer.failure->end == StepEnd::temporary ||
                 answer.failure->end == StepEnd::interrupted;
        report.isTemporary = answer.failure->end == StepEnd::temporary;
        report.faults.push_back(report.path + ": the service does not say which version it is. " +
                                answer.failure->reason);
    } else if (answer.version.empty()) {
        report.isBadContent = true;
        report.faults.push_back(report.path + ": the service has no such version any more.");
    }
    return answer.version;
}

bool FilePlacer::fillOnce(const FileTask& task, const std::string& version,
                          const platform::TargetFile& file, std::uint64_t from,
                          RestoredItem& report, bool& isKept, bool& isDigestWrong)
{
    const StoredContent& content = *task.stored.content;
    platform::Sha256 digest;
    std::string room(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, from)), '\0');
    std::uint64_t at = 0;
    while (at < from) {
        const auto count = file.readAt(at, room);
        if (!count || *count == 0)
            break;
        const std::size_t used =
            static_cast<std::size_t>(std::min<std::uint64_t>(*count, from - at));
        digest.update({room.data(), used});
        at += used;
    }
    if (at < from) { // cannot be read: from the start
        digest = platform::Sha256();
        at = 0;
    }
    int writeError = file.truncate(at);
    std::int64_t counted = static_cast<std::int64_t>(at);
    context_.gathered(counted);
    std::optional<FetchFailure> failure;
    if (writeError == 0)
        failure = context_.source.read(
            version, at, content.storedSize,
            [&](std::string_view bytes) {
                digest.update(bytes);
                writeError = file.writeAt(at, bytes);
                at += bytes.size();
                counted += static_cast<std::int64_t>(bytes.size());
                context_.gathered(static_cast<std::int64_t>(bytes.size()));
                return writeError == 0;
            },
            content.digest);
    if (writeError == 0 && !failure) {
        if (digest.hexadecimal() == content.digest)
            return true;
        isDigestWrong = true;
    } else if (writeError != 0) {
        report.faults.push_back(because(report.path, "it cannot be written", writeError));
    } else {
        isKept = failure->kind == FetchFailure::Kind::temporary ||
                 failure->kind == FetchFailure::Kind::interrupted;
        report.isBadContent = failure->isLoss();
        report.badVersion = failure->kind == FetchFailure::Kind::badContent ? version : "";
        report.isTemporary = failure->kind == FetchFailure::Kind::temporary;
        report.faults.push_back(report.path + ": " + failure->reason);
    }
    context_.gathered(-counted);
    return false;
}

FilePlacer::FilePlacer(const PlacingContext& context)
    : context_(context),
      mostWaiting_(platform::descriptorLimit(kMostWaiting * kDescriptorsForEach) /
                   kDescriptorsForEach),
      areDescriptorsFew_(platform::descriptorLimit(kManyDescriptors) < kManyDescriptors)
{
}

void FilePlacer::awaitDescriptors()
{
    if (!areDescriptorsFew_)
        return;
    constexpr std::chrono::milliseconds between{20};
    constexpr int mostLooks = 250;
    const std::size_t few = std::min(kDescriptorsOfATask * (context_.request.jobs + 1),
                                     platform::descriptorLimit(kMostDescriptorsKeptFree * 3) / 3);
    for (int look = 0; look < mostLooks && !platform::areDescriptorsFree(few); ++look) {
        finish();
        if (platform::areDescriptorsFree(few) || context_.stop.waitFor(between))
            return;
    }
}

void FilePlacer::enqueue(Gathered gathered)
{
    std::vector<Gathered> batch;
    {
        const std::lock_guard lock(mutex_);
        waitingBytes_ += gathered.report.bytes;
        waiting_.push_back(std::move(gathered));
        if (waiting_.size() < mostWaiting_ && waitingBytes_ < kMostWaitingBytes)
            return;
        batch.swap(waiting_);
        waitingBytes_ = 0;
    }
    giveNames(std::move(batch));
}

void FilePlacer::finish()
{
    std::vector<Gathered> batch;
    {
        const std::lock_guard lock(mutex_);
        batch.swap(waiting_);
        waitingBytes_ = 0;
    }
    giveNames(std::move(batch));
}

GivenName FilePlacer::nameGathered(const Gathered& gathered, const platform::TargetItem& item)
{
    const platform::TargetFolder& folder = *gathered.folder;
    if (gathered.hasStood)
        return giveName(folder, item, gathered.temporary, gathered.name, false);
    const std::lock_guard lock(naming_);
    const GivenName given = giveName(folder, item, gathered.temporary, gathered.name, true);
    // What somebody has put there meanwhile is replaced as if it had stood there.
    if (given.error == EEXIST && context_.mistakenFor(folder, gathered.report.path).empty())
        return giveName(folder, item, gathered.temporary, gathered.name, false);
    return given;
}

/// Gives a durable file its name, and then what nothing else may ever get: set-id bits.
void FilePlacer::finishGathered(Gathered& gathered)
{
    RestoredItem& report = gathered.report;
    int error = 0;
    const auto item =
        platform::openedPatiently([&] { return gathered.file.item(error); }, error, context_.stop);
    if (!item) {
        report.faults.push_back(because(report.path, "it cannot be put in its place", error));
        return;
    }
    (void)item->removeAttribute(kGatheringMark);
    const GivenName given = nameGathered(gathered, *item);
    if (given.isGiven()) {
        if (report.faults.empty())
            report.state = RestoredState::restored;
        if (gathered.privileged) {
            MetadataOutcome outcome = putMetadata(*item, *gathered.privileged, context_.owners);
            takeOutcome(outcome, report);
        }
        return;
    }
    const std::string other =
        given.error == EEXIST ? context_.mistakenFor(*gathered.folder, report.path) : "";
    report.faults.push_back(
        given.isAnothers ? anothersSentence(report.path)
        : !other.empty() ? mistakenSentence(report.path, other)
                         : because(report.path, "it cannot be put in its place", given.error));
    removeIfStill(*gathered.folder, *item, gathered.temporary);
}

/// What the disk may not hold gets no name.
void FilePlacer::leaveUnsafe(Gathered& gathered, int error)
{
    RestoredItem& report = gathered.report;
    report.faults.push_back(because(report.path, "it cannot be put in its place", error));
    if (const auto item = gathered.file.item(error))
        removeIfStill(*gathered.folder, *item, gathered.temporary);
}

void FilePlacer::giveNames(std::vector<Gathered> batch)
{
    if (batch.empty())
        return;
    // One request for all of them. Below the target there may be other file systems: those files
    // are asked for one by one.
    const auto rootDevice = context_.root.status();
    const int syncError = context_.root.synchronizeFileSystem();
    for (Gathered& gathered : batch) {
        int error = syncError;
        const auto status = gathered.file.status();
        if (!rootDevice || !status || status->device != rootDevice->device)
            error = gathered.file.synchronize();
        if (error == 0)
            finishGathered(gathered);
        else
            leaveUnsafe(gathered, error);
        context_.done(std::move(gathered.report));
    }
}

} // namespace stowline::backup
