#include "devserver/page/SectionRows.h"

#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

constexpr std::int64_t kDay = 86400;

std::string number(std::uint64_t value)
{
    return std::to_string(value);
}

/// A field of a report or an event as its sender gave it.
std::string field(const JournalLine& line, const char* name)
{
    return htmlText(platform::findText(line.fields, name));
}

std::string plainNumber(const std::string& digits)
{
    return std::to_string(platform::leadingInteger(digits));
}

std::string stateText(const ShownRun& run)
{
    const std::string& state = run.record.state;
    if (state == "finished" && !run.head)
        return "finished; <strong class=\"bad\">its record cannot be read</strong>";
    if (state == "finished")
        return run.head->failed == 0 ? "finished"
                                     : fmt::format("finished, <strong class=\"bad\">{} failed"
                                                   "</strong>",
                                                   run.head->failed);
    if (state.starts_with("unfinished"))
        return "not finished";
    if (state == "begun")
        return "begun";
    return htmlText(state);
}

std::string chainName(const std::string& chain)
{
    return chain.empty() ? "<span class=\"none\">no run has left a record</span>"
                         : htmlName(chainText(chain));
}

/// A moment of universal time, as text, with how long ago it was.
std::string momentAndAge(const std::string& moment, std::int64_t now)
{
    const auto at = secondsOf(moment);
    const std::string age = at ? agoText(now - *at) : "";
    return htmlTime(moment) + (age.empty() ? "" : "<br><small>" + age + "</small>");
}

std::string lastRunHtml(const ShownChain& chain, std::int64_t now)
{
    if (!chain.last)
        return "–";
    return fmt::format("Run {}: {}<br>{}", plainNumber(chain.last->record.run),
                       stateText(*chain.last), momentAndAge(chain.last->record.storedAt, now));
}

std::string lastGoodHtml(const ShownChain& chain, std::int64_t now)
{
    if (chain.lastGood)
        return fmt::format("Run {}<br>{}", plainNumber(chain.lastGood->record.run),
                           momentAndAge(chain.lastGood->record.storedAt, now));
    return chain.looked == 0
               ? "–"
               : fmt::format("<strong class=\"bad\">none of the last {}</strong>", chain.looked);
}

/// What a self-test said of all contents of kept runs.
std::string provenText(const ShownSelfTest& test)
{
    return fmt::format("{} of {} proven within 30 days then", number(test.proven),
                       platform::countText(test.files, "content", "contents"));
}

std::string proofHtml(const ShownChain& chain, std::int64_t now)
{
    if (!chain.proof && !chain.failed)
        return chain.chain.empty() ? "–" : "<span class=\"none\">not told</span>";
    std::string html;
    if (chain.failed)
        html = fmt::format("<strong class=\"bad\">not well{}</strong><br>{}",
                           chain.failed->lost == 0
                               ? ""
                               : fmt::format(": {} lost or different", chain.failed->lost),
                           momentAndAge(chain.failed->when, now));
    if (chain.proof)
        html += (html.empty() ? "" : "<br>last well: ") + momentAndAge(chain.proof->when, now);
    html += "<br><small>" + provenText(chain.failed ? *chain.failed : *chain.proof) + "</small>";
    if (chain.isOneOfSeveral)
        html += "<br><small>of this backup or another one of that name and profile</small>";
    return html;
}

} // namespace

std::vector<DatedRow> machineRows(const AccountOverview& account, std::int64_t now)
{
    std::vector<DatedRow> rows;
    for (const ShownChain& chain : account.chains)
        rows.push_back({"",
                        {chain.systemName + "\n" + chain.chain,
                         {htmlName(chain.systemName), chainName(chain.chain),
                          lastRunHtml(chain, now), lastGoodHtml(chain, now), proofHtml(chain, now),
                          chain.lastRead ? momentAndAge(momentText(*chain.lastRead), now) : "–"}}});
    return rows;
}

std::vector<DatedRow> spaceRows(const AccountOverview& account)
{
    std::int64_t files = 0;
    for (const MachineSummary& machine : account.machines)
        files += machine.files;
    std::vector<DatedRow> rows{
        {"",
         {"all",
          {"<strong>All of the account</strong>", std::to_string(files), "–",
           sizeText(account.usedBytes - account.graceBytes), sizeText(account.graceBytes),
           "<strong>" + sizeText(account.usedBytes) + "</strong>"}}}};
    for (const MachineSummary& machine : account.machines)
        rows.push_back({"",
                        {"of " + machine.systemName,
                         {htmlName(machine.systemName), std::to_string(machine.files),
                          sizeText(machine.bytes), sizeText(machine.storedBytes), "–", "–"}}});
    return rows;
}

std::vector<DatedRow> runRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    for (const ShownRun& run : account.runs) {
        const StoredRecord& record = run.record;
        const auto told = [&](auto&& text) { return run.head ? text(*run.head) : "–"; };
        rows.push_back(
            {record.storedAt,
             {record.systemName + "\n" + record.chain + "\n" + record.run,
              {plainNumber(record.run), htmlName(record.systemName),
               htmlName(chainText(record.chain)), stateText(run), htmlTime(record.storedAt),
               told([](const RunHead& head) { return number(head.items); }),
               told([](const RunHead& head) { return sizeText(head.newBytes); }),
               told([](const RunHead& head) { return sizeText(head.bytes); })}}});
    }
    return rows;
}

std::vector<DatedRow> readRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    for (const ReadSpan& read : account.reads)
        rows.push_back(
            {momentText(read.began),
             {fmt::format("{}\n{}", read.systemName, read.began),
              {htmlName(read.systemName), htmlTime(momentText(read.began)),
               htmlTime(momentText(read.lastAt)), number(read.parts), sizeText(read.bytes)}}});
    return rows;
}

std::vector<DatedRow> failureRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    for (const ShownFailure& failure : account.failures)
        rows.push_back({failure.when.empty() ? "now" : failure.when, // before all moments
                        {failure.when + failure.systemName + "\n" + failure.what,
                         {failure.when.empty() ? "now" : htmlTime(failure.when),
                          htmlName(failure.systemName), htmlText(failure.what)}}});
    return rows;
}

std::vector<DatedRow> graceRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    for (const GraceGroup& group : account.grace) {
        const auto days = static_cast<std::uint64_t>((group.secondsLeft + kDay - 1) / kDay);
        rows.push_back({"",
                        {group.systemName + "\n" + group.deletedOn,
                         {htmlName(group.systemName), htmlText(group.deletedOn),
                          std::to_string(group.versions), sizeText(group.bytes),
                          days == 0 ? "over" : platform::countText(days, "day", "days")}}});
    }
    return rows;
}

std::vector<DatedRow> deletionRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    for (const DeletionState& state : account.deletions)
        rows.push_back({"",
                        {state.guid,
                         {htmlName(state.path), htmlName(state.systemName),
                          fmt::format("{} of {}", state.deleted, state.versions),
                          state.isCompleted       ? std::string("completed")
                          : state.isCancelled     ? "cancelled"
                          : state.trouble.empty() ? "in progress"
                                                  : "waiting: " + htmlText(state.trouble)}}});
    return rows;
}

std::vector<DatedRow> reportRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    std::size_t place = account.reports.size();
    for (const JournalLine& line : account.reports)
        rows.push_back(
            {line.receivedAt,
             {fmt::format("{} {}", line.receivedAt, place--),
              {htmlName(platform::findText(line.fields, "machineName")), field(line, "backupDate"),
               field(line, "numberOfFilesBackedUp"), field(line, "numberOfFilesNotChanged"),
               field(line, "numberOfFilesNotBackedUp"), field(line, "totalDataTransfered")}}});
    return rows;
}

std::vector<DatedRow> eventRows(const AccountOverview& account)
{
    std::vector<DatedRow> rows;
    std::size_t place = account.events.size();
    for (const JournalLine& line : account.events)
        rows.push_back(
            {line.receivedAt,
             {fmt::format("{} {}", line.receivedAt, place--),
              {field(line, "eventType"), htmlName(platform::findText(line.fields, "systemName")),
               htmlTime(line.receivedAt), field(line, "backupDuration") + " s",
               field(line, "uploadedFilesCount"), field(line, "errorFilesCount"),
               field(line, "clientVersion")}}});
    return rows;
}

} // namespace stowline::devserver
