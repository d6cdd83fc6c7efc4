#include "devserver/page/OverviewHtml.h"

#include "devserver/page/Html.h"
#include "devserver/page/SectionRows.h"
#include "devserver/page/SizePlot.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

namespace stowline::devserver {

namespace {

constexpr std::size_t kMostLines = 50;
constexpr std::size_t kMostPlots = 24;

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

std::vector<Section> sectionsOf(std::int64_t now)
{
    return {
        {.id = "machines",
         .heading = "Machines",
         .columns = {{"Machine"},
                     {"Backup of"},
                     {"Last run (UTC)"},
                     {"Last run without failures (UTC)"},
                     {"Last proof (UTC)"},
                     {"Content last fetched (UTC)"}},
         .whenEmpty = "Nothing is stored yet.",
         .note = "<p class=\"note\">What a run came to is the machine’s own word, from the record "
                 "that the run left; the times are the service’s. <strong>A proof is known here "
                 "only where the machine told it</strong> by an event (<code>stowline backup "
                 "--self-test --monitor</code>): that a self-test restored a sample, all of which "
                 "was well. Whoever sends one needs a monitoring token, not the account’s "
                 "password. Where none came, it is “not told”: there may have been one, which "
                 "<code>stowline runs</code> shows on its machine. That content was fetched is no "
                 "proof: a self-test, a restore and a look at a file are alike.</p>\n",
         .rowsOf = [now](const auto& account) { return machineRows(account, now); }},
        {.id = "space",
         .heading = "Space",
         .columns = {{"Machine"},
                     {"Files", true},
                     {"Newest versions", true},
                     {"All versions", true},
                     {"Deleted, still kept", true},
                     {"Together", true}},
         .note = "<p class=\"note\">Newest versions count with their own sizes, all versions with "
                 "what is stored of them; records of runs are included.</p>\n",
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
         .note = "<p class=\"note\"><code>stowline undelete</code> brings it back. “Left” is the "
                 "least time that the first of them have.</p>\n",
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
    rows.reserve(dated.size());
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
