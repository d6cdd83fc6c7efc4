#include "devserver/StatusPage.h"

#include "stowline/platform/text/Text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace stowline::devserver {

namespace {

constexpr int kMostLines = 50;

constexpr const char* kStyle = R"css(
:root { color-scheme: light dark; }
body { font: 16px/1.5 Helvetica, Arial, sans-serif; margin: 0 auto; max-width: 64rem; padding: 1rem; }
h1 { font-size: 1.5rem; } h2 { font-size: 1.15rem; margin: 1.5rem 0 .25rem; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: .35rem .75rem .35rem 0; border-bottom: 1px solid #8884; vertical-align: top; }
th { white-space: nowrap; }
td { min-width: 6rem; overflow-wrap: anywhere; }
td.number { min-width: 0; }
td.number, th.number { padding-right: 1.5rem; text-align: right; white-space: nowrap; }
.none { opacity: .7; }
.wide { overflow-x: auto; }
)css";

constexpr const char* kScript = R"js(
setInterval(async () => {
  try {
    const page = new DOMParser().parseFromString(await (await fetch("/")).text(), "text/html");
    document.querySelector("main").replaceWith(page.querySelector("main"));
  } catch { /* the service is away; the next time will tell */ }
}, 2000);
)js";

std::string escaped(std::string_view text)
{
    return platform::escapedForHtml(platform::withoutControls(text));
}

/// A column: its heading, and whether it holds numbers.
struct Column {
    const char* heading;
    bool isNumber = false;
};

std::string cell(const char* element, bool isNumber, const std::string& html)
{
    return fmt::format("<{0}{1}>{2}</{0}>", element, isNumber ? " class=\"number\"" : "", html);
}

std::string tableOf(const char* title, const std::vector<Column>& columns,
                    const std::vector<std::vector<std::string>>& rows, const char* whenEmpty)
{
    std::string html = fmt::format("<h2>{}</h2>\n", title);
    if (rows.empty())
        return html + fmt::format("<p class=\"none\">{}</p>\n", whenEmpty);
    html += "<div class=\"wide\"><table><thead><tr>";
    for (const Column& column : columns)
        html += cell("th", column.isNumber, column.heading);
    html += "</tr></thead><tbody>\n";
    for (const auto& row : rows) {
        html += "<tr>";
        for (std::size_t i = 0; i < columns.size(); ++i)
            html += cell("td", columns[i].isNumber, escaped(row[i]));
        html += "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

std::string machines(Storage& storage)
{
    std::vector<std::vector<std::string>> rows;
    for (const MachineSummary& machine : storage.machines())
        rows.push_back({machine.userName, machine.systemName, std::to_string(machine.files),
                        std::to_string(machine.bytes), machine.lastStored});
    return tableOf("Machines",
                   {{"Account"}, {"Machine"}, {"Files", true}, {"Bytes", true}, {"Last stored"}},
                   rows, "Nothing is stored yet.");
}

std::string runs(Storage& storage)
{
    std::vector<std::vector<std::string>> rows;
    for (const RunSummary& run : storage.runs())
        rows.push_back(
            {run.userName, run.systemName, run.chain, run.run, run.state, run.lastStored});
    return tableOf(
        "Runs",
        {{"Account"}, {"Machine"}, {"Chain"}, {"Run", true}, {"State"}, {"Record stored (UTC)"}},
        rows, "No run has left a record.");
}

std::string restores(Storage& storage)
{
    std::vector<std::vector<std::string>> rows;
    for (const ReadSummary& read : storage.reads())
        rows.push_back({read.userName, std::to_string(read.parts), std::to_string(read.bytes),
                        fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(read.lastAt))});
    return tableOf("Downloaded since the service started",
                   {{"Account"}, {"Parts", true}, {"Bytes", true}, {"Last (UTC)"}}, rows,
                   "Nobody has read content.");
}

std::string reports(Journal& journal)
{
    std::vector<std::vector<std::string>> rows;
    for (const JournalLine& line : journal.reports(kMostLines)) {
        const auto text = [&line](const char* name) {
            return platform::findText(line.fields, name);
        };
        rows.push_back({text("machineName"), text("backupDate"), text("numberOfFilesBackedUp"),
                        text("numberOfFilesNotChanged"), text("numberOfFilesNotBackedUp"),
                        text("totalDataTransfered")});
    }
    return tableOf("Last backups",
                   {{"Machine"},
                    {"Backup of"},
                    {"Backed up", true},
                    {"Not changed", true},
                    {"Failed", true},
                    {"Data", true}},
                   rows, "No summary has come in.");
}

std::string events(Journal& journal)
{
    std::vector<std::vector<std::string>> rows;
    for (const JournalLine& line : journal.events(kMostLines)) {
        const auto text = [&line](const char* name) {
            return platform::findText(line.fields, name);
        };
        rows.push_back({line.receivedAt, text("systemName"), text("eventType"),
                        text("backupDuration") + " s", text("uploadedFilesCount"),
                        text("errorFilesCount"), text("clientVersion")});
    }
    return tableOf("Events",
                   {{"Received (UTC)"},
                    {"Machine"},
                    {"Event"},
                    {"Took", true},
                    {"Uploaded", true},
                    {"Failed", true},
                    {"Client"}},
                   rows, "No event has come in.");
}

std::string deletionTable(Deletions& deletions)
{
    std::vector<std::vector<std::string>> rows;
    for (const DeletionState& state : deletions.all())
        rows.push_back({state.systemName, state.path,
                        fmt::format("{} of {}", state.deleted, state.versions),
                        state.isCompleted       ? std::string("completed")
                        : state.isCancelled     ? "cancelled"
                        : state.trouble.empty() ? "in progress"
                                                : "waiting: " + state.trouble});
    return tableOf("Deletions", {{"Machine"}, {"Folder"}, {"Versions", true}, {"State"}}, rows,
                   "No folder is being deleted.");
}

} // namespace

std::string statusPage(Storage& storage, Journal& journal, Deletions& deletions)
{
    return fmt::format("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                       "<noscript><meta http-equiv=\"refresh\" content=\"5\"></noscript>"
                       "<title>Stowline development service</title><style>{}</style></head>\n"
                       "<body><h1>Stowline development service</h1>\n<main>\n{}{}{}{}{}{}</main>\n"
                       "<script>{}</script></body></html>\n",
                       kStyle, machines(storage), runs(storage), restores(storage),
                       reports(journal), events(journal), deletionTable(deletions), kScript);
}

} // namespace stowline::devserver
