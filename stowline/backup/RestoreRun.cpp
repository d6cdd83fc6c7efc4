#include "stowline/backup/RestoreRun.h"

#include "stowline/backup/BackupRun.h"
#include "stowline/backup/restore/LinkTrail.h"
#include "stowline/backup/restore/LossTally.h"
#include "stowline/backup/restore/Pruning.h"
#include "stowline/backup/restore/RunReader.h"
#include "stowline/backup/restore/TreePlacer.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>

namespace stowline::backup {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetweenLooks{100};

class Restore {
public:
    Restore(const RestoreRequest& request, RestoreObserver& observer, const StopRequest& stop)
        : request_(request), observer_(observer), stop_(stop)
    {
    }

    RestoreSummary run()
    {
        const auto start = steady_clock::now();
        const auto failure = failureOf([this] { restore(); });
        if (stop_.isRequested()) {
            summary_.end = ReadEnd::interrupted;
            summary_.sentence = "It was interrupted; the same command goes on where it stopped.";
        } else if (failure) {
            summary_.end = failure->end;
            summary_.sentence = failure->sentence;
        } else {
            judge();
        }
        if (summary_.badContent > 0 && request_.choice.stateFolder)
            noteDeletedVersions(*request_.choice.stateFolder, badVersions_);
        summary_.losses = losses_.counts();
        summary_.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
        return std::move(summary_);
    }

private:
    void restore()
    {
        RunReader reader(request_.choice, request_.bytesPerSecond, request_.partBytes, stop_);
        const OriginKeeper keeper(reader, summary_.origin);
        const RunReader::Tree tree = reader.readChosen();
        summary_.run = tree.head.run;
        reader.noteLeftOut(tree.head, tree.items, request_.paths);
        reader.noteSights(tree.sights, request_.paths);
        sights_ = tree.sights;
        versions_.emplace(request_.choice.account, reader.tries());
        const TreeRules rules = rulesOf(request_);
        idle_.emplace(rules);
        findPaths(tree.items);
        refuseOnePlaceForTwo(tree.items);
        if (request_.deletesOthers) {
            refuseOthersRun(reader.origin());
            refuseUnproven(reader.origin());
            pruning_.emplace(request_, tree.head, tree.items, rules, owners_);
            refuseToDelete(rules);
        }
        for (const std::string& path : paths_) {
            if (!stop_.isRequested())
                restoreBelow(Selection(path, rules, request_.onlyPaths), tree.items,
                             reader.source());
        }
        if (summary_.badContent > 0)
            reader.noteIfForgotten();
        if (!stop_.isRequested() && missing_ < paths_.size()) {
            for (const std::string& pattern : idle_->texts())
                summary_.notes.push_back(idleSentence(pattern));
        }
        idle_.reset();
        if (pruning_ && !stop_.isRequested())
            prune();
        pruning_.reset();
        summary_.fetchedBytes = reader.source().receivedBytes();
    }

    /// What is named, each place once: in place, what is in a folder that is named too goes with
    /// it, unless patterns count from either.
    void findPaths(const ItemIndex& items)
    {
        const bool isWhole = request_.include.empty() && request_.exclude.empty() &&
                             request_.onlyPaths.empty() && !request_.target;
        const auto goesWith = [&](const std::string& path, const std::string& other) {
            return path != other && isAtOrBelow(path, other) && items.find(path);
        };
        for (const std::string& path : request_.paths) {
            const bool isNamedBefore = std::ranges::find(paths_, path) != paths_.end();
            const bool isInAnother =
                isWhole && std::ranges::any_of(request_.paths, [&](const std::string& other) {
                    return goesWith(path, other);
                });
            if (!isNamedBefore && !isInAnother)
                paths_.push_back(path);
        }
    }

    static TreeRules rulesOf(const RestoreRequest& request)
    {
        TreeRules rules;
        const auto require = [](bool isPattern, const std::string& text) {
            if (!isPattern)
                throw RecordFault(RecordFault::Kind::failed, "\"" + text + "\" is not a pattern.");
        };
        for (const std::string& pattern : request.include)
            require(rules.include(pattern), pattern);
        for (const std::string& pattern : request.exclude)
            require(rules.exclude(pattern), pattern);
        return rules;
    }

    void restoreBelow(const Selection& selection, const ItemIndex& items, ContentSource& source)
    {
        bool isAnything = false;
        items.forEach(selection.named(), [&isAnything](const StoredItem&) {
            isAnything = true;
            return false;
        });
        const std::string real = placeOfContent(selection.named(), items);
        if (!isAnything) {
            ++missing_;
            ++summary_.found;
            tell({.path = selection.named(),
                  .faults = {"Nothing of " + selection.named() + " is in run " +
                             std::to_string(summary_.run) +
                             (real.empty() ? "." : "; what it led to is stored as " + real + ".") +
                             whyNotHeld(items, selection.named())}});
            return;
        }
        if (!real.empty() && std::ranges::find(request_.paths, real) == request_.paths.end())
            summary_.notes.push_back(selection.named() +
                                     " is a link. What it leads to is stored as " + real +
                                     ", and only restored with that path.");
        int error = 0;
        const std::filesystem::path folder = folderFor(selection);
        const auto root = platform::TargetFolder::open(folder, !request_.isDryRun, error);
        if (!root && request_.isDryRun && error == ENOENT)
            return tellAll(selection, items);
        if (!root)
            throw RecordFault(RecordFault::Kind::failed,
                              folder.string() +
                                  " cannot be opened: " + platform::systemErrorText(error) + ".");
        const PlacingContext context{.request = request_,
                                     .root = *root,
                                     .source = source,
                                     .versions = *versions_,
                                     .owners = owners_,
                                     .stop = stop_,
                                     .done = [this](const RestoredItem& item) { tell(item); },
                                     .gathered = [this](std::int64_t bytes) { move(bytes); }};
        TreePlacer placer(context, items, selection, placed_);
        placer.place(*idle_, [this](const StoredItem& stored) { find(stored); });
        if (const int refused = request_.isDryRun ? 0 : placer.synchronizeFileSystems())
            throw RecordFault(
                RecordFault::Kind::failed,
                "What was put back into " + folder.string() +
                    " cannot be written to the disk: " + platform::systemErrorText(refused) + ".");
        placed_.trees.push_back({selection, folder});
        if (const auto status = root->status())
            pruned_.push_back({selection, folder, *status});
    }

    /// The folder that the last name of a path goes into.
    [[nodiscard]] std::filesystem::path folderFor(const Selection& selection) const
    {
        const std::string above(parentOf(selection.named()));
        return request_.target.value_or(above.empty() ? "/" : above);
    }

    /// By a run that nobody named nothing is deleted where it was.
    void refuseOthersRun(const RunOrigin& origin) const
    {
        const auto& identity = request_.choice.identity;
        if (request_.target || !request_.choice.chain.empty() || !identity ||
            origin.chain == chainName(*identity))
            return;
        throw RecordFault(RecordFault::Kind::failed,
                          "Run " + std::to_string(origin.run) + " is one of " + origin.chain +
                              ", not of this user on this machine. If things are to be deleted "
                              "here that it did not hold, please name the chain (--chain).");
    }

    /// A record that is not the one that was stored might hold nothing of what it should.
    static void refuseUnproven(const RunOrigin& origin)
    {
        if (origin.trust != RecordTrust::unproven)
            return;
        throw RecordFault(
            RecordFault::Kind::failed,
            fmt::format("It cannot be proven that the record of run {} is the one that was stored, "
                        "so nothing can be deleted by it. Please restore "
                        "without --delete.",
                        origin.run));
    }

    /// No recorded path goes through a link: behind one that is there now may be another tree.
    void refuseLinkTo(const std::filesystem::path& folder) const
    {
        std::error_code unknown;
        const auto real = std::filesystem::weakly_canonical(folder, unknown);
        if (request_.target || (!unknown && real == folder))
            return;
        throw RecordFault(
            RecordFault::Kind::failed,
            folder.string() +
                " is reached through a link now, which it was not in the run: it is " +
                real.string() +
                ". With --delete that may be another tree, so nothing is put back. "
                "Please say with --to where to.");
    }

    void refuseToDelete(const TreeRules& rules)
    {
        for (const std::string& path : paths_) {
            const Selection selection(path, rules, request_.onlyPaths);
            refuseLinkTo(folderFor(selection));
            if (const auto why = pruning_->refusal(selection, folderFor(selection)))
                throw RecordFault(RecordFault::Kind::failed, *why);
        }
    }

    /// What the run did not hold goes, when all that it holds is in place: what would be deleted
    /// may be all that is left of something.
    void prune()
    {
        if (summary_.failed > 0) {
            summary_.notes.emplace_back("Not everything could be put back, so nothing is deleted.");
            return;
        }
        if (isContentLeft_) {
            isDeletionLeftOut_ = true;
            return;
        }
        const auto tell = [this](const RestoredItem& item) { tellDeleted(item); };
        pruning_->plan(std::move(pruned_), tell, stop_);
        if (stop_.isRequested())
            return;
        std::ranges::move(pruning_->reasonsToStay(), std::back_inserter(summary_.notes));
        if (request_.isDryRun)
            pruning_->tellPlan(tell);
        else if (pruning_->planned() > 0 &&
                 observer_.mayDelete(pruning_->planned(), pruning_->firstPlanned()))
            pruning_->carryOut(tell, stop_);
        else
            isDeletionDeclined_ = pruning_->planned() > 0 && !stop_.isRequested();
    }

    /// Two items are never put into one place, one over the other.
    void refuseOnePlaceForTwo(const ItemIndex& items) const
    {
        if (!request_.target)
            return;
        const auto refuse = [](const std::string& one, const std::string& other) {
            throw RecordFault(RecordFault::Kind::failed,
                              one + " and " + other +
                                  " would both be put into one place. Please "
                                  "restore them one after the other, each into "
                                  "a folder of its own.");
        };
        std::map<std::string, std::string> paths; // by place
        for (const std::string& path : request_.paths) {
            const auto [known, isNew] = paths.emplace(nameOf(path), path);
            if (!isNew && known->second != path)
                refuse(known->second, path);
        }
        const bool isWholeMachineNamed = paths.contains("");
        for (const auto& [name, path] : paths) {
            const std::string atTop = "/" + name;
            if (isWholeMachineNamed && !name.empty() && path != atTop && items.find(atTop))
                refuse(atTop, path);
        }
    }

    /// Where the run holds what a path leads to through links; empty when it is not such a path, or
    /// the run does not hold it.
    [[nodiscard]] static std::string placeOfContent(const std::string& path, const ItemIndex& items)
    {
        const auto real = pathThroughLinks(items, path);
        return real && *real != path && items.find(*real) ? *real : std::string();
    }

    /// A dry run into a folder that is not there yet.
    void tellAll(const Selection& selection, const ItemIndex& items)
    {
        selection.forEach(items, *idle_, [&](const StoredItem& stored) {
            find(stored);
            if (auto refused = refusedDevice(stored.item, request_)) {
                tell(*refused);
                return true;
            }
            if (stored.item.kind == ItemKind::file && !stored.content &&
                stored.sameFileAs.empty()) {
                tell(lackOfContent(stored.item));
                return true;
            }
            tell({.path = stored.item.path,
                  .kind = stored.item.kind,
                  .state = RestoredState::wouldRestore,
                  .bytes = stored.content ? stored.content->storedSize : 0});
            return true;
        });
    }

    void find(const StoredItem& stored)
    {
        const std::lock_guard lock(mutex_);
        ++summary_.found;
        ++progress_.foundItems;
        progress_.foundBytes += stored.content ? stored.content->storedSize : 0;
        summary_.seenEarlier += sights_.of(stored).isEarlier ? 1 : 0;
        observer_.itemFound(stored);
    }

    void move(std::int64_t bytes)
    {
        const std::lock_guard lock(mutex_);
        progress_.doneBytes += static_cast<std::uint64_t>(bytes); // wraps around for negative ones
        look();
    }

    void tell(const RestoredItem& item)
    {
        const std::lock_guard lock(mutex_);
        if (item.state == RestoredState::failed && stop_.isRequested())
            return; // not failed, but left for the next time
        ++progress_.doneItems;
        count(item);
        observer_.itemDone(item);
        look();
    }

    void tellDeleted(const RestoredItem& item)
    {
        const std::lock_guard lock(mutex_);
        summary_.deleted += item.state == RestoredState::deleted ? 1 : 0;
        summary_.wouldDelete += item.state == RestoredState::wouldDelete ? 1 : 0;
        summary_.notDeleted += item.state == RestoredState::failed ? 1 : 0;
        observer_.itemDone(item);
    }

    void count(const RestoredItem& item)
    {
        switch (item.state) {
        case RestoredState::restored:
            ++summary_.restored;
            summary_.bytes += item.bytes;
            break;
        case RestoredState::unchanged:
            ++summary_.unchanged;
            break;
        case RestoredState::skipped:
            ++summary_.skipped;
            isContentLeft_ = isContentLeft_ || !item.isMetadataOnly;
            break;
        case RestoredState::failed:
            ++summary_.failed;
            summary_.badContent += item.isBadContent ? 1 : 0;
            if (!item.badVersion.empty())
                badVersions_.push_back(item.badVersion);
            break;
        case RestoredState::wouldRestore:
            ++summary_.wouldRestore;
            summary_.bytes += item.bytes;
            break;
        case RestoredState::deleted:
        case RestoredState::wouldDelete:
            break; // see tellDeleted()
        }
        const bool isInPlace =
            item.state == RestoredState::restored || item.state == RestoredState::unchanged;
        const auto isRefusedByTarget = [](const Loss& loss) { return !loss.isNotAllowed; };
        const bool isIncomplete = std::ranges::any_of(item.losses, isRefusedByTarget);
        summary_.incomplete += isInPlace && isIncomplete ? 1 : 0;
        summary_.withheld += isInPlace && !isIncomplete && !item.losses.empty() ? 1 : 0;
        losses_.add(item.losses);
    }

    void look()
    {
        const auto now = steady_clock::now();
        if (now - lastLook_ < kBetweenLooks)
            return;
        lastLook_ = now;
        observer_.progress(progress_);
    }

    void judge()
    {
        const RestoreSummary& sum = summary_;
        const auto counted = [](std::uint64_t count, const char* one, const char* many) {
            return fmt::format("{} {}", count, count == 1 ? one : many);
        };
        const std::uint64_t told =
            sum.restored + sum.unchanged + sum.skipped + sum.failed + sum.wouldRestore;
        if (sum.found != told) {
            summary_.end = ReadEnd::failed;
            summary_.sentence = "Of " + std::to_string(sum.found) + " items only " +
                                std::to_string(told) + " are accounted for.";
        } else if (missing_ == paths_.size()) {
            summary_.end = ReadEnd::notFound;
            summary_.sentence = "Nothing that was named is in run " + std::to_string(sum.run) + ".";
        } else if (sum.found == 0) {
            summary_.end = ReadEnd::notFound;
            summary_.sentence = "The patterns leave nothing to restore.";
        } else if (sum.badContent > 0) {
            summary_.end = ReadEnd::badContent;
            summary_.sentence = "The service no longer has what was stored of " +
                                counted(sum.badContent, "file", "files") + ".";
        } else if (sum.failed > 0) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence = counted(sum.failed, "item is", "items are") + " not put back.";
        } else if (isDeletionLeftOut_) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence =
                "Not everything was to be put back over what is there, so nothing is deleted.";
        } else if (isDeletionDeclined_) {
            summary_.end = ReadEnd::failed;
            summary_.sentence = "Everything is put back, but nothing was deleted.";
        } else if (sum.notDeleted > 0) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence = counted(sum.notDeleted, "item", "items") +
                                " that the run did not hold cannot be deleted.";
        } else if (sum.incomplete > 0) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence =
                "Of " + counted(sum.incomplete, "item", "items") + " the target does not take all.";
        } else {
            summary_.end = ReadEnd::done;
        }
    }

    const RestoreRequest& request_;
    RestoreObserver& observer_;
    const StopRequest& stop_;
    Owners owners_;
    std::optional<VersionFinder> versions_;
    std::optional<IdlePatterns> idle_;
    PlacedTrees placed_;
    std::optional<Pruning> pruning_; ///< absent: nothing is deleted
    std::vector<Pruning::Tree> pruned_;
    bool isDeletionDeclined_ = false;
    bool isDeletionLeftOut_ = false; ///< for that reason:
    bool isContentLeft_ = false;     ///< something is not in place, since it was not to be
    std::uint64_t missing_ = 0;      ///< named paths that the run does not have

    std::mutex mutex_; ///< of what follows
    RestoreSummary summary_;
    LossTally losses_;
    std::vector<std::string> badVersions_; ///< whose content is not what was stored
    std::vector<std::string> paths_;       ///< that are put back
    Sights sights_;
    RestoreProgress progress_;
    steady_clock::time_point lastLook_;
};

/// Why a path leads to nothing: there is no such item, or it goes through links that lead nowhere.
std::string absenceOf(const std::string& path, const ItemIndex& items, const std::string& run)
{
    const auto real = pathThroughLinks(items, path);
    if (!real)
        return path + " leads through a circle of links in run " + run + ".";
    if (*real == path)
        return path + " was not found in run " + run + "." + whyNotHeld(items, path);
    const auto named = items.find(path);
    if (named && named->item.kind == ItemKind::link)
        return path + " is a link in run " + run + ". What it leads to, " + *real +
               ", is not in that run.";
    return path + " leads to " + *real + ", which is not in run " + run + ".";
}

/// @param badVersion the version whose content is found not to be what was stored
void readFile(RunReader& reader, const Account& account, const std::string& path,
              ContentSummary& summary, std::string& badVersion,
              const std::function<bool(std::string_view)>& take)
{
    const RunReader::Tree tree = reader.readChosen();
    reader.noteSights(tree.sights, {path});
    auto stored = tree.items.find(pathThroughLinks(tree.items, path).value_or(path));
    if (stored && !stored->sameFileAs.empty())
        stored = tree.items.find(stored->sameFileAs);
    if (!stored || stored->item.kind == ItemKind::link)
        throw RecordFault(RecordFault::Kind::notFound,
                          absenceOf(path, tree.items, std::to_string(tree.head.run)));
    if (!stored->content)
        throw RecordFault(RecordFault::Kind::notFound,
                          path + " has no content in run " + std::to_string(tree.head.run) + ".");
    const StoredContent& content = *stored->content;
    if (content.kind != "plain")
        throw RecordFault(RecordFault::Kind::failed,
                          path + " is stored in a form that this program cannot read.");
    VersionFinder versions(account, reader.tries());
    const auto version = versions.versionFor(stored->item.path, content);
    if (version.failure)
        throw RecordFault(
            version.failure->end == StepEnd::interrupted ? RecordFault::Kind::interrupted
                                                         : RecordFault::Kind::temporary,
            path + ": the service does not say which version it is. " + version.failure->reason);
    if (version.version.empty())
        throw RecordFault(RecordFault::Kind::damaged,
                          path + ": the service has no such version any more.");
    platform::Sha256 digest;
    const auto failure = reader.source().read(
        version.version, 0, content.storedSize,
        [&](std::string_view bytes) {
            digest.update(bytes);
            summary.bytes += bytes.size();
            return take(bytes);
        },
        content.digest);
    if (!failure || failure->kind == FetchFailure::Kind::badContent)
        badVersion = version.version;
    if (failure && failure->isLoss())
        throw RecordFault(RecordFault::Kind::damaged, path + ": " + failure->reason);
    if (failure)
        throw RecordFault(
            failure->kind == FetchFailure::Kind::interrupted ? RecordFault::Kind::interrupted
            : failure->kind == FetchFailure::Kind::temporary ? RecordFault::Kind::temporary
                                                             : RecordFault::Kind::failed,
            path + ": " + failure->reason);
    if (digest.hexadecimal() != content.digest)
        throw RecordFault(RecordFault::Kind::damaged,
                          path + ": what came is not what was stored. Please do not use it.");
}

} // namespace

const char* nameOf(RestoredState state)
{
    switch (state) {
    case RestoredState::restored:
        return "restored";
    case RestoredState::unchanged:
        return "unchanged";
    case RestoredState::skipped:
        return "skipped";
    case RestoredState::failed:
        return "failed";
    case RestoredState::wouldRestore:
        return "would-restore";
    case RestoredState::deleted:
        return "deleted";
    case RestoredState::wouldDelete:
        break;
    }
    return "would-delete";
}

RestoreSummary runRestore(const RestoreRequest& request, RestoreObserver& observer,
                          const StopRequest& stop) noexcept
{
    return summaryOf<RestoreSummary>([&] { return Restore(request, observer, stop).run(); });
}

ContentSummary readStoredFile(const RunChoice& choice, const std::string& path,
                              const std::function<bool(std::string_view)>& take,
                              const StopRequest& stop) noexcept
{
    constexpr std::uint64_t partBytes = 4U << 20;
    return summaryOf<ContentSummary>([&] {
        ContentSummary summary;
        std::string badVersion;
        const auto failure = failureOf([&] {
            RunReader reader(choice, 0, partBytes, stop);
            const OriginKeeper keeper(reader, summary.origin);
            readFile(reader, choice.account, path, summary, badVersion, take);
        });
        summary.end = failure ? failure->end : ReadEnd::done;
        summary.sentence = failure ? failure->sentence : "";
        if (summary.end == ReadEnd::badContent && choice.stateFolder)
            noteDeletedVersions(*choice.stateFolder,
                                std::span(&badVersion, badVersion.empty() ? 0U : 1U));
        return summary;
    });
}

} // namespace stowline::backup
