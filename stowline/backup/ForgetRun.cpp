#include "stowline/backup/ForgetRun.h"

#include "stowline/backup/RunFault.h"
#include "stowline/backup/RunState.h"
#include "stowline/backup/forget/AccountRecords.h"
#include "stowline/backup/forget/ChainFeed.h"
#include "stowline/backup/forget/GivenUpRuns.h"
#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/record/KeptRuns.h"
#include "stowline/backup/transfer/ContentSource.h"
#include "stowline/backup/transfer/VersionDeletion.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace stowline::backup {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t kAskedAtATime = 500;
/// How many versions are deleted before the records are looked at again.
constexpr std::uint64_t kDeletedAtATime = 20;
/// A service that refuses so many deletions will refuse the others.
constexpr std::uint64_t kMostRefusals = 10;
constexpr std::uint64_t kBytesInAKilobyte = 1024;

/// Ends the forgetting; its text is the summary's sentence.
class ForgetFault : public std::runtime_error {
public:
    ForgetFault(ForgetEnd end, const std::string& sentence)
        : std::runtime_error(sentence), end_(end)
    {
    }
    [[nodiscard]] ForgetEnd end() const { return end_; }

private:
    ForgetEnd end_;
};

ForgetEnd endOf(const RecordFault& fault)
{
    switch (fault.kind()) {
    case RecordFault::Kind::temporary:
        return ForgetEnd::temporary;
    case RecordFault::Kind::refused:
        return ForgetEnd::refused;
    case RecordFault::Kind::interrupted:
        return ForgetEnd::interrupted;
    case RecordFault::Kind::rolledBack:
        return ForgetEnd::rolledBack;
    default:
        return ForgetEnd::failed;
    }
}

ForgetEnd endOf(StepEnd end)
{
    switch (end) {
    case StepEnd::temporary:
        return ForgetEnd::temporary;
    case StepEnd::refused:
        return ForgetEnd::refused;
    case StepEnd::interrupted:
        return ForgetEnd::interrupted;
    case StepEnd::failed:
        break;
    }
    return ForgetEnd::failed;
}

bool isUnreadable(const RecordFault& fault)
{
    return fault.kind() == RecordFault::Kind::damaged ||
           fault.kind() == RecordFault::Kind::notFound || fault.kind() == RecordFault::Kind::tooNew;
}

/// The day on the wall at a moment, in days since 1970-01-01.
std::int64_t localDay(std::int64_t seconds)
{
    const Date moment{std::chrono::seconds(seconds)};
    const auto local = moment + platform::localOffset(moment);
    return std::chrono::floor<std::chrono::days>(local).time_since_epoch().count();
}

class Forgetting {
public:
    Forgetting(const ForgetRequest& request, ForgetObserver& observer, const StopRequest& stop)
        : request_(request), observer_(observer), stop_(stop), tries_(request.budgetPerStep, stop),
          bandwidth_(0, steady_clock::now), source_(request.account, tries_, bandwidth_, 4U << 20)
    {
    }

    ForgetSummary run()
    {
        try {
            const StopScope scope(stop_);
            forget();
        } catch (const ForgetFault& fault) {
            ended(fault.end(), fault.what());
        } catch (const RunFault& fault) {
            ended(fault.end() == BackupEnd::locked ? ForgetEnd::locked : ForgetEnd::stateFolder,
                  fault.what());
        } catch (const RecordFault& fault) {
            ended(endOf(fault), fault.what());
        } catch (const IndexFault& fault) {
            ended(ForgetEnd::stateFolder, fault.what());
        }
        if (stop_.isRequested())
            ended(ForgetEnd::interrupted, "It was interrupted.");
        return std::move(summary_);
    }

private:
    void ended(ForgetEnd end, const std::string& sentence)
    {
        summary_.end = end;
        summary_.sentence = sentence;
    }

    void requireNotStopped() const
    {
        if (stop_.isRequested())
            throw ForgetFault(ForgetEnd::interrupted, "It was interrupted.");
    }

    void forget()
    {
        requireConfigured();
        state_.emplace(RunState::take(request_.stateFolder, request_.identity.profile,
                                      request_.isDryRun ? Leftovers::kept : Leftovers::takenOut));
        openRecords();
        giveUp();
        lookForLosses();
        if (!request_.keep.areAny()) {
            summary_.end = ForgetEnd::done;
            return;
        }
        choose();
        if (toForget_.empty() && own_->forgottenRuns().empty()) {
            summary_.end = ForgetEnd::done;
            return;
        }
        requireNothingBegun();
        readRecords();
        askAboutCandidates();
        summary_.plan.versions = there_;
        if (request_.isDryRun) {
            summary_.linkRecords = links();
            summary_.end = ForgetEnd::done;
            return;
        }
        if (toForget_.empty() && there_ == 0 && removable().empty()) {
            summary_.linkRecords = own_->forgottenRuns().size();
            summary_.end = ForgetEnd::done;
            return;
        }
        if (!observer_.mayForget(summary_.plan))
            throw ForgetFault(ForgetEnd::declined, "Nothing was forgotten.");
        confirmLosses();
        change();
    }

    void requireConfigured() const
    {
        if (!request_.keep.areAny() && !request_.confirmsLosses && request_.givenUp.empty())
            throw ForgetFault(ForgetEnd::badRequest, "No rule says which runs are kept.");
        if (!WebServiceBroker::isRestoringConfigured())
            throw ForgetFault(ForgetEnd::notConfigured,
                              std::string(kRestoringNotConfiguredMessage));
        if (!WebServicesSettings::webMethodInfo("DeleteFilesInBulk"))
            throw ForgetFault(ForgetEnd::notConfigured,
                              "Deleting is not configured: the settings have no "
                              "\"DeleteFilesInBulk\". Runs cannot be forgotten with this "
                              "provider.");
    }

    void openRecords()
    {
        const UploadOwner owner = uploadOwner(request_.account, request_.identity);
        uploads_.emplace(state_->journal(), bandwidth_, tries_);
        uploads_->account = request_.account;
        uploads_->owner = owner;
        uploads_->spoolFolder = state_->spoolFolder();
        uploads_->registration =
            request_.registersWithProtectFile ? Registration::protectFile : Registration::protect2;
        records_.emplace(request_.account, tries_, source_, *uploads_, state_->spoolFolder());
        const auto seenElsewhere = seenOfOthers(owner); // before the service shows what it has
        own_ = records_->open(chainName(request_.identity));
        if (own_ == nullptr || own_->newestFinished() == 0)
            throw ForgetFault(ForgetEnd::notFound,
                              "No finished run of this machine, user and profile is recorded under "
                              "the name " +
                                  request_.account.systemName + ".");
        const IndexPosition seen = seenRun(request_.stateFolder, owner);
        isBackedUpFromHere_ = seen.run == own_->newestFinished();
        own_->refuseOlderThan(seen);
        std::vector<IndexPosition> known = knownRecords(request_.stateFolder, owner);
        if (seen.run != 0)
            known.push_back(seen);
        own_->expect(known);
        requireShown(seenElsewhere);
    }

    /// What this machine has seen of a chain that is not forgotten from.
    struct SeenChain {
        std::string systemName;
        ChainIdentity identity;
        IndexPosition newest;
        std::vector<IndexPosition> known;
    };

    [[nodiscard]] std::vector<SeenChain> seenOfOthers(const UploadOwner& own) const
    {
        std::vector<SeenChain> chains;
        for (const UploadOwner& owner : knownOwners(request_.stateFolder)) {
            const IndexPosition newest = seenRun(request_.stateFolder, owner);
            if (owner == own || owner.service != own.service || owner.username != own.username ||
                newest.run == 0)
                continue;
            SeenChain& seen =
                chains.emplace_back(SeenChain{.systemName = owner.systemName,
                                              .identity = owner.identity,
                                              .newest = newest,
                                              .known = knownRecords(request_.stateFolder, owner)});
            seen.known.push_back(newest);
        }
        return chains;
    }

    /// What a service does not show of other chains may need anything.
    void requireShown(const std::vector<SeenChain>& seen)
    {
        for (const SeenChain& other : seen) {
            auto& chains = records_->chains();
            const auto found = std::ranges::find_if(chains, [&](const auto& entry) {
                return entry.systemName == other.systemName &&
                       entry.chain.name() == chainName(other.identity);
            });
            if (found == chains.end() || !found->chain.shows(other.newest))
                throw ForgetFault(
                    ForgetEnd::rolledBack,
                    fmt::format("This machine has seen run {} of {} under the name {}, and the "
                                "service does not show it: nobody knows what it needs, and nothing "
                                "is forgotten. Please ask the provider. If its records were "
                                "deleted on purpose, please back up once with the profile \"{}\" "
                                "and --rebuild-index.",
                                other.newest.run, chainName(other.identity), other.systemName,
                                other.identity.profile));
            found->chain.expect(other.known);
        }
    }

    /// All of them or none.
    void giveUp()
    {
        std::vector<OpenRun> runs;
        if (request_.givenUp.empty())
            return;
        const auto open = openRuns(records_->chains());
        for (const std::string& name : request_.givenUp) {
            const std::size_t before = runs.size();
            for (const OpenRun& run : open) {
                if (nameOf(run) == name)
                    runs.push_back(run);
            }
            if (runs.size() == before)
                throw ForgetFault(ForgetEnd::notFound,
                                  "No run " + name + " has begun and not ended.");
        }
        for (const OpenRun& run : runs) {
            if (isOwn(run))
                throw ForgetFault(ForgetEnd::badRequest,
                                  "Run " + nameOf(run) +
                                      " is one of this machine, user and profile: please run the "
                                      "backup again to its end instead.");
            if (!run.isSilent)
                throw ForgetFault(
                    ForgetEnd::held,
                    "Run " + nameOf(run) + " under the name " + run.systemName +
                        " cannot be given up: by the service's clock its last sign is not a week "
                        "older than the newest run of the account. It may be going on.");
        }
        if (request_.isDryRun)
            return;
        GivenUpRuns words(request_.stateFolder, request_.account);
        for (const OpenRun& run : runs) {
            if (!words.add(run))
                throw RunFault(BackupEnd::stateFolder, "The file " + words.file().string() +
                                                           " cannot be written. Is the disk full?");
            ++summary_.givenUp;
        }
    }

    [[nodiscard]] bool isOwn(const OpenRun& run) const
    {
        return run.systemName == request_.account.systemName && run.chain == own_->name();
    }

    /// What stands in the newest record and is not confirmed since.
    void lookForLosses()
    {
        const UploadOwner owner = uploadOwner(request_.account, request_.identity);
        const std::uint64_t confirmed = state_->confirmedLosses(owner);
        std::vector<RunLoss>& losses = summary_.plan.losses;
        try {
            losses = own_->head(own_->newestFinished()).losses;
        } catch (const RecordFault& fault) {
            refuseUnreadable(fault, request_.account.systemName, own_->name());
        }
        std::erase_if(losses, [confirmed](const RunLoss& loss) { return loss.run <= confirmed; });
        if (request_.confirmsLosses && !losses.empty())
            requireBackedUpFromHere();
        if (request_.confirmsLosses && !request_.isDryRun)
            confirmLosses();
        if (losses.empty() || !request_.isUnattended || request_.isDryRun)
            return;
        std::string sentence = "Nothing is forgotten until a person confirms it.";
        for (auto loss = losses.rbegin(); loss != losses.rend(); ++loss)
            sentence.insert(0, sentenceOf(*loss) + " ");
        throw ForgetFault(ForgetEnd::suspended, sentence);
    }

    /// What is confirmed stands in the state folder until the next record is stored from there.
    void requireBackedUpFromHere() const
    {
        if (isBackedUpFromHere_)
            return;
        throw ForgetFault(
            ForgetEnd::elsewhere,
            fmt::format("That cannot be confirmed from here: run {}, the newest, was not made from "
                        "the state folder {}, and who makes the next one would not see it. Please "
                        "confirm it on the machine, as the user and with the state folder that "
                        "back up; or, if that is to be this one, run the backup once, then confirm "
                        "it.",
                        own_->newestFinished(), request_.stateFolder.string()));
    }

    void confirmLosses()
    {
        if (summary_.plan.losses.empty() || !isBackedUpFromHere_)
            return;
        state_->noteConfirmedLosses(uploadOwner(request_.account, request_.identity),
                                    own_->newestFinished());
        summary_.confirmed = std::exchange(summary_.plan.losses, {});
    }

    /// Throws what a record that cannot be read comes to, or the fault as it is.
    [[noreturn]] static void refuseUnreadable(const RecordFault& fault, const std::string& system,
                                              const std::string& chain)
    {
        if (!isUnreadable(fault))
            throw fault;
        throw ForgetFault(
            ForgetEnd::unreadable,
            fmt::format("{} It is one of {} under the name {}, and nobody knows what it "
                        "needs: nothing is forgotten as long as it cannot be read.",
                        fault.what(), chain, system));
    }

    /// The same runs with the days that their records tell. Where nobody looks at what is to go,
    /// these have to agree: a service that was moved may say of all that it stored them at once.
    [[nodiscard]] std::vector<DatedRun> byTheirOwnDays(std::vector<DatedRun> runs)
    {
        for (DatedRun& run : runs) {
            requireNotStopped();
            try {
                run.day = localDay(own_->head(run.run).description.begun.seconds);
            } catch (const RecordFault& fault) {
                refuseUnreadable(fault, request_.account.systemName, own_->name());
            }
        }
        return runs;
    }

    /// By the rules, among the finished runs that are not forgotten.
    void choose()
    {
        std::vector<DatedRun> dated;
        std::map<std::uint64_t, std::int64_t> moments;
        for (const std::uint64_t run : keptRuns(*own_)) {
            requireNotStopped();
            const auto stored =
                request_.keep.needDays() ? own_->storedAt(run) : std::optional<std::int64_t>();
            if (stored)
                moments.emplace(run, *stored);
            dated.push_back({run, stored ? std::optional(localDay(*stored)) : std::nullopt});
        }
        if (request_.keep.needDays() && moments.size() < dated.size())
            observer_.note(fmt::format(
                "The service does not say when it stored {}: {} kept, whatever the rules of days, "
                "weeks and months say.",
                platform::countText(dated.size() - moments.size(), "run", "runs"),
                dated.size() - moments.size() == 1 ? "it is" : "they are"));
        auto kept = runsToKeep(dated, request_.keep);
        if (request_.isUnattended && request_.keep.needDays() && kept.size() < dated.size())
            kept.merge(runsToKeep(byTheirOwnDays(dated), request_.keep));
        for (const DatedRun& run : dated) {
            if (kept.contains(run.run))
                continue;
            toForget_.insert(run.run);
            RunToForget entry{.run = run.run};
            if (const auto moment = moments.find(run.run); moment != moments.end())
                entry.stored = Timestamp{moment->second, 0};
            summary_.plan.runs.push_back(entry);
        }
        summary_.plan.keptRuns = kept.size();
        summary_.plan.forgottenBefore = own_->forgottenRuns().size();
    }

    /// Of the own chain: those that began from this state folder, which this one holds. One that
    /// began from another may be going on, or its record be on its way.
    [[nodiscard]] std::set<std::uint64_t> runsThatAreOver()
    {
        std::set<std::uint64_t> over;
        const auto here = state_->runsBegunHere(uploadOwner(request_.account, request_.identity));
        for (const ListedRun& run : own_->runs()) {
            const auto noted = here.find(run.run);
            if (run.state == RecordState::finished || noted == here.end())
                continue;
            try {
                if (own_->begunDigestOf(run.run) == noted->second)
                    over.insert(run.run);
            } catch (const RecordFault& fault) {
                if (!isUnreadable(fault))
                    throw;
            }
        }
        return over;
    }

    void requireNothingBegun()
    {
        const GivenUpRuns givenUp(request_.stateFolder, request_.account);
        const auto holding = runThatHolds(
            records_->chains(), *own_,
            {.over = runsThatAreOver(), .isGivenUp = [&givenUp, this](const OpenRun& run) {
                 return givenUp.contains(run) ||
                        (request_.isDryRun && std::ranges::find(request_.givenUp, nameOf(run)) !=
                                                  request_.givenUp.end());
             }});
        if (!holding)
            return;
        throw ForgetFault(
            ForgetEnd::held,
            fmt::format("Run {} of {} under the name {} has begun and not ended: nobody knows what "
                        "it relies on, so nothing is forgotten. {}",
                        holding->run, holding->chain, holding->systemName,
                        whatToDo(*holding, isOwn(*holding))));
    }

    [[nodiscard]] std::string whatToDo(const OpenRun& run, bool isOfThisProfile) const
    {
        if (isOfThisProfile && !run.isLaterEnded)
            return "Please run the backup again to its end, then forget.";
        if (run.isLaterEnded)
            return "Please try again once it has ended. One that was cut off counts as such a "
                   "week after its last sign.";
        return "Please try again once it, or a later run of it, has ended. One that was cut off "
               "counts as such when a later run of it has ended, a week after its last sign. If "
               "its machine or profile will never back up again, please say so, a week after its "
               "last sign: \"stowline forget --given-up " +
               nameOf(run) +
               (request_.identity.profile == ChainIdentity().profile
                    ? ""
                    : " --profile " + request_.identity.profile) +
               "\".";
    }

    /// Which versions only forgotten runs hold.
    void readRecords()
    {
        for (auto& [system, chain] : records_->chains()) {
            requireNotStopped();
            try {
                const bool isOwn = &chain == own_;
                const ChainRests rests = takeChain(
                    ledger_, chain, isOwn ? toForget_ : std::set<std::uint64_t>(), isOwn, stop_);
                if (isOwn)
                    rests_ = rests;
            } catch (const RecordFault& fault) {
                refuseUnreadable(fault, system, chain.name());
            }
        }
        ledger_.settle();
        summary_.unnamedVersions = ledger_.unnamedCount();
        for (RunToForget& run : summary_.plan.runs) {
            requireNotStopped();
            run.begun = own_->head(run.run).description.begun;
        }
    }

    [[nodiscard]] std::vector<VersionVerdict>
    verdictsOf(const std::vector<VersionLedger::Candidate>& candidates)
    {
        std::vector<StoredVersion> versions;
        versions.reserve(candidates.size());
        for (const auto& candidate : candidates)
            versions.push_back(candidate.stored);
        std::optional<StepFailure> failure;
        auto verdicts = askedAfter(request_.account, versions, tries_, failure);
        if (!verdicts)
            throw ForgetFault(endOf(failure->end),
                              "The service cannot be asked about the versions: " + failure->reason);
        return *verdicts;
    }

    /// What the service holds of them, be it whole, damaged or lost. What it tells other things of
    /// is left alone: its number may be another file's by now.
    void askAboutCandidates()
    {
        forEachPage([&](const std::vector<VersionLedger::Candidate>& candidates) {
            const auto verdicts = verdictsOf(candidates);
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                using Identity = VersionVerdict::Identity;
                if (verdicts[i].identity == Identity::none)
                    continue;
                if (verdicts[i].identity == Identity::other) {
                    ++summary_.leftVersions;
                    continue;
                }
                ledger_.noteThere(candidates[i].stored.content.version);
                ++there_;
                summary_.plan.bytes += candidates[i].stored.content.storedSize;
            }
        });
    }

    void forEachPage(const std::function<void(const std::vector<VersionLedger::Candidate>&)>& take)
    {
        std::string after;
        for (bool isMore = true; isMore;) {
            requireNotStopped();
            const auto candidates = ledger_.candidatesAfter(after, kAskedAtATime);
            isMore = candidates.size() == kAskedAtATime;
            if (candidates.empty())
                return;
            after = candidates.back().stored.content.version;
            take(candidates);
        }
    }

    [[nodiscard]] std::vector<std::uint64_t> removable() const
    {
        return removableRuns(*own_, rests_);
    }

    /// Of the runs that are forgotten after this, those whose records stay.
    [[nodiscard]] std::uint64_t links() const
    {
        return own_->forgottenRuns().size() + toForget_.size() -
               removableRuns(*own_, rests_, toForget_).size();
    }

    void change()
    {
        uploads_->serverPath = uploadPath();
        summary_.usedBefore = usedBytes();
        noteForgotten();
        expected_ = records_->names();
        requireNothingChanged();
        deleteCandidates();
        requireNothingChanged();
        removeRecords();
        summary_.linkRecords = own_->forgottenRuns().size();
        summary_.usedAfter = usedBytes();
        if (summary_.leftVersions == 0) {
            summary_.end = ForgetEnd::done;
            return;
        }
        ended(summary_.deletedVersions == 0 && refusals_ > 0 ? ForgetEnd::refused
                                                             : ForgetEnd::someLeft,
              fmt::format("{} {} there still: the service did not delete {}, or tells other things "
                          "of {} than what was stored.{}",
                          platform::countText(summary_.leftVersions, "version", "versions"),
                          summary_.leftVersions == 1 ? "is" : "are",
                          summary_.leftVersions == 1 ? "it" : "them",
                          summary_.leftVersions == 1 ? "it" : "them",
                          refusal_.empty() ? "" : " " + refusal_));
    }

    [[nodiscard]] std::string uploadPath()
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
        if (failure)
            throw ForgetFault(endOf(failure->end), "The backup server " + request_.account.server +
                                                       " gives no upload path. " + failure->reason);
        return *path;
    }

    [[nodiscard]] std::optional<std::uint64_t> usedBytes()
    {
        std::optional<std::int64_t> kilobytes;
        (void)tries_.once([&](std::optional<Error>& /*error*/) {
            kilobytes = WebServiceBroker::usedSpaceInKbForAccount(request_.account.username,
                                                                  request_.account.password);
            return kilobytes.has_value();
        });
        if (!kilobytes || *kilobytes < 0)
            return std::nullopt;
        return static_cast<std::uint64_t>(*kilobytes) * kBytesInAKilobyte;
    }

    void noteForgotten()
    {
        RunDescription about;
        about.username = request_.account.username;
        about.systemName = request_.account.systemName;
        about.host = General::localHostName();
        about.identity = request_.identity;
        about.clientVersion = General::productVersion().value_or("unknown");
        for (const std::uint64_t run : toForget_) {
            requireNotStopped();
            about.begun = timestampNow();
            own_->noteForgotten(run, about);
            ++summary_.forgotten;
        }
    }

    /// Whatever another machine did to the records since they were read, as beginning a run or
    /// bringing back what was deleted, changes what may be deleted.
    void requireNothingChanged()
    {
        if (records_->namesNow() == expected_)
            return;
        throw ForgetFault(ForgetEnd::held,
                          "The records of the account changed meanwhile: a run has begun or ended, "
                          "or something was deleted or undeleted. What was not deleted yet is "
                          "deleted by the next forgetting; if you are undeleting, please do it "
                          "again, because some may have been deleted after it.");
    }

    void deleteCandidates()
    {
        forEachPage([&](std::vector<VersionLedger::Candidate> candidates) {
            std::erase_if(candidates, [](const auto& candidate) { return !candidate.isThere; });
            if (candidates.empty())
                return;
            const auto verdicts = verdictsOf(candidates);
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                using Identity = VersionVerdict::Identity;
                if (verdicts[i].identity == Identity::none)
                    continue;
                if (verdicts[i].identity == Identity::other || refusals_ >= kMostRefusals)
                    ++summary_.leftVersions;
                else
                    deleteOne(candidates[i]);
            }
        });
    }

    void deleteOne(const VersionLedger::Candidate& candidate)
    {
        requireNotStopped();
        if (sinceLook_++ % kDeletedAtATime == 0)
            requireNothingChanged();
        const StoredContent& content = candidate.stored.content;
        const auto failure = deletionOf(request_.account, content.list, tries_);
        if (failure && failure->end == StepEnd::interrupted)
            throw ForgetFault(ForgetEnd::interrupted, "It was interrupted.");
        if (failure && verdictsOf({candidate}).front().identity != VersionVerdict::Identity::none) {
            if (failure->end == StepEnd::temporary)
                throw ForgetFault(ForgetEnd::temporary,
                                  "The service does not delete: " + failure->reason);
            ++refusals_;
            ++summary_.leftVersions;
            refusal_ = failure->reason;
            return;
        }
        ++summary_.deletedVersions;
        summary_.deletedBytes += content.storedSize;
        observer_.progress(summary_.deletedVersions, there_);
    }

    /// Only when all that the forgotten runs held is gone: their records are what tells of it.
    void removeRecords()
    {
        if (summary_.leftVersions > 0)
            return;
        for (const std::uint64_t run : removable()) {
            requireNotStopped();
            requireNothingChanged();
            own_->removeForgotten(run);
            expected_ = records_->names();
            ++summary_.removedRecords;
        }
    }

    const ForgetRequest& request_;
    ForgetObserver& observer_;
    const StopRequest& stop_;
    Tries tries_;
    BandwidthLimit bandwidth_;
    ContentSource source_;
    std::optional<RunState> state_;
    std::optional<UploadContext> uploads_;
    std::optional<AccountRecords> records_;
    RecordChain* own_ = nullptr;
    bool isBackedUpFromHere_ = false; ///< the newest run is the one that this state folder knows
    std::set<std::uint64_t> toForget_;
    ChainRests rests_;
    VersionLedger ledger_;
    std::uint64_t there_ = 0; ///< versions that are to be deleted
    AccountRecords::Names expected_;
    std::uint64_t sinceLook_ = 0;
    std::uint64_t refusals_ = 0;
    std::string refusal_;
    ForgetSummary summary_;
};

} // namespace

ForgetSummary runForget(const ForgetRequest& request, ForgetObserver& observer,
                        const StopRequest& stop) noexcept
{
    ForgetSummary summary;
    try {
        return Forgetting(request, observer, stop).run();
    } catch (...) {
        summary.sentence = platform::handledSentence();
    }
    return summary;
}

} // namespace stowline::backup
