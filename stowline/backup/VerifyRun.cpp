#include "stowline/backup/VerifyRun.h"

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/restore/RunReader.h"
#include "stowline/backup/restore/VersionFinder.h"
#include "stowline/backup/transfer/VersionCheck.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>
#include <mutex>
#include <random>
#include <system_error>

namespace stowline::backup {

namespace {

std::string counted(std::uint64_t files)
{
    return platform::countText(files, "file", "files");
}

/// "1 is", "2 are"
std::string numbered(std::uint64_t files)
{
    return platform::countText(files, "is", "are");
}

constexpr std::size_t kCheckedAtATime = 500;

VerifyFinding::Kind findingKind(VersionVerdict::Kind kind)
{
    switch (kind) {
    case VersionVerdict::Kind::missing:
        return VerifyFinding::Kind::missing;
    case VersionVerdict::Kind::damaged:
        return VerifyFinding::Kind::damaged;
    default:
        return VerifyFinding::Kind::unknown;
    }
}

/// Why a file without content of its own, or the further name of a hard link, cannot come back.
std::optional<VerifyFinding> lackOf(const StoredItem& stored, const ItemIndex& items)
{
    using Kind = VerifyFinding::Kind;
    const ItemRecord& item = stored.item;
    const bool isFile = item.kind == ItemKind::file;
    const auto finding = [&item](Kind kind, const std::string& why) {
        return VerifyFinding{.kind = kind, .path = item.path, .sentence = item.path + ": " + why};
    };
    if (stored.sameFileAs.empty())
        return isFile ? std::optional(finding(Kind::missing, "no content of it is stored"))
                      : std::nullopt;
    const auto first = items.find(stored.sameFileAs);
    const std::string name = "it is recorded as a further name of " + stored.sameFileAs;
    if (!first)
        return finding(Kind::missing, name + ", which is not in the run");
    if (first->item.kind != item.kind || !first->sameFileAs.empty())
        return finding(Kind::damaged, name + ", which is not such an item");
    if (isFile && !first->content)
        return finding(Kind::missing, name + ", of which no content is stored");
    return std::nullopt;
}

class Verify {
public:
    Verify(const VerifyRequest& request, VerifyObserver& observer, const StopRequest& stop)
        : request_(request), observer_(observer), stop_(stop)
    {
    }

    VerifySummary run()
    {
        const auto failure = failureOf([this] { verify(); });
        if (stop_.isRequested()) {
            summary_.end = ReadEnd::interrupted;
            summary_.sentence = "It was interrupted.";
        } else if (failure) {
            summary_.end = failure->end;
            summary_.sentence = failure->sentence;
        } else {
            judge();
        }
        if (summary_.missing + summary_.damaged > 0 && request_.choice.stateFolder)
            noteDeletedVersions(*request_.choice.stateFolder, damaged_);
        return std::move(summary_);
    }

private:
    void verify()
    {
        RunReader reader(request_.choice, request_.bytesPerSecond, request_.partBytes, stop_);
        const OriginKeeper keeper(reader, summary_.origin);
        const RunReader::Tree tree = reader.readChosen();
        summary_.run = tree.head.run;
        reader.noteLeftOut(tree.head, tree.items, {"/"});
        versions_.emplace(request_.choice.account, reader.tries());
        std::vector<StoredVersion> batch;
        tree.items.forEach("/", [&](const StoredItem& stored) {
            files_ += stored.content || lackOf(stored, tree.items) ? 1 : 0;
            return true;
        });
        tree.items.forEach("/", [&](const StoredItem& stored) {
            if (stored.content) {
                batch.push_back({stored.item.path, stored.item.size, *stored.content});
            } else if (auto lack = lackOf(stored, tree.items)) {
                lack->firstRun = summary_.run;
                tell(std::move(*lack));
            }
            if (batch.size() == kCheckedAtATime) {
                check(reader, batch);
                batch.clear();
            }
            return !stop_.isRequested();
        });
        if (!batch.empty() && !stop_.isRequested())
            check(reader, batch);
        if (!stop_.isRequested())
            endKeepingBack(reader);
        if (summary_.missing > 0)
            reader.noteIfForgotten();
    }

    void check(RunReader& reader, std::vector<StoredVersion>& batch)
    {
        std::erase_if(batch, [this](StoredVersion& wanted) {
            return !canBeRead(wanted) || !completeVersion(wanted);
        });
        const std::vector<VersionVerdict> verdicts = askedFor(reader, batch);
        std::vector<const StoredVersion*> toRead;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            if (!verdicts[i].isWhole())
                tell({.kind = findingKind(verdicts[i].kind),
                      .path = batch[i].path,
                      .firstRun = batch[i].content.run,
                      .sentence = batch[i].path + ": " + verdicts[i].reason});
            else if (isChosen())
                toRead.push_back(&batch[i]);
            else
                passOver(batch[i]);
        }
        areSomeRead_ = areSomeRead_ || !toRead.empty();
        readAll(reader, toRead);
    }

    /// Of those that are not to be read one is kept back, each as likely, until one is read: a
    /// share of a few files is one of them at least.
    void passOver(const StoredVersion& wanted)
    {
        if (request_.fractionRead <= 0 || areSomeRead_)
            return pass(wanted, false);
        const bool takesPlace =
            std::uniform_int_distribution<std::uint64_t>(0, passedOver_++)(random_) == 0;
        if (!keptBack_) {
            keptBack_ = wanted;
        } else if (takesPlace) {
            pass(*keptBack_, false);
            keptBack_ = wanted;
        } else {
            pass(wanted, false);
        }
    }

    void endKeepingBack(RunReader& reader)
    {
        if (!keptBack_)
            return;
        if (areSomeRead_)
            pass(*keptBack_, false);
        else
            readAll(reader, {&*keptBack_});
    }

    /// @return false: its content is of a kind that this program does not know, which is told
    bool canBeRead(const StoredVersion& wanted)
    {
        if (wanted.content.kind == "plain")
            return true;
        tell({.kind = VerifyFinding::Kind::unknown,
              .path = wanted.path,
              .firstRun = wanted.content.run,
              .sentence = fmt::format("{}: its content is of the kind \"{}\", which this program "
                                      "cannot read",
                                      wanted.path, wanted.content.kind)});
        return false;
    }

    /// Asks for a version that was never told. @return false: there is none, which is told
    bool completeVersion(StoredVersion& wanted)
    {
        const auto found = versions_->versionFor(wanted.path, wanted.content);
        wanted.content.version = found.version;
        if (!found.version.empty())
            return true;
        using Kind = VerifyFinding::Kind;
        tell({.kind = found.failure ? Kind::unknown : Kind::missing,
              .path = wanted.path,
              .firstRun = wanted.content.run,
              .sentence = wanted.path + (found.failure ? ": the service does not say which version "
                                                         "it is"
                                                       : ": the service has no such version any "
                                                         "more")});
        return false;
    }

    std::vector<VersionVerdict> askedFor(RunReader& reader, const std::vector<StoredVersion>& batch)
    {
        std::optional<StepFailure> failure;
        auto verdicts = askedAfter(request_.choice.account, batch, reader.tries(), failure);
        if (!verdicts)
            throw RecordFault(failure->end == StepEnd::interrupted ? RecordFault::Kind::interrupted
                                                                   : RecordFault::Kind::temporary,
                              "The service cannot be asked about the versions: " + failure->reason);
        return *verdicts;
    }

    [[nodiscard]] bool isChosen()
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < request_.fractionRead;
    }

    void readAll(RunReader& reader, const std::vector<const StoredVersion*>& files)
    {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t at = next++; at < files.size() && !stop_.isRequested(); at = next++)
                readOne(reader.source(), *files[at]);
        };
        std::vector<std::future<void>> workers;
        for (std::size_t i = 1; i < std::min(request_.jobs, files.size()); ++i)
            try {
                workers.push_back(std::async(std::launch::async, work));
            } catch (
                const std::system_error&) { // no thread is to be had: then with those there are
                break;
            }
        work();
        for (auto& worker : workers)
            worker.get();
    }

    void readOne(ContentSource& source, const StoredVersion& wanted)
    {
        platform::Sha256 digest;
        const auto failure = source.read(
            wanted.content.version, 0, wanted.content.storedSize,
            [&digest](std::string_view bytes) {
                digest.update(bytes);
                return true;
            },
            wanted.content.digest);
        if (stop_.isRequested())
            return;
        VerifyFinding finding{.kind = VerifyFinding::Kind::unknown,
                              .path = wanted.path,
                              .firstRun = wanted.content.run};
        if (failure) {
            if (failure->kind == FetchFailure::Kind::missing)
                finding.kind = VerifyFinding::Kind::missing;
            if (failure->kind == FetchFailure::Kind::badContent) {
                finding.kind = VerifyFinding::Kind::damaged;
                noteBad(wanted);
            }
            finding.sentence = wanted.path + ": " + failure->reason;
        } else if (digest.hexadecimal() != wanted.content.digest) {
            finding.kind = VerifyFinding::Kind::damaged;
            finding.sentence = wanted.path + ": its bytes are not those that were stored";
            noteBad(wanted);
        } else {
            return pass(wanted, true);
        }
        tell(std::move(finding));
    }

    /// The next backup sends it again, whatever the service says of it.
    void noteBad(const StoredVersion& wanted)
    {
        const std::lock_guard lock(mutex_);
        damaged_.push_back(wanted.content.version);
    }

    void pass(const StoredVersion& wanted, bool wasRead)
    {
        const std::lock_guard lock(mutex_);
        ++summary_.checked;
        summary_.read += wasRead ? 1 : 0;
        summary_.bytes += wanted.content.storedSize;
        observer_.progress(summary_.checked, files_);
    }

    void tell(VerifyFinding finding)
    {
        const std::lock_guard lock(mutex_);
        finding.lastRun = summary_.run;
        if (finding.sentence.ends_with('.'))
            finding.sentence.pop_back();
        finding.sentence +=
            finding.firstRun == finding.lastRun
                ? fmt::format(" (of run {}).", finding.lastRun)
                : fmt::format(" (of the runs from {} to {}).", finding.firstRun, finding.lastRun);
        switch (finding.kind) {
        case VerifyFinding::Kind::missing:
            ++summary_.missing;
            break;
        case VerifyFinding::Kind::damaged:
            ++summary_.damaged;
            break;
        case VerifyFinding::Kind::unknown:
            ++summary_.unknown;
            break;
        }
        summary_.checked += finding.kind == VerifyFinding::Kind::unknown ? 0 : 1;
        observer_.found(finding);
        observer_.progress(summary_.checked, files_);
    }

    void judge()
    {
        const VerifySummary& sum = summary_;
        if (sum.checked + sum.unknown != files_) {
            summary_.end = ReadEnd::failed;
            summary_.sentence = fmt::format("Of {} only {} were checked.", counted(files_),
                                            sum.checked + sum.unknown);
        } else if (sum.missing + sum.damaged > 0) {
            summary_.end = ReadEnd::badContent;
            summary_.sentence = fmt::format("Of {} {} missing and {} damaged.", counted(files_),
                                            numbered(sum.missing), numbered(sum.damaged));
            if (sum.unknown > 0)
                summary_.sentence += " " + counted(sum.unknown) + " could not be checked.";
        } else if (sum.unknown > 0) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence = counted(sum.unknown) + " could not be checked.";
        } else {
            summary_.end = ReadEnd::done;
        }
    }

    const VerifyRequest& request_;
    VerifyObserver& observer_;
    const StopRequest& stop_;
    std::minstd_rand random_{std::random_device{}()};
    std::uint64_t files_ = 0;
    std::optional<VersionFinder> versions_;
    std::optional<StoredVersion> keptBack_; ///< not counted yet
    std::uint64_t passedOver_ = 0;
    bool areSomeRead_ = false;

    std::mutex mutex_; ///< of what follows
    VerifySummary summary_;
    std::vector<std::string> damaged_; ///< versions whose bytes were read
};

} // namespace

const char* nameOf(VerifyFinding::Kind kind)
{
    switch (kind) {
    case VerifyFinding::Kind::missing:
        return "missing";
    case VerifyFinding::Kind::damaged:
        return "damaged";
    case VerifyFinding::Kind::unknown:
        break;
    }
    return "unknown";
}

VerifySummary runVerify(const VerifyRequest& request, VerifyObserver& observer,
                        const StopRequest& stop) noexcept
{
    return summaryOf<VerifySummary>([&] { return Verify(request, observer, stop).run(); });
}

} // namespace stowline::backup
