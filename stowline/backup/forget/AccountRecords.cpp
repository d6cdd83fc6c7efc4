#include "stowline/backup/forget/AccountRecords.h"

#include <algorithm>
#include <set>

namespace stowline::backup {

namespace {

constexpr std::int64_t kWeek = 7 * 86400;

/// When the service took the newest record of a run of a machine that came to its end; absent: it
/// does not tell, or there is none.
std::optional<std::int64_t> lastEnd(std::vector<AccountRecords::Chain>& chains,
                                    const std::string& systemName)
{
    std::optional<std::int64_t> last;
    for (auto& [system, chain] : chains) {
        if (system != systemName || chain.newestFinished() == 0)
            continue;
        if (const auto moment = chain.storedAt(chain.newestFinished()))
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
    for (auto& [system, chain] : chains) {
        for (const ListedRun& run : chain.runs()) {
            if (run.isForgotten || run.state == RecordState::finished)
                continue;
            if (&chain == &own && chain.newestFinished() > run.run)
                continue;
            const auto seen = chain.storedAt(run.run);
            const auto last = lastEnd(chains, system);
            if (!seen || !last || *last - *seen <= kWeek)
                return OpenRun{system, chain.name(), run.run};
        }
    }
    return std::nullopt;
}

} // namespace stowline::backup
