#include "devserver/page/OverviewHtml.h"

#include "devserver/page/Html.h"
#include "devserver/page/SizePlot.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <functional>

namespace stowline::devserver {

namespace {

constexpr std::size_t kMostLines = 50;
constexpr std::size_t kMostPlots = 24;
constexpr std::int64_t kDay = 86400;

/// A row with the moment by which rows of several accounts are put in order.
struct DatedRow {
    std::string when;
    Row row;
};

/// What a section tells of one account.
using RowsOf = std::function<std::vector<DatedRow>(const AccountOverview&)>;

struct Section {
    const char* id;
    const char* heading;
    std::vector<Column> columns; ///< after the account's, which only an administrator is shown
    std::size_t naming = 0;      ///< of these columns
    const char* whenEmpty = "";
    const char* note = ""; ///< HTML below the heading
    bool isByTime = false; ///< the newest first, and no more than fifty
    RowsOf rowsOf;
};

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
    if (state == "finished")
        return run.head
                   ? (run.head->failed == 0 ? "finished"
                                            : fmt::format("finished, {} failed", run.head->failed))
                   : "finished; its record cannot be read";
    if (state.starts_with("unfinished"))
        return "not finished";
    if (state == "begun")
        return "begun";
    return state == "forgotten" ? "being forgotten" : htmlText(state);
}

std::string chainName(const std::string& chain)
{
    return chain.empty() ? "<span class=\"none\">no run has left a record</span>"
                         : htmlName(chainText(chain));
}

/// A moment of universal time, as text, with how long ago it was.
std::string momentAndAge(const std::string& moment, std::int64_t now)
{
    std::tm fields{};
    if (::strptime(moment.c_str(), "%Y-%m-%d %H:%M:%S", &fields) == nullptr)
        return htmlTime(moment);
    const std::string age = agoText(now - static_cast<std::int64_t>(::timegm(&fields)));
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

std::vector<DatedRow> machineRows(const AccountOverview& account, std::int64_t now)
{
    std::vector<DatedRow> rows;
    for (const ShownChain& chain : account.chains)
        rows.push_back({"",
                        {chain.systemName + "\n" + chain.chain,
                         {htmlName(chain.systemName), chainName(chain.chain),
                          lastRunHtml(chain, now), lastGoodHtml(chain, now),
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

std::vector<Section> sectionsOf(std::int64_t now)
{
    return {
        {.id = "machines",
         .heading = "Machines",
         .columns = {{"Machine"},
                     {"Backup of"},
                     {"Last run (UTC)"},
                     {"Last run with nothing failed (UTC)"},
                     {"Content last fetched (UTC)"}},
         .whenEmpty = "Nothing is stored yet.",
         .note = "<p class=\"note\">What a run came to is the machine’s own word, from the record "
                 "that the run left; the times are the service’s. <strong>When a backup was last "
                 "proven is not known here:</strong> what a self-test finds stays on its machine, "
                 "where <code>stowline runs</code> shows it. The service sees only that content "
                 "was fetched, by a self-test, a restore or a look at a file alike.</p>\n",
         .rowsOf = [now](const auto& account) { return machineRows(account, now); }},
        {.id = "space",
         .heading = "Space",
         .columns = {{"Machine"},
                     {"Files", true},
                     {"Newest versions", true},
                     {"All versions", true},
                     {"Deleted, still kept", true},
                     {"Together", true}},
         .note =
             "<p class=\"note\">Of the newest versions their own sizes, of all versions what is "
             "stored of them, records of runs too.</p>\n",
         .rowsOf = spaceRows},
        {.id = "failures",
         .heading = "Failures",
         .columns = {{"When (UTC)"}, {"Machine"}, {"What"}},
         .naming = 2,
         .whenEmpty = "The service knows of none. It cannot know of a machine that is switched off "
                      "or no longer backs up: see the last run of each.",
         .isByTime = true,
         .rowsOf = failureRows},
        {.id = "runs",
         .heading = "Runs",
         .columns = {{"Run"},
                     {"Machine"},
                     {"Backup of"},
                     {"State"},
                     {"Record stored (UTC)"},
                     {"Items", true},
                     {"New", true},
                     {"In all", true}},
         .whenEmpty = "No run has left a record.",
         .isByTime = true,
         .rowsOf = runRows},
        {.id = "restores",
         .heading = "Content fetched",
         .columns =
             {{"Machine"}, {"From (UTC)"}, {"To (UTC)"}, {"Requests", true}, {"Bytes", true}},
         .whenEmpty = "Nobody has fetched content.",
         .note = "<p class=\"note\">By restores, by looks at single files, by verify --read and by "
                 "self-tests: the service cannot tell which. Requests with less than ten minutes "
                 "between them are one row.</p>\n",
         .isByTime = true,
         .rowsOf = readRows},
        {.id = "grace",
         .heading = "Deleted and still kept",
         .columns =
             {{"Machine"}, {"Deleted on (UTC)"}, {"Versions", true}, {"Bytes", true}, {"Left"}},
         .whenEmpty = "Nothing.",
         .note = "<p class=\"note\"><code>stowline undelete</code> brings it back. Left is what "
                 "the first of them have at least.</p>\n",
         .rowsOf = graceRows},
        {.id = "deletions",
         .heading = "Deletions of folders",
         .columns = {{"Folder"}, {"Machine"}, {"Versions", true}, {"State"}},
         .whenEmpty = "No folder is being deleted.",
         .rowsOf = deletionRows},
        {.id = "reports",
         .heading = "Last backups",
         .columns = {{"Machine"},
                     {"Backup of"},
                     {"Backed up", true},
                     {"Not changed", true},
                     {"Failed", true},
                     {"Data", true}},
         .whenEmpty = "No summary has come in.",
         .note = "<p class=\"note\">Summaries as the machines sent them.</p>\n",
         .isByTime = true,
         .rowsOf = reportRows},
        {.id = "events",
         .heading = "Events",
         .columns = {{"Event"},
                     {"Machine"},
                     {"Received (UTC)"},
                     {"Took", true},
                     {"Uploaded", true},
                     {"Failed", true},
                     {"Client"}},
         .whenEmpty = "No event has come in.",
         .note = "<p class=\"note\">As their senders gave them, who need a monitoring token, not "
                 "the account’s password.</p>\n",
         .isByTime = true,
         .rowsOf = eventRows},
    };
}

std::string sectionHtml(const Section& section, const Overview& overview)
{
    std::vector<DatedRow> dated;
    for (const AccountOverview& account : overview.accounts) {
        for (DatedRow& row : section.rowsOf(account)) {
            row.row.key = account.userName + "\n" + row.row.key;
            if (overview.isOfAll)
                row.row.cells.insert(row.row.cells.begin(), htmlName(account.userName));
            dated.push_back(std::move(row));
        }
    }
    if (section.isByTime) {
        std::ranges::stable_sort(dated, std::ranges::greater(), &DatedRow::when);
        dated.resize(std::min(dated.size(), kMostLines));
    }
    std::vector<Row> rows;
    for (DatedRow& row : dated)
        rows.push_back(std::move(row.row));
    std::vector<Column> columns = section.columns;
    if (overview.isOfAll)
        columns.insert(columns.begin(), {"Account"});
    const std::string heading = fmt::format("{}-heading", section.id);
    return fmt::format("<section id=\"{0}\" aria-labelledby=\"{1}\"><h2 id=\"{1}\">{2}</h2>\n",
                       section.id, heading, section.heading) +
           section.note +
           (rows.empty()
                ? fmt::format("<p class=\"none\">{}</p>\n", section.whenEmpty)
                : htmlTable(heading, columns, rows, section.naming + (overview.isOfAll ? 1 : 0))) +
           (dated.size() == kMostLines && section.isByTime
                ? fmt::format("<p class=\"note\">The last {}.</p>\n", kMostLines)
                : "") +
           "</section>\n";
}

std::string plotsHtml(const Overview& overview)
{
    std::string html =
        "<section id=\"size\" aria-labelledby=\"size-heading\"><h2 id=\"size-heading\">Size over "
        "time</h2>\n<p class=\"note\">What the service holds, as it was noted at the end of each "
        "run and each hour. <span class=\"key held\">Held</span>; <span class=\"key "
        "deleted\">of it deleted and still kept</span>.</p>\n";
    std::size_t place = 0;
    for (const AccountOverview& account : overview.accounts) {
        if (place == kMostPlots)
            break;
        html += plotFigure(fmt::format("plot-{}", ++place), account.userName, account.notes);
    }
    if (overview.accounts.size() > kMostPlots)
        html += fmt::format("<p class=\"note\">Of the first {} accounts.</p>\n", kMostPlots);
    return html + "</section>\n";
}

std::string contents(const std::vector<Section>& sections)
{
    std::string html = "<nav id=\"sections\" aria-label=\"Sections\"><ul>\n";
    for (const Section& section : sections) {
        html += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", section.id, section.heading);
        if (std::string_view(section.id) == "space")
            html += "<li><a href=\"#size\">Size over time</a></li>\n";
    }
    return html + "</ul></nav>\n";
}

} // namespace

std::string overviewHtml(const Overview& overview)
{
    const std::vector<Section> sections = sectionsOf(overview.madeAt);
    std::string html = contents(sections);
    if (overview.moreAccounts > 0)
        html += fmt::format("<p class=\"note\">{} more accounts are not shown.</p>\n",
                            overview.moreAccounts);
    for (const Section& section : sections) {
        html += sectionHtml(section, overview);
        if (std::string_view(section.id) == "space")
            html += plotsHtml(overview);
    }
    return html;
}

} // namespace stowline::devserver
