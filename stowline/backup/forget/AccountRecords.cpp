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

/// When the service took the last record of a run that ended after one that was cut off, and whose
/// end shows that: of its chain a later one, or one of the machine that has taken its place, under
/// its name. Absent: there is none, or the service does not tell.
std::optional<std::int64_t> laterEnd(std::vector<AccountRecords::Chain>& chains,
                                     const AccountRecords::Chain& of, std::uint64_t run)
{
    std::optional<std::int64_t> last;
    for (auto& [system, chain] : chains) {
        const bool isSame = &chain == &of.chain;
        const bool counts = isSame ? chain.newestFinished() > run
                                   : system == of.systemName && chain.newestFinished() > 0 &&
                                         isOfOneUser(chain, of.chain);
        const auto moment = counts ? chain.storedAt(chain.newestFinished()) : std::nullopt;
        if (moment)
            last = std::max(last.value_or(*moment), *moment);
    }
    return last;
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

std::optional<OpenRun> runThatHolds(std::vector<AccountRecords::Chain>& chains,
                                    const RecordChain& own)
{
    for (AccountRecords::Chain& entry : chains) {
        RecordChain& chain = entry.chain;
        for (const ListedRun& run : chain.runs()) {
            if (run.isForgotten || run.state == RecordState::finished)
                continue;
            const OpenRun found{entry.systemName, chain.name(), run.run};
            if (&chain == &own) {
                if (chain.newestFinished() > run.run)
                    continue;
                return found;
            }
            const auto last = laterEnd(chains, entry, run.run);
            const auto seen = last ? chain.storedAt(run.run) : std::nullopt;
            if (!seen || *last - *seen <= kWeek)
                return found;
        }
    }
    return std::nullopt;
}

} // namespace stowline::backup
