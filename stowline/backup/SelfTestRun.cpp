#include "stowline/backup/SelfTestRun.h"

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RestoreRun.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/index/Comparison.h"
#include "stowline/backup/proof/ProofReading.h"
#include "stowline/backup/proof/TestFolder.h"
#include "stowline/backup/restore/RunReader.h"
#include "stowline/backup/restore/VersionFinder.h"
#include "stowline/backup/transfer/VersionCheck.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <set>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;
using Kind = SelfTestFinding::Kind;

constexpr std::int64_t kProvenSeconds = std::int64_t{30} * 86400;
constexpr std::size_t kPiece = 1U << 20;
/// What is restored at once: so much of it is on the disk, and known of in memory.
constexpr std::size_t kContentsAtOnce = 20000;
constexpr std::uint64_t kBytesAtOnce = 1U << 30;

/// What a restore told of the sample's items, by path.
class Restored : public RestoreObserver {
public:
    void itemFound(const StoredItem& stored) override
    {
        if (stored.content)
            found.emplace(stored.item.path, stored);
    }
    void itemDone(const RestoredItem& item) override { done.emplace(item.path, item); }

    std::map<std::string, StoredItem> found;
    std::map<std::string, RestoredItem> done;
};

/// SHA-256 of what a function reads. @return absent when it cannot be read to its end
std::optional<std::string>
digestOf(const std::function<std::optional<std::size_t>(std::uint64_t, std::span<char>)>& readAt,
         const StopRequest& stop)
{
    platform::Sha256 digest;
    std::string room(kPiece, '\0');
    for (std::uint64_t at = 0;;) {
        const auto count = stop.isRequested() ? std::nullopt : readAt(at, room);
        if (!count)
            return std::nullopt;
        if (*count == 0)
            return digest.hexadecimal();
        digest.update({room.data(), *count});
        at += *count;
    }
}

class SelfTest {
public:
    SelfTest(const SelfTestRequest& request, SelfTestObserver& observer, const StopRequest& stop)
        : request_(request), observer_(observer), stop_(stop)
    {
    }

    SelfTestSummary run()
    {
        const auto failure = failureOf([this] { test(); });
        if (summary_.missing + summary_.damaged > 0 && request_.choice.stateFolder)
            noteDeletedVersions(*request_.choice.stateFolder, damagedVersions_);
        judge(failure ? failure : failure_);
        return std::move(summary_);
    }

private:
    struct Item {
        ProofCandidate content;
        std::optional<ProofBook::Outcome> outcome; ///< absent: its turn is still to come
    };

    [[nodiscard]] std::int64_t now() const
    {
        if (request_.now)
            return request_.now();
        return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())
            .time_since_epoch()
            .count();
    }

    void test()
    {
        if (!request_.choice.stateFolder || !request_.choice.identity)
            throw RecordFault(RecordFault::Kind::failed,
                              "A self-test needs the state folder of the backups.");
        const fs::path& state = *request_.choice.stateFolder;
        if (const auto refused = refusedStateFolder(state))
            throw RecordFault(RecordFault::Kind::failed, *refused);
        std::string fault;
        auto folder = TestFolder::take(profileFolder(state, request_.choice.identity->profile),
                                       request_.folders, fault);
        if (!folder)
            throw RecordFault(RecordFault::Kind::failed, fault);
        RunReader reader(request_.choice, request_.bytesPerSecond, request_.partBytes, stop_);
        RecordChain chain = reader.openChain();
        reader.requireNothingOlder(chain, false);
        if (chain.newestFinished() == 0)
            throw RecordFault(RecordFault::Kind::notFound,
                              "No run has been finished yet, so there is nothing to test.");
        const UploadOwner owner =
            uploadOwner(request_.choice.account,
                        parseChainName(chain.name()).value_or(*request_.choice.identity));
        const fs::path file = proofFile(state, owner);
        (void)platform::makePrivateFolder(file.parent_path()); // else opening it says so
        ProofBook book = ProofBook::open(file, indexOwner(owner), now());
        const auto failure = failureOf([&] {
            const auto damaged = [this](std::uint64_t run, const std::string& why) {
                tell({.kind = Kind::damaged, .run = run, .sentence = why});
            };
            source_.emplace(ProofSource{.chain = chain,
                                        .listedAnew = [&reader] { return reader.openChain(); },
                                        .now = now(),
                                        .stop = stop_});
            readNewRuns(book, *source_, damaged);
            testSample(book, *folder, reader);
        });
        if (failure)
            failure_ = failure;
        tellProof(book); // what was lost before is no less lost when this one ends early
    }

    void testSample(ProofBook& book, TestFolder& folder, RunReader& reader)
    {
        const std::uint64_t room = folder.room();
        const auto choice = book.choose(request_.share, request_.mostBytes, room);
        if (choice.contents == 0 && choice.withoutRoom > 0)
            throw RecordFault(RecordFault::Kind::failed, noRoom(choice.leastRoom, room));
        if (choice.withoutRoom > 0)
            observer_.note(fmt::format(
                "{} larger than the {} bytes available to restore into, and cannot be tested.",
                platform::countText(choice.withoutRoom, "stored file is", "stored files are"),
                room));
        summary_.proof.noRoomFiles = choice.withoutRoom;
        summary_.chosen = choice.contents;
        while (!stop_.isRequested() && !failure_) {
            std::vector<Item> portion;
            for (ProofCandidate& content : book.nextChosen(kContentsAtOnce, kBytesAtOnce))
                portion.push_back({.content = std::move(content), .outcome = std::nullopt});
            if (portion.empty())
                break;
            testPortion(book, folder, reader, std::move(portion));
        }
        std::ranges::sort(summary_.runs);
        summary_.runs.erase(std::unique(summary_.runs.begin(), summary_.runs.end()),
                            summary_.runs.end());
    }

    /// Run by run.
    void testPortion(ProofBook& book, TestFolder& folder, RunReader& reader, std::vector<Item> left)
    {
        while (!left.empty() && !stop_.isRequested() && !failure_) {
            const std::uint64_t run = book.runToReadFor(left.front().content);
            if (run == 0) { // only runs that cannot be read hold it
                const Item& item = left.front();
                untested(item.content.path, item.content.lastRun,
                         item.content.path + ": no run that holds it can be read.");
                book.settle(std::array{ProofBook::Settlement{item.content.key}}, now());
                left.erase(left.begin());
                continue;
            }
            std::vector<Item> group;
            std::vector<Item> rest;
            for (Item& item : left) {
                const bool isInRun = item.content.firstRun <= run && run <= item.content.lastRun;
                (isInRun ? group : rest).push_back(std::move(item));
            }
            left = std::move(rest);
            if (!testGroup(book, folder, reader, run, group)) // again, from other runs
                left.insert(left.end(), group.begin(), group.end());
        }
    }

    static std::string noRoom(std::uint64_t bytes, std::uint64_t room)
    {
        return fmt::format(
            "There is not enough space to restore into: {} bytes are needed, {} are available.",
            bytes, room);
    }

    /// Restores contents from one run, and compares them.
    /// @return false when the run turned out to be damaged
    bool testGroup(ProofBook& book, TestFolder& folder, RunReader& reader, std::uint64_t run,
                   std::vector<Item>& group)
    {
        std::uint64_t bytes = 0;
        std::set<std::string> paths;
        for (const Item& item : group) {
            bytes += item.content.size;
            paths.insert(item.content.path);
        }
        std::string fault;
        const fs::path place = folder.make(bytes, fault);
        if (place.empty())
            throw RecordFault(RecordFault::Kind::failed, fault);
        RestoreRequest request{.choice = request_.choice,
                               .paths = {"/"},
                               .target = place / "tree",
                               .onlyPaths = std::move(paths),
                               .jobs = request_.jobs,
                               .bytesPerSecond = request_.bytesPerSecond,
                               .partBytes = request_.partBytes};
        request.choice.run = run;
        request.choice.at.reset();
        Restored restored;
        const RestoreSummary sum = runRestore(request, restored, stop_);
        if (sum.found == 0 && stop_.isRequested())
            return true;
        const bool isUnreadable = sum.found == 0 && sum.run != run &&
                                  (sum.end == ReadEnd::badContent || sum.end == ReadEnd::notFound);
        if (isUnreadable && !isStillKept(*source_, run)) {
            giveUp(group);
            return true;
        }
        if (isUnreadable) {
            book.noteDamaged(run);
            tell({.kind = Kind::damaged, .run = run, .sentence = sum.sentence});
            return false;
        }
        const bool isRead = sum.run == run;
        if (sum.found == 0 && !isRead) {
            failure_ = ReadFailure{sum.end, sum.sentence};
            summary_.untested += group.size();
            return true;
        }
        summary_.runs.push_back(run);
        book.noteRead(run, now());
        isRunKept_.reset();
        folder.loosen();
        for (Item& item : group)
            compareItem(item, run, place / "tree", restored, reader);
        std::vector<ProofBook::Settlement> settlements;
        for (const Item& item : group) {
            if (item.outcome)
                settlements.push_back({item.content.key, *item.outcome});
        }
        book.settle(settlements, now());
        folder.clear();
        return true;
    }

    /// Of a run that another machine has forgotten meanwhile: the next self-test knows.
    void giveUp(const std::vector<Item>& group) { summary_.chosen -= group.size(); }

    /// What was found before a stop counts; what the service could not be asked for, or a stop left
    /// out, is not settled: the next self-test begins with it.
    void compareItem(Item& item, std::uint64_t run, const fs::path& tree, const Restored& restored,
                     RunReader& reader)
    {
        const std::string& path = item.content.path;
        const auto stored = restored.found.find(path);
        const auto done = restored.done.find(path);
        const bool isKnown = stored != restored.found.end() && done != restored.done.end() &&
                             proofKey(path, *stored->second.content) == item.content.key;
        if (isKnown && done->second.isBadContent)
            return lose(item, run, stored->second, done->second, reader);
        if (stop_.isRequested())
            return;
        if (!isKnown || !done->second.isTemporary)
            item.outcome = ProofBook::Outcome::passed;
        if (!isKnown || done->second.state != RestoredState::restored)
            return untested(path, run,
                            isKnown && !done->second.faults.empty() ? done->second.faults.front()
                                                                    : path + " was not restored.");
        const auto digest = restoredDigest(tree, path);
        if (stop_.isRequested()) {
            item.outcome.reset();
            return;
        }
        if (!digest)
            return untested(path, run, path + ": what was restored of it cannot be read.");
        if (*digest != stored->second.content->digest) // it was right when it was put there
            return untested(path, run, path + ": what was restored of it did not stay as it came.");
        item.outcome = ProofBook::Outcome::proven;
        ++summary_.tested;
        summary_.bytes += stored->second.content->storedSize;
        compareLive(stored->second, run);
        observer_.progress(summary_.tested, summary_.chosen);
    }

    [[nodiscard]] std::optional<std::string> restoredDigest(const fs::path& tree,
                                                            const std::string& path) const
    {
        int error = 0;
        const auto root = platform::TargetFolder::open(tree, false, error);
        const auto folder =
            root ? root->below(std::string(parentOf(path)).erase(0, 1), error) : std::nullopt;
        const auto file =
            folder ? folder->openFile(std::string(nameOf(path)), error) : std::nullopt;
        if (!file)
            return std::nullopt;
        return digestOf(
            [&](std::uint64_t at, std::span<char> room) { return file->readAt(at, room); }, stop_);
    }

    /// The live file, where nothing shows that it changed since the run read it.
    void compareLive(const StoredItem& stored, std::uint64_t run)
    {
        int error = 0;
        const auto file =
            platform::SourceFile::open(platform::SourceFile::kNoFolder, stored.item.path, error);
        const auto before = file ? file->state() : std::nullopt;
        if (!before)
            return;
        ItemRecord now = stored.item;
        now.kind = ItemKind::file;
        now.size = before->size;
        now.modified = {before->modified.seconds, before->modified.nanoseconds};
        now.changed = {before->changed.seconds, before->changed.nanoseconds};
        now.inode = before->inode;
        const ComparisonOptions options{.ignoresChangeTime = request_.ignoresCtime,
                                        .ignoresInode = request_.ignoresInode};
        if (compare(&stored, now, "", options).verdict == Verdict::read)
            return;
        const auto digest = digestOf(
            [&](std::uint64_t at, std::span<char> room) { return file->readAt(at, room, error); },
            stop_);
        if (!digest || file->state() != before) // it cannot be read, or changes just now
            return;
        ++summary_.compared;
        if (*digest == stored.content->digest)
            return;
        tell({.kind = Kind::differs,
              .path = stored.item.path,
              .run = run,
              .sentence = stored.item.path +
                          ": the file on this machine has other bytes than were stored, though "
                          "nothing shows that it was changed. A backup with --trust-nothing reads "
                          "it again; an earlier run may hold what it should be."});
    }

    /// What did not come back as it was stored: gone, or others' bytes?
    void lose(Item& item, std::uint64_t run, const StoredItem& stored, const RestoredItem& report,
              RunReader& reader)
    {
        if (!stop_.isRequested()) {
            // Asked once a group: a service that lost much would be asked as often.
            if (!isRunKept_)
                isRunKept_ = isStillKept(*source_, run);
            if (!*isRunKept_)
                return giveUp({item});
        }
        item.outcome = ProofBook::Outcome::lost;
        VersionFinder versions(request_.choice.account, reader.tries());
        StoredVersion version{stored.item.path, stored.item.size, *stored.content};
        version.content.version = versions.versionFor(version.path, version.content).version;
        bool isMissing = version.content.version.empty();
        if (!isMissing) {
            std::optional<StepFailure> unknown;
            const auto verdicts = askedAfter(request_.choice.account, std::span(&version, 1),
                                             reader.tries(), unknown);
            isMissing = verdicts && verdicts->front().kind == VersionVerdict::Kind::missing;
        }
        if (!isMissing)
            damagedVersions_.push_back(version.content.version);
        tell({.kind = isMissing ? Kind::missing : Kind::damaged,
              .path = stored.item.path,
              .run = run,
              .sentence = report.faults.empty()
                              ? stored.item.path + ": its content is not what was stored."
                              : report.faults.front()});
    }

    void untested(const std::string& path, std::uint64_t run, const std::string& sentence)
    {
        tell({.kind = Kind::untested, .path = path, .run = run, .sentence = sentence});
    }

    void tell(SelfTestFinding finding)
    {
        switch (finding.kind) {
        case Kind::missing:
            ++summary_.missing;
            break;
        case Kind::damaged:
            ++summary_.damaged;
            break;
        case Kind::differs:
            ++summary_.differing;
            break;
        case Kind::untested:
            ++summary_.untested;
            break;
        }
        if (finding.sentence.ends_with('.'))
            finding.sentence.pop_back();
        finding.sentence += fmt::format(" (of run {}).", finding.run);
        observer_.found(finding);
    }

    void tellProof(const ProofBook& book)
    {
        const auto totals = book.totals(now() - kProvenSeconds, request_.mostBytes);
        summary_.proof = {.files = totals.files,
                          .bytes = totals.bytes,
                          .provenFiles = totals.provenFiles,
                          .provenBytes = totals.provenBytes,
                          .lostFiles = totals.lostFiles,
                          .tooLargeFiles = totals.tooLargeFiles,
                          .noRoomFiles = summary_.proof.noRoomFiles,
                          .damagedRuns = totals.damagedRuns,
                          .newestLostFiles = totals.newestLostFiles,
                          .isNewestDamaged = totals.isNewestDamaged};
    }

    void judge(const std::optional<ReadFailure>& failure)
    {
        const SelfTestSummary& sum = summary_;
        const auto end = [this](ReadEnd how, std::string sentence) {
            summary_.end = how;
            summary_.sentence = std::move(sentence);
        };
        const auto files = [](std::uint64_t count) {
            return platform::countText(count, "file", "files");
        };
        if (sum.missing + sum.damaged > 0)
            end(ReadEnd::badContent,
                fmt::format("The self-test found {} missing and {} damaged{}.", files(sum.missing),
                            sum.damaged, stop_.isRequested() ? ", then was interrupted" : ""));
        else if (stop_.isRequested())
            end(ReadEnd::interrupted, "The self-test was interrupted.");
        else if (failure)
            end(failure->end, "The self-test could not be done: " + failure->sentence);
        else if (sum.differing > 0)
            end(ReadEnd::someFailed,
                fmt::format("The self-test found {} on this machine to differ from what is stored.",
                            files(sum.differing)));
        else if (sum.untested > 0)
            end(ReadEnd::someFailed,
                fmt::format("The self-test could not test {}.", files(sum.untested)));
        else if (sum.chosen == 0 && sum.proof.files > 0)
            end(ReadEnd::someFailed, "The self-test tested nothing: each file that is stored is "
                                     "larger than it may fetch.");
        else
            end(ReadEnd::done, "");
        if (summary_.end != ReadEnd::badContent && sum.proof.lostFiles + sum.proof.damagedRuns > 0)
            tellKnownLoss();
    }

    /// What an earlier self-test found to be lost is lost still, whatever this one found.
    void tellKnownLoss()
    {
        if (summary_.end == ReadEnd::done && summary_.isLossKnown())
            summary_.end = ReadEnd::someFailed;
        const ProofState& proof = summary_.proof;
        std::string what = platform::countText(proof.lostFiles, "file", "files");
        if (proof.damagedRuns > 0)
            what = (proof.lostFiles > 0 ? what + " and " : "") +
                   platform::countText(proof.damagedRuns, "run's record", "runs' records");
        summary_.sentence += fmt::format(
            "{}Earlier self-tests found {} to be missing or damaged, and none has "
            "proven otherwise since{}.",
            summary_.sentence.empty() ? "" : " ", what,
            summary_.isLossKnown() ? "" : "; only earlier runs than the newest hold it");
    }

    const SelfTestRequest& request_;
    SelfTestObserver& observer_;
    const StopRequest& stop_;
    SelfTestSummary summary_;
    std::optional<ReadFailure> failure_; ///< of a whole run that could not be read
    std::vector<std::string> damagedVersions_;
    std::optional<ProofSource> source_; ///< as long as the sample is tested
    std::optional<bool> isRunKept_;     ///< the run that is read; absent: not asked yet
};

} // namespace

const char* nameOf(SelfTestFinding::Kind kind)
{
    switch (kind) {
    case Kind::missing:
        return "missing";
    case Kind::damaged:
        return "damaged";
    case Kind::differs:
        return "differs";
    case Kind::untested:
        break;
    }
    return "untested";
}

SelfTestSummary runSelfTest(const SelfTestRequest& request, SelfTestObserver& observer,
                            const StopRequest& stop) noexcept
{
    return summaryOf<SelfTestSummary>([&] { return SelfTest(request, observer, stop).run(); });
}

} // namespace stowline::backup
