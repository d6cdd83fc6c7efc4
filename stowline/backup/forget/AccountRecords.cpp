#include "stowline/backup/forget/AccountRecords.h"

#include <algorithm>
#include <set>

namespace stowline::backup {

namespace {

constexpr std::int64_t kWeek = 7 * 86400;

/// Whether chains are of one user and profile, of whichever machine.
bool isOfOneUser(const RecordChain& one, const RecordChain& other)
{
    const auto first = parseChainName(one.name());
    const auto second = parseChainName(other.name());
    return first && second && first->user == second->user && first->profile == second->profile;
}

/// Whether a run has ended after one that was cut off, so that its end shows that: of its chain a
/// later one, or one of the machine that has taken its place, under its name.
bool isLaterEnded(std::vector<AccountRecords::Chain>& chains, const AccountRecords::Chain& of,
                  const OpenRun& open)
{
    return std::ranges::any_of(chains, [&](AccountRecords::Chain& entry) {
        RecordChain& chain = entry.chain;
        if (&chain == &of.chain)
            return chain.newestFinished() > open.run;
        if (entry.systemName != of.systemName || chain.newestFinished() == 0 ||
            !isOfOneUser(chain, of.chain))
            return false;
        const auto ended = chain.storedAt(chain.newestFinished());
        return ended && open.lastSign && *ended > *open.lastSign;
    });
}

/// When the service took the last finished record of the account: it is no earlier now.
std::optional<std::int64_t> newestMoment(std::vector<AccountRecords::Chain>& chains)
{
    std::optional<std::int64_t> newest;
    for (auto& [system, chain] : chains) {
        const std::uint64_t run = chain.newestFinished();
        if (const auto moment = run > 0 ? chain.storedAt(run) : std::nullopt)
            newest = std::max(newest.value_or(*moment), *moment);
    }
    return newest;
}

} // namespace

AccountRecords::AccountRecords(const Account& account, Tries& tries, ContentSource& source,
                               UploadContext& uploads, std::filesystem::path workFolder)
    : account_(account), tries_(tries), source_(source), uploads_(uploads),
      workFolder_(std::move(workFolder))
{
}

ServicePlace& AccountRecords::placeOf(const std::string& systemName)
{
    auto& place = places_[systemName];
    if (!place) {
        Account account = account_;
        account.systemName = systemName;
        place = std::make_unique<ServicePlace>(
            account, tries_, source_, systemName == account_.systemName ? &uploads_ : nullptr);
    }
    return *place;
}

RecordChain* AccountRecords::open(const std::string& chainName)
{
    chains_.clear();
    for (const std::string& system : systemNames(account_, tries_)) {
        ServicePlace& place = placeOf(system);
        for (const std::string& name : place.chains())
            chains_.push_back({system, RecordChain::openNamed(place, name, workFolder_)});
    }
    const auto own = std::ranges::find_if(chains_, [&](const Chain& entry) {
        return entry.systemName == account_.systemName && entry.chain.name() == chainName;
    });
    return own == chains_.end() ? nullptr : &own->chain;
}

AccountRecords::Names AccountRecords::names() const
{
    Names names;
    for (const auto& [system, chain] : chains_)
        names[{system, chain.name()}] = chain.recordNames();
    return names;
}

AccountRecords::Names AccountRecords::namesNow()
{
    Names names;
    for (const std::string& system : systemNames(account_, tries_)) {
        ServicePlace& place = placeOf(system);
        for (const std::string& chain : place.chains()) {
            std::set<RecordName> found;
            for (const RecordFile& file : place.files(chain)) {
                if (const auto name = parseRecordName(file.name))
                    found.insert(*name);
            }
            auto& texts = names[{system, chain}];
            for (const RecordName& name : found)
                texts.push_back(recordNameText(name));
        }
    }
    return names;
}

std::vector<OpenRun> openRuns(std::vector<AccountRecords::Chain>& chains)
{
    std::vector<OpenRun> open;
    std::optional<std::int64_t> now;
    for (AccountRecords::Chain& entry : chains) {
        for (const ListedRun& run : entry.chain.runs()) {
            if (run.isForgotten || run.state == RecordState::finished)
                continue;
            if (open.empty())
                now = newestMoment(chains);
            OpenRun& found = open.emplace_back(OpenRun{.systemName = entry.systemName,
                                                       .chain = entry.chain.name(),
                                                       .run = run.run,
                                                       .lastSign = entry.chain.storedAt(run.run)});
            found.isSilent = now && found.lastSign && *now - *found.lastSign > kWeek;
            found.isLaterEnded = isLaterEnded(chains, entry, found);
        }
    }
    return open;
}

std::optional<OpenRun> runThatHolds(std::vector<AccountRecords::Chain>& chains,
                                    const RecordChain& own, const KnownRuns& known)
{
    const auto ownEntry = std::ranges::find_if(
        chains, [&own](const AccountRecords::Chain& entry) { return &entry.chain == &own; });
    for (const OpenRun& run : openRuns(chains)) {
        const bool isOwn = ownEntry != chains.end() && run.chain == own.name() &&
                           run.systemName == ownEntry->systemName;
        const bool isOver = run.isSilent || (isOwn && known.over.contains(run.run));
        const bool isGivenUp = !isOwn && known.isGivenUp && known.isGivenUp(run);
        if (!isOver || (!run.isLaterEnded && !isGivenUp))
            return run;
    }
    return std::nullopt;
}

} // namespace stowline::backup
