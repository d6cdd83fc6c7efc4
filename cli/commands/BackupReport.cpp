#include "cli/commands/BackupReport.h"

#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Logging.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace stowline::cli {

namespace {

using backup::BackupEnd;
using backup::BackupProgress;
using backup::BackupSummary;
using backup::ItemReport;
using backup::ItemState;
using std::chrono::steady_clock;

constexpr std::size_t kFailuresShown = 20;
constexpr std::size_t kFailuresListed = 100000;
constexpr std::chrono::seconds kBetweenLines{60};
/// Before that, how fast it goes is chance.
constexpr std::chrono::seconds kUntilTimeLeft{2};

/// Seconds, to the nearest thousandth.
double inMilliseconds(double seconds)
{
    return std::round(seconds * 1000) / 1000;
}

/// Items that were found and did not end: only of a run that was cut off.
std::uint64_t unfinishedOf(const BackupSummary& summary)
{
    const std::uint64_t ended = summary.stored + summary.wouldStore + summary.unchanged +
                                summary.recorded + summary.excluded + summary.failed;
    return summary.found > ended ? summary.found - ended : 0;
}

Fields fieldsOf(const BackupSummary& summary)
{
    Fields fields{{"found", summary.found},
                  {"stored", summary.stored},
                  {"resumed", summary.resumed},
                  {"unchanged", summary.unchanged},
                  {"recorded", summary.recorded},
                  {"excluded", summary.excluded},
                  {"failed", summary.failed},
                  {"would_store", summary.wouldStore},
                  {"carried_forward", summary.carriedForward},
                  {"changed_while_read", summary.changedWhileRead},
                  {"bytes", summary.storedBytes},
                  {"parts", summary.sentParts},
                  {"left_out", summary.excluded},
                  {"seconds", inMilliseconds(summary.seconds)},
                  {"registration_seconds", inMilliseconds(summary.registrationSeconds)},
                  {"run", summary.run},
                  {"record", summary.recordDigest},
                  {"record_items", summary.recordItems},
                  {"record_bytes", summary.recordBytes},
                  {"unfinished", unfinishedOf(summary)},
                  {"vanished_versions", summary.vanishedVersions},
                  {"still_lost", summary.stillLost}};
    return fields;
}

std::string files(std::uint64_t count, std::uint64_t bytes)
{
    return fmt::format("{} ({})", countText(count, "file", "files"),
                       bytesText(static_cast<double>(bytes)));
}

} // namespace

ExitStatus statusOf(BackupEnd end)
{
    switch (end) {
    case BackupEnd::done:
        return ExitStatus::done;
    case BackupEnd::someFailed:
        return ExitStatus::someItemsFailed;
    case BackupEnd::nothingThere:
        return ExitStatus::notFound;
    case BackupEnd::interrupted:
        return Interruptible::request().value_or(ExitStatus::interrupted);
    case BackupEnd::locked:
        return ExitStatus::locked;
    case BackupEnd::badRequest:
        return ExitStatus::usage;
    case BackupEnd::temporary:
        return ExitStatus::temporary;
    case BackupEnd::refused:
        return ExitStatus::refused;
    case BackupEnd::rolledBack:
        return ExitStatus::checksumMismatch;
    case BackupEnd::stateFolder:
    case BackupEnd::otherMachine:
    case BackupEnd::failed:
        break;
    }
    return ExitStatus::failed;
}

std::string backupProgressLine(const BackupProgress& progress,
                               std::chrono::duration<double> elapsed, std::size_t columns)
{
    const auto part = [](std::uint64_t done, std::uint64_t all) {
        return all == 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(all));
    };
    const double items = part(progress.doneItems, progress.foundItems);
    const double bytes = part(progress.doneBytes, progress.foundBytes);
    const double done = progress.foundItems == 0 ? 0 : std::min(items, bytes);
    std::vector<std::string> facts;
    if (progress.isWalkOver)
        facts.push_back(fmt::format("{}%", static_cast<int>(done * 100)));
    facts.push_back(fmt::format("{} of {}{}", progress.doneItems,
                                progress.isWalkOver ? "" : "at least ",
                                countText(progress.foundItems, "item", "items")));
    facts.push_back(bytesText(static_cast<double>(progress.doneBytes)) + " of " +
                    bytesText(static_cast<double>(progress.foundBytes)));
    if (progress.sentBytes > 0 && elapsed.count() > 0)
        facts.push_back(bytesText(static_cast<double>(progress.sentBytes) / elapsed.count()) +
                        "/s");
    if (progress.isWalkOver && elapsed >= kUntilTimeLeft && done > 0.01)
        facts.push_back(durationText(elapsed * ((1 - done) / done)) + " left");
    if (!progress.activity.empty())
        facts.push_back(onOneLine(progress.activity));
    std::string line;
    for (const std::string& fact : facts) {
        const std::size_t room = columns - std::min(columns, line.size() + 2);
        if (room == 0 || (fact.size() > room && &fact != &facts.back()))
            break;
        const std::string fitting = fact.substr(0, room);
        line += (line.empty() ? "" : "  ") +
                fitting.substr(0, platform::validUtf8PrefixLength(fitting));
    }
    return line;
}

std::string backupSentences(const BackupSummary& summary)
{
    std::string text;
    const auto say = [&text](const std::string& sentence) {
        text += (text.empty() ? "" : "\n") + sentence;
    };
    if (summary.wouldStore > 0)
        say("Would store " + files(summary.wouldStore, summary.wouldStoreBytes) + ".");
    else
        say("Stored " + files(summary.stored, summary.storedBytes) +
            (summary.resumed == 0
                 ? std::string()
                 : fmt::format(", {} of them begun by an earlier run", summary.resumed)) +
            ".");
    say("Unchanged: " + files(summary.unchanged, summary.unchangedBytes) + ".");
    say("Recorded without content: " +
        countText(summary.recorded, "folder, link or the like", "folders, links and the like") +
        ".");
    if (summary.excluded > 0)
        say("Left out by rules: " + countText(summary.excluded, "item", "items") + ".");
    if (summary.changedWhileRead > 0)
        say("Changed while they were read, so what is stored mixes several states of them: " +
            countText(summary.changedWhileRead, "file", "files") + ".");
    if (summary.carriedForward > 0)
        say("Kept as an earlier run saw them, because this one could not look: " +
            countText(summary.carriedForward, "item", "items") + ".");
    say("Failed: " + countText(summary.failed, "item", "items") + ".");
    if (const std::uint64_t unfinished = unfinishedOf(summary))
        say("Not finished: " + countText(unfinished, "item", "items") + ".");
    say(fmt::format("{} in all, in {}.", countText(summary.found, "item", "items"),
                    durationText(std::chrono::duration<double>(summary.seconds))));
    if (summary.run > 0)
        say(fmt::format("This was run {}. Its record begins with {} and holds {} with {}: the "
                        "folders above what was named too, and nothing that was left out.",
                        summary.run, summary.recordDigest.substr(0, 12),
                        countText(summary.recordItems, "item", "items"),
                        bytesText(static_cast<double>(summary.recordBytes))));
    return text;
}

void BackupReport::itemDone(const ItemReport& report)
{
    const std::lock_guard lock(mutex_);
    if ((report.state == ItemState::failed || report.changedWhileRead) &&
        failures_.size() < kFailuresListed)
        failures_.push_back(report.cause);
    if (output().isJson() || namesItems() || report.state == ItemState::wouldStore)
        nameItem(report);
}

void BackupReport::nameItem(const ItemReport& report)
{
    static constexpr const char* kKinds[] = {"file",   "folder", "link",  "pipe",
                                             "socket", "device", "device"};
    Fields fields{{"path", report.path},
                  {"state", std::string(backup::nameOf(report.state))},
                  {"bytes", report.bytes},
                  {"kind", std::string(kKinds[static_cast<std::size_t>(report.kind)])},
                  {"cause", report.cause},
                  {"changed_while_read", report.changedWhileRead}};
    clearProgress();
    const bool hasRule = report.state == ItemState::excluded;
    output().item(fmt::format("{:<11}  {}{}", backup::nameOf(report.state), onOneLine(report.path),
                              hasRule ? " (" + onOneLine(report.cause) + ")" : std::string()),
                  "file", fields);
}

void BackupReport::progress(const BackupProgress& progress)
{
    const std::lock_guard lock(mutex_);
    const ProgressStyle style = progressStyle(); // anew: a terminal may change its width
    if (style.kind == ProgressStyle::Kind::none)
        return;
    const auto now = steady_clock::now();
    const std::chrono::duration<double> elapsed = now - begun_;
    if (style.kind == ProgressStyle::Kind::bar) {
        style.write("\r" + backupProgressLine(progress, elapsed, style.columns - 1) + "\x1b[K");
        isLineShown_ = true;
        return;
    }
    if (now - shown_.value_or(begun_) < kBetweenLines)
        return;
    shown_ = now;
    style.write(backupProgressLine(progress, elapsed, 1000) + "\n");
}

void BackupReport::clearProgress()
{
    if (std::exchange(isLineShown_, false))
        progressStyle().write("\r\x1b[K");
}

void BackupReport::note(const std::string& sentence)
{
    const std::lock_guard lock(mutex_);
    clearProgress();
    output().note(sentence);
    if (output().isJson())
        output().item("", "note", {{"message", sentence}});
}

/// Writes all of them to a file. @return where; empty when it cannot be written
std::string BackupReport::keepFailures() const
{
    std::string text;
    for (const std::string& sentence : failures_)
        text += onOneLine(sentence) + "\n";
    const auto file = backup::profileFolder(request_.stateFolder, request_.identity.profile) /
                      "last-failures.txt";
    return platform::writeFileAtomically(file, text) ? file.string() : std::string();
}

void BackupReport::tellFailures(const BackupSummary& summary)
{
    for (std::size_t i = 0; i < std::min(failures_.size(), kFailuresShown); ++i)
        output().complain(failures_[i]);
    const std::uint64_t all = summary.failed + summary.changedWhileRead;
    if (all <= kFailuresShown)
        return;
    const std::string file = keepFailures();
    const std::string which = all > kFailuresListed
                                  ? fmt::format("the first {} are in ", kFailuresListed)
                                  : "all of them are in ";
    output().complain(fmt::format("… and {} more{}", all - kFailuresShown,
                                  file.empty() ? "." : ": " + which + file + "."));
}

ExitStatus BackupReport::statusFor(const BackupSummary& summary)
{
    return statusOf(summary.end);
}

ExitStatus BackupReport::finish(const BackupSummary& summary)
{
    {
        const std::lock_guard lock(mutex_);
        clearProgress();
    }
    tellFailures(summary);
    ExitStatus status = forgetting_.statusAfter(selfTest_.statusAfter(statusOf(summary.end)));
    if (status == ExitStatus::done && !overdue_.empty())
        status = ExitStatus::overdue;
    Fields fields = fieldsOf(summary);
    std::ranges::copy(selfTest_.fields(), std::back_inserter(fields));
    std::ranges::copy(forgetting_.fields(), std::back_inserter(fields));
    std::string sentence = summary.sentence;
    if (summary.end == BackupEnd::interrupted)
        sentence = fmt::format("Interrupted. {} stored; the same command goes on where this one "
                               "stopped.",
                               countText(summary.stored, "file was", "files were"));
    if (summary.end == BackupEnd::rolledBack)
        sentence += " If runs were deleted, \"stowline undelete\" may bring them back. "
                    "--rebuild-index goes on with what the service has.";
    if (const std::string more = selfTest_.complaint(); !more.empty())
        sentence += (sentence.empty() ? "" : " ") + more;
    if (const std::string why = forgetting_.complaint(); !why.empty())
        sentence += (sentence.empty() ? "" : " ") + why;
    for (const std::string& late : overdue_)
        sentence += (sentence.empty() ? "" : " ") + late;
    if (!sentence.empty()) {
        output().complain(sentence);
        fields.emplace_back("message", sentence);
    }
    const bool hasRun = summary.found > 0 || summary.end == BackupEnd::done;
    if (!output().isJson() && hasRun && summary.end != BackupEnd::nothingThere) {
        const std::string forgotten = forgetting_.sentences();
        output().item(backupSentences(summary) +
                          (selfTest_.wasBegun ? "\n" + selfTest_.sentences() : std::string()) +
                          (forgotten.empty() ? "" : "\n" + forgotten),
                      "", {});
    }
    return output().finish(status, output().isJson() ? fields : Fields());
}

} // namespace stowline::cli
