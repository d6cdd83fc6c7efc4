#include "devserver/page/Overview.h"

#include "devserver/page/Html.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace stowline::devserver {

namespace {

constexpr int kMostLines = 50;
constexpr std::size_t kMostAccounts = 200;
constexpr int kMostRecordsOfChain = 60;
constexpr std::int64_t kLongForARun = 86400; ///< seconds since its newest record

using ChainName = std::pair<std::string, std::string>; ///< machine and chain

bool isFinished(const StoredRecord& record)
{
    return record.state == "finished";
}

bool isGood(const ShownRun& run)
{
    return isFinished(run.record) && run.head && run.head->failed == 0;
}

/// The runs that records tell of, newest first: of each its newest record, but the finished one
/// where there is one. Not those that a note says are forgotten.
std::vector<ShownRun> runsOf(const OverviewSources& sources, const std::string& userName)
{
    std::vector<ShownRun> runs;
    std::map<std::tuple<std::string, std::string, std::string>, std::size_t> places;
    for (StoredRecord& record : sources.storage.records(userName, kMostRecordsOfChain)) {
        const auto [place, isNew] =
            places.try_emplace({record.systemName, record.chain, record.run}, runs.size());
        if (isNew)
            runs.push_back({std::move(record), std::nullopt});
        else if (isFinished(record) && runs[place->second].record.state != "forgotten")
            runs[place->second].record = std::move(record);
    }
    std::erase_if(runs, [](const ShownRun& run) { return run.record.state == "forgotten"; });
    for (ShownRun& run : runs) {
        if (isFinished(run.record))
            run.head = sources.heads.of(sources.storage, run.record);
    }
    return runs;
}

std::vector<ShownChain> chainsOf(const AccountOverview& account)
{
    std::map<ChainName, ShownChain> chains;
    std::set<std::string> named;
    for (const ShownRun& run : account.runs) {
        ShownChain& chain = chains[{run.record.systemName, run.record.chain}];
        named.insert(run.record.systemName);
        ++chain.looked;
        if (!chain.last)
            chain.last = run;
        if (!chain.lastGood && isGood(run))
            chain.lastGood = run;
    }
    for (const MachineSummary& machine : account.machines) {
        if (!named.contains(machine.systemName))
            chains[{machine.systemName, ""}];
    }
    std::vector<ShownChain> list;
    for (auto& [name, chain] : chains) {
        std::tie(chain.systemName, chain.chain) = name;
        for (const ReadSpan& read : account.reads) {
            if (read.systemName == chain.systemName)
                chain.lastRead = std::max(chain.lastRead.value_or(read.lastAt), read.lastAt);
        }
        list.push_back(std::move(chain));
    }
    return list;
}

/// What an event calls the backup of a chain: "iMac", "iMac (profile docs)".
std::string eventSystem(const ShownChain& chain)
{
    const std::string profile = profileOfChain(chain.chain);
    return profile == "default" ? chain.systemName
                                : chain.systemName + " (profile " + profile + ")";
}

ShownSelfTest selfTestOf(const JournalLine& event)
{
    const auto count = [&event](const char* name) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(
            platform::leadingInteger(platform::findText(event.fields, name)), 0));
    };
    return {event.receivedAt, count("errorFilesCount"), count("totalFilesCount"),
            count("unchangedFilesCount")};
}

/// What events tell of self-tests; they name machine and profile, but no user of the machine.
void addSelfTests(std::vector<ShownChain>& chains, const std::vector<JournalLine>& newestFirst)
{
    std::map<std::string, std::size_t> named;
    for (const ShownChain& chain : chains) {
        if (!chain.chain.empty())
            ++named[eventSystem(chain)];
    }
    for (ShownChain& chain : chains) {
        const std::string system = eventSystem(chain);
        chain.isOneOfSeveral = named[system] > 1;
        if (chain.chain.empty())
            continue;
        for (const JournalLine& event : newestFirst) {
            if (platform::findText(event.fields, "systemName") != system || chain.proof)
                continue;
            if (platform::findText(event.fields, "eventType") == "SelfTestEnded")
                chain.proof = selfTestOf(event);
            else if (platform::findText(event.fields, "eventType") == "SelfTestEndedWithErrors")
                chain.failed = selfTestOf(event);
        }
    }
}

/// What the records tell of runs that did not go well.
void addRunFailures(const AccountOverview& account, std::int64_t now,
                    std::vector<ShownFailure>& failures)
{
    std::set<ChainName> chains;
    for (const ShownRun& run : account.runs) {
        const StoredRecord& record = run.record;
        const bool isLast = chains.insert({record.systemName, record.chain}).second;
        const auto tell = [&](const std::string& what) {
            failures.push_back(
                {record.storedAt, record.systemName,
                 fmt::format("Run {} {}", platform::leadingInteger(record.run), what)});
        };
        if (isFinished(record) && !run.head)
            tell("left a record that cannot be read: it is damaged, or of a later version.");
        else if (isFinished(record) && run.head->failed > 0)
            tell(fmt::format("could not back up {}.",
                             platform::countText(run.head->failed, "item", "items")));
        else if (isFinished(record))
            continue;
        else if (!isLast)
            tell("began and never finished.");
        else if (now - secondsOf(record.storedAt).value_or(now) >= kLongForARun)
            tell("began and has not been heard of for a day or longer.");
    }
}

void addReportedFailures(const AccountOverview& account, std::vector<ShownFailure>& failures)
{
    for (const JournalLine& line : account.reports) {
        const auto count =
            platform::leadingInteger(platform::findText(line.fields, "numberOfFilesNotBackedUp"));
        if (count > 0)
            failures.push_back(
                {line.receivedAt, platform::findText(line.fields, "machineName"),
                 "A summary counts " +
                     platform::countText(static_cast<std::uint64_t>(count), "failure", "failures") +
                     "."});
    }
    for (const JournalLine& line : account.events) {
        const std::string type = platform::findText(line.fields, "eventType");
        const std::string count = platform::findText(line.fields, "errorFilesCount");
        if (type.find("Error") != std::string::npos ||
            type.find("Suspended") != std::string::npos || platform::leadingInteger(count) > 0)
            failures.push_back({line.receivedAt, platform::findText(line.fields, "systemName"),
                                fmt::format("Event {}, failures counted: {}.", type,
                                            count.empty() ? "0" : count)});
    }
}

std::vector<ShownFailure> failuresOf(const AccountOverview& account, std::int64_t now)
{
    std::vector<ShownFailure> failures;
    addRunFailures(account, now, failures);
    addReportedFailures(account, failures);
    std::ranges::stable_sort(failures, std::ranges::greater(), &ShownFailure::when);
    if (failures.size() > kMostLines)
        failures.resize(kMostLines);
    std::vector<ShownFailure> standing;
    for (const MachineSummary& machine : account.machines) {
        if (machine.damaged > 0)
            standing.push_back({"", machine.systemName,
                                platform::countText(static_cast<std::uint64_t>(machine.damaged),
                                                    "stored version is", "stored versions are") +
                                    " known to be damaged."});
    }
    for (const DeletionState& deletion : account.deletions) {
        if (!deletion.trouble.empty())
            standing.push_back({"", deletion.systemName, "A deletion waits: " + deletion.trouble});
    }
    failures.insert(failures.begin(), standing.begin(), standing.end());
    return failures;
}

/// The last note is of now, to the minute: a page on which nothing happens stays the same for it.
void addNow(AccountOverview& account, std::int64_t now)
{
    constexpr std::int64_t minute = 60;
    std::erase_if(account.notes, [now](const SpaceNote& note) { return note.at > now; });
    std::int64_t at = now - now % minute;
    if (!account.notes.empty() && account.notes.back().at >= at) {
        at = account.notes.back().at;
        account.notes.pop_back();
    }
    account.notes.push_back({at, account.usedBytes, account.graceBytes});
}

AccountOverview overviewOf(const OverviewSources& sources, const std::string& userName,
                           const std::vector<DeletionState>& deletions, std::int64_t now)
{
    AccountOverview account{.userName = userName};
    account.machines = sources.storage.machines(userName);
    account.usedBytes = sources.storage.usedBytes(userName);
    account.graceBytes = sources.storage.graceBytes(userName);
    account.notes = sources.storage.spaceNotes(userName);
    addNow(account, now);
    account.runs = runsOf(sources, userName);
    account.reads = sources.storage.reads(userName);
    account.grace = sources.storage.graceGroups(userName, kMostLines);
    account.reports = sources.journal.reports(kMostLines, &userName);
    account.events = sources.journal.events(kMostLines, &userName);
    std::ranges::copy_if(
        deletions, std::back_inserter(account.deletions),
        [&](const DeletionState& deletion) { return deletion.userName == userName; });
    account.chains = chainsOf(account);
    addSelfTests(account.chains, sources.journal.selfTests(userName));
    account.failures = failuresOf(account, now);
    return account;
}

} // namespace

std::optional<RunHead> RunHeads::of(Storage& storage, const StoredRecord& record)
{
    constexpr std::size_t mostKnown = 20000;
    {
        const std::lock_guard lock(mutex_);
        if (const auto known = known_.find(record.version); known != known_.end())
            return known->second;
    }
    const auto head =
        readRunHead([&](std::size_t length) { return storage.beginningOf(record, length); });
    const std::lock_guard lock(mutex_);
    if (known_.size() >= mostKnown)
        known_.clear();
    if (head)
        known_.emplace(record.version, *head);
    return head;
}

Overview makeOverview(const OverviewSources& sources, const std::vector<std::string>& userNames)
{
    Overview overview;
    overview.madeAt = sources.storage.secondsNow();
    const std::vector<DeletionState> deletions = sources.deletions.all();
    for (const std::string& userName : userNames) {
        if (overview.accounts.size() == kMostAccounts) {
            overview.moreAccounts = userNames.size() - kMostAccounts;
            break;
        }
        overview.accounts.push_back(overviewOf(sources, userName, deletions, overview.madeAt));
    }
    return overview;
}

} // namespace stowline::devserver
