#include "stowline/backup/RunRecords.h"

#include "stowline/backup/RunFault.h"
#include "stowline/backup/transfer/FileUploader.h"
#include "stowline/backup/tree/RuleText.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::backup {

namespace {

/// How much of the chain each run reads again to know that it is still there.
constexpr std::uint64_t kRecordBytesReadAgain = 16U << 20;

/// Of the paths that were named, as many as this go into a record's first line.
constexpr std::size_t kMostNamedBytes = 1U << 20;
constexpr std::size_t kBytesAroundText = 4;

/// Whoever forgets runs takes one for cut off a week after its last sign.
constexpr std::chrono::hours kMayBeTakenForCutOff{5 * 24};

/// A path as it is named, but from the root on.
std::string absolute(const std::string& path)
{
    std::error_code unknown;
    std::string text = std::filesystem::absolute(path, unknown).lexically_normal().string();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

/// The numbers of another chain's runs mean nothing in this one.
void forgetNumbers(ItemIndex& index, std::uint64_t newest)
{
    index.forgetVanished(newest);
    index.forEach("/", [&index](const StoredItem& item) {
        index.put(item, 0);
        return true;
    });
}

} // namespace

RunRecords::RunRecords(const BackupRequest& request, const RunState& state, Tries& tries,
                       BandwidthLimit& bandwidth, UploadContext& uploads, RunAccounts& accounts)
    : request_(request), state_(state), accounts_(accounts), paths_(request.paths),
      source_(request.account, tries, bandwidth, request.partBytes),
      place_(request.account, tries, source_, &uploads)
{
}

bool RunRecords::bringUpToDate(ItemIndex& index)
{
    accounts_.activity("asks for the records of earlier runs");
    chain_.emplace(RecordChain::open(place_, request_.identity, state_.spoolFolder()));
    if (chain_->newestRun() == 0 && !request_.adoptsChain)
        refuseOthers();
    chain_->refuseOlderThan(index.position());
    chain_->expect(index.knownRecords());
    if (knowsLaterRun(index))
        distrustService();
    if (chain_->newestFinished() == 0)
        return request_.adoptsChain && loadAdopted(index);
    if (index.position().run == chain_->newestFinished() && isFoundation(index))
        return true;
    const bool wasBehind = index.position().run != 0 || index.itemCount() != 0;
    if (wasBehind || !request_.isDryRun)
        accounts_.note(fmt::format("The index of this machine is not at the newest record, {}: it "
                                   "is rebuilt from it.",
                                   chain_->newestFinished()));
    // A run that was cut off may have stored what no finished record tells of.
    const bool isWhole = chain_->newestRun() == chain_->newestFinished();
    return load(*chain_, index) && isWhole;
}

/// Whether the index was changed by a run of which the service shows not even the beginning, though
/// each run notes that before it changes anything.
bool RunRecords::knowsLaterRun(const ItemIndex& index) const
{
    bool isLater = false;
    index.forEachChangeSince(chain_->newestRun(), [&isLater](const ItemIndex::Change&) {
        isLater = true;
        return false;
    });
    return isLater;
}

/// What was stored by such a run may be lost with its beginning. The note outlives a run that is
/// cut off before all was asked after.
void RunRecords::distrustService()
{
    distrustsService_ = true;
    accounts_.note("The service shows nothing of a run that this machine has begun: it seems to be "
                   "back at an earlier state. It is asked about all that was stored.");
    if (!request_.isDryRun)
        noteDeletedVersions(request_.stateFolder);
}

/// Whether this run can build on the index: the newest record is the one that the index is at.
/// Where it, or one below it, cannot be read any more, the index still holds everything, and this
/// run stores a full record.
bool RunRecords::isFoundation(ItemIndex& index)
{
    using Kind = RecordFault::Kind;
    if (!WebServiceBroker::isRestoringConfigured()) { // nobody can look, and a full one needs none
        if (!request_.isDryRun)
            index.setPosition({});
        return true;
    }
    try {
        return chain_->isWholeBelow(index.position(), kRecordBytesReadAgain);
    } catch (const RecordFault& fault) {
        if (fault.kind() != Kind::notFound && fault.kind() != Kind::damaged)
            throw;
        accounts_.note(std::string(fault.what()) +
                       " Runs that rest on it cannot be read back; this run stores a full record.");
        if (!request_.isDryRun)
            index.setPosition({});
        return true;
    }
}

/// Another user's or profile's chain of this machine is none of this run's business.
void RunRecords::refuseOthers() const
{
    const auto& others = chain_->otherChains();
    const std::string own = request_.identity.machine + ".";
    if (others.empty() ||
        std::ranges::any_of(others, [&](const std::string& name) { return name.starts_with(own); }))
        return;
    throw RunFault(BackupEnd::otherMachine,
                   "The service holds backups of another machine under the name \"" +
                       request_.account.systemName +
                       "\". If this machine takes its place, adopt them (--adopt); else give this "
                       "one another name (--system).");
}

/// Takes what another identity of the same user and profile stored for known.
bool RunRecords::loadAdopted(ItemIndex& index)
{
    ChainIdentity suffix = request_.identity;
    suffix.machine.clear();
    const std::string ending = chainName(suffix);
    for (const std::string& name : chain_->otherChains()) {
        if (!name.ends_with(ending))
            continue;
        RecordChain other = RecordChain::openNamed(place_, name, state_.spoolFolder());
        if (other.newestFinished() == 0 || !load(other, index))
            continue;
        adoptedChain_ = name;
        adoptedRun_ = other.newestFinished();
        index.setPosition({}); // of a chain of its own
        index.forgetKnownRecords();
        forgetNumbers(index, other.newestRun());
        accounts_.note("The backups of " + name + " are adopted.");
        return false; // asks the service after whatever is not in it
    }
    return false;
}

bool RunRecords::load(RecordChain& chain, ItemIndex& index)
{
    using Kind = RecordFault::Kind;
    try {
        (void)chain.load(chain.newestFinished(), index);
        return true;
    } catch (const RecordFault& fault) {
        if (fault.kind() != Kind::failed && fault.kind() != Kind::notFound &&
            fault.kind() != Kind::damaged)
            throw;
        index.clear();
        accounts_.note(std::string(fault.what()) +
                       " What is on this machine is compared with the service's own listings.");
        return false;
    }
}

std::string streamPathOf(const std::string& name)
{
    return std::filesystem::path("/stdin").append(name).lexically_normal().string();
}

std::vector<std::string> recordedRules(const BackupRules& rules)
{
    using Kind = NotedRule::Kind;
    std::vector<std::string> texts;
    const auto add = [&texts](Kind kind, const std::string& text = {}) {
        texts.push_back(textOf({kind, text}));
    };
    for (const std::string& pattern : rules.include)
        add(Kind::include, pattern);
    for (const std::string& pattern : rules.exclude)
        add(Kind::exclude, pattern);
    if (!rules.excludeLines.empty())
        add(Kind::excludeFrom, rules.excludeLines);
    if (rules.skipsHidden)
        add(Kind::skipsHidden);
    if (rules.skipsCaches)
        add(Kind::skipsCaches);
    if (rules.staysOnFileSystem)
        add(Kind::staysOnFileSystem);
    return texts;
}

RunDescription RunRecords::description() const
{
    RunDescription about;
    about.username = request_.account.username;
    about.systemName = request_.account.systemName;
    about.host = General::localHostName();
    about.identity = request_.identity;
    std::size_t bytes = 0;
    for (const std::string& path : paths_) {
        std::string named = absolute(path);
        bytes += named.size() + kBytesAroundText;
        if (bytes > kMostNamedBytes)
            break;
        about.namedPaths.push_back(std::move(named));
    }
    if (request_.streamDescriptor >= 0)
        about.namedPaths.push_back(streamPathOf(request_.streamName));
    about.rules = recordedRules(request_.rules);
    about.clientVersion = General::productVersion().value_or("unknown");
    about.begun = timestampNow();
    return about;
}

std::uint64_t RunRecords::begin(const ItemIndex& index)
{
    foundation_ = index.position();
    beganSteady_ = std::chrono::steady_clock::now();
    began_ = std::chrono::system_clock::now();
    run_ = chain_->newestRun() + 1;
    if (!request_.isDryRun) {
        accounts_.activity("notes that the run begins");
        run_ = chain_->begin(
            description(), index.position(),
            [this](std::uint64_t run, const std::string& digest) { noteBegunHere(run, digest); });
        chain_->listAnew();
        requireFoundation();
    }
    forgotten_ = forgottenRuns();
    return run_;
}

/// Without it, whoever forgets could not tell this run, once it was cut off, from one of the chain
/// that goes on from another state folder.
void RunRecords::noteBegunHere(std::uint64_t begun, const std::string& digest)
{
    const UploadOwner owner = uploadOwner(request_.account, request_.identity);
    auto runs = state_.runsBegunHere(owner);
    std::set<std::uint64_t> open;
    for (const ListedRun& run : chain_->runs()) {
        if (run.state != RecordState::finished && !run.isForgotten)
            open.insert(run.run);
    }
    std::erase_if(runs, [&open](const auto& run) { return !open.contains(run.first); });
    runs[begun] = digest;
    state_.noteRunsBegunHere(owner, runs);
}

/// Under the machine's name, as "CHAIN/12". Throws when a run that the index was adopted from is
/// one of them.
std::set<std::string> RunRecords::forgottenRuns()
{
    std::set<std::string> runs;
    const auto add = [&runs](const RecordChain& chain) {
        for (const std::uint64_t run : chain.forgottenRuns())
            runs.insert(chain.name() + "/" + std::to_string(run));
    };
    add(*chain_);
    for (const std::string& name : chain_->otherChains()) {
        const auto other = RecordChain::openNamed(place_, name, state_.spoolFolder());
        add(other);
        if (name == adoptedChain_ &&
            (other.isForgotten(adoptedRun_) || !other.isFinished(adoptedRun_)))
            throw RecordFault(RecordFault::Kind::temporary,
                              "The run of " + name +
                                  " that is adopted was forgotten just now. Please run the backup "
                                  "again.");
    }
    return runs;
}

/// What a run builds on must stay what it was: a record that is forgotten names content that is
/// deleted.
void RunRecords::requireFoundation() const
{
    if (foundation_.run == 0 ||
        (!chain_->isForgotten(foundation_.run) && chain_->isFinished(foundation_.run)))
        return;
    throw RecordFault(RecordFault::Kind::temporary,
                      fmt::format("Run {}, which this one builds on, has been forgotten since it "
                                  "began. What is stored stays stored, but of this run there is no "
                                  "record. Please run the backup again.",
                                  foundation_.run));
}

/// The note that this run has begun keeps others from deleting anything, unless they could take it
/// for one that was cut off: a later run of the chain has ended since, or it has taken days.
void RunRecords::refuseIfForgottenMeanwhile()
{
    chain_->listAnew();
    requireFoundation();
    const auto took = std::max<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now() - beganSteady_, std::chrono::system_clock::now() - began_);
    if (chain_->newestFinished() <= run_ && took < kMayBeTakenForCutOff)
        return;
    adoptedChain_.clear();
    if (forgottenRuns() != forgotten_)
        throw RecordFault(RecordFault::Kind::temporary,
                          "Runs were forgotten while this one was under way, which may have been "
                          "taken for one that was cut off: what it relies on may be deleted, and "
                          "there is no record of it. Please run the backup again.");
}

/// Two runs that began at one moment, from state folders that know nothing of each other, have one
/// number. Where the service gives nothing back, nobody can tell.
void RunRecords::refuseTwin()
{
    if (WebServiceBroker::isRestoringConfigured() && !chain_->isNumberOurs())
        throw RecordFault(RecordFault::Kind::failed,
                          "Another run of this machine, user and profile began at the same moment "
                          "and is the one that is recorded; of this one there is no record. Please "
                          "run the backup again, and let only one run at a time.");
}

/// What the run could not store, or found to be stored no more.
std::uint64_t RunRecords::failures() const
{
    const BackupSummary summary = accounts_.summary();
    return summary.failed + summary.stillLost;
}

void RunRecords::storeUnfinished(const ItemIndex& index, std::uint64_t newBytes)
{
    refuseTwin();
    refuseIfForgottenMeanwhile();
    (void)chain_->storeUnfinished(
        index, {.newBytes = newBytes, .failed = failures(), .ended = timestampNow()});
}

StoredRecord RunRecords::storeFinished(ItemIndex& index, std::uint64_t newBytes)
{
    refuseTwin();
    refuseIfForgottenMeanwhile();
    const UploadOwner owner = uploadOwner(request_.account, request_.identity);
    StoredRecord stored =
        chain_->storeFinished(index, {.newBytes = newBytes,
                                      .failed = failures(),
                                      .ended = timestampNow(),
                                      .confirmedUpTo = state_.confirmedLosses(owner)});
    state_.dropConfirmedLosses(owner);
    index.setPosition(stored.position);
    if (stored.isFull) // nobody asks for what changed before it any more
        index.forgetVanished(stored.position.run);
    return stored;
}

} // namespace stowline::backup
