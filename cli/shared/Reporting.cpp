#include "cli/shared/Reporting.h"

#include "cli/shared/Output.h"
#include "cli/shared/ReportText.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

/// As people and the outbox call them, in the order of the kinds.
constexpr std::array<const char*, 5> kKinds{"summary", "email", "event", "self-test event",
                                            "forgetting event"};

const char* nameOf(ReportKind kind)
{
    return kKinds[static_cast<std::size_t>(kind)];
}

std::optional<ReportKind> kindNamed(const std::string& name)
{
    const auto* found = std::ranges::find(kKinds, name);
    return found == kKinds.end() ? std::nullopt
                                 : std::optional(static_cast<ReportKind>(found - kKinds.begin()));
}

/// Names come from users and machines; the template takes values as they are. A bar is written as
/// an entity so that no name is taken for a marker.
std::string escaped(std::string_view text)
{
    return platform::replacingOccurrences(
        platform::escapedForHtml(platform::withoutControls(asUtf8(text))), "|", "&#124;");
}

std::string appName()
{
    return General::productName().value_or("Stowline");
}

std::int64_t signedCount(std::uint64_t count)
{
    return static_cast<std::int64_t>(std::min<std::uint64_t>(count, INT64_MAX));
}

constexpr std::string_view kOutcomePlace = "<!--||outcome||-->";

constexpr const char* kAfterTrouble = "the command of --after failed";
constexpr const char* kAllIsBackedUp = "everything that was found is backed up";

/// What came of the backup itself, in a few words; empty when all is well.
std::string backupTrouble(const RunFigures& figures)
{
    if (!figures.sentence.empty())
        return "the backup failed";
    if (figures.failed > 0)
        return platform::countText(figures.failed, "item", "items") + " could not be backed up";
    if (figures.changedWhileRead > 0)
        return platform::countText(figures.changedWhileRead, "file", "files") +
               " changed while being read";
    return figures.processed() == 0 ? "nothing was backed up" : "";
}

/// What keeps runs from being forgotten, in a few words; the backup is none the worse for it.
std::string forgettingTrouble(const RunFigures& figures)
{
    using Forgetting = RunFigures::Forgetting;
    if (figures.forgetting == Forgetting::suspended)
        return "forgetting of runs is suspended";
    return figures.forgetting == Forgetting::failed ? "runs could not be forgotten" : "";
}

/// Both, one behind the other.
std::string joined(const std::string& one, const std::string& other)
{
    return one + (one.empty() || other.empty() ? "" : "; ") + other;
}

std::string linesHtml(const std::string& text)
{
    std::string html;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        html += "<br>" + escaped(line);
    return html;
}

std::string listHtml(const std::vector<std::string>& sentences)
{
    std::string list;
    for (const std::string& sentence : sentences)
        list += "<li style=\"word-break:break-word;\">" + escaped(sentence) + "</li>";
    return list.empty() ? list : "<ul style=\"margin:6px 0; padding-left:20px;\">" + list + "</ul>";
}

/// What the self-test came to, a line a sentence, and what it found.
std::string selfTestHtml(const RunFigures& figures)
{
    if (figures.selfTest.empty())
        return {};
    return linesHtml(figures.selfTest) + listHtml(figures.selfTestFindings);
}

/// The first failures, and how many more there are.
std::string failureList(const RunFigures& figures)
{
    std::string list = listHtml(figures.failures);
    if (list.empty())
        return {};
    const std::uint64_t all = figures.failed + figures.changedWhileRead;
    if (all > figures.failures.size())
        list += fmt::format("… and {} more.", all - figures.failures.size());
    return list;
}

/// How what came of a run looks: all is well; all is, but something is to be done; something
/// failed.
struct OutcomeLook {
    const char* name;
    const char* color;
};
constexpr OutcomeLook kGood{"good", "#17713f"};
constexpr OutcomeLook kToDo{"todo", "#8a5300"};
constexpr OutcomeLook kBad{"bad", "#b3261e"};

/// What came of a run, as a part of the report.
std::string outcomeHtml(const RunFigures& figures)
{
    const std::string trouble = reportTrouble(figures);
    const bool isToDo = !forgettingTrouble(figures).empty();
    const OutcomeLook& look = !trouble.empty() ? kBad : isToDo ? kToDo : kGood;
    const auto lineHtml = [](const std::string& sentence) {
        return sentence.empty() ? "" : "<br>" + escaped(sentence);
    };
    const std::string why = lineHtml(figures.sentence) + lineHtml(figures.afterFault);
    return fmt::format("<div class=\"{}\" style=\"font-family:Helvetica,Arial,sans-serif; "
                       "font-size:15px; line-height:22px; padding:8px 12px; border-left:4px solid "
                       "{}; color:{};\"><strong>{}.</strong>{}{}{}{}</div>",
                       look.name, look.color, look.color, reportHeadline(figures),
                       why + listHtml(figures.overdue), failureList(figures),
                       linesHtml(figures.forgettingText), selfTestHtml(figures));
}

/// Puts the outcome into its place in the report.
std::string withOutcome(std::string html, const RunFigures& figures)
{
    const std::string outcome = outcomeHtml(figures);
    if (const auto place = html.find(kOutcomePlace); place != std::string::npos)
        return html.replace(place, kOutcomePlace.size(), outcome);
    return html.insert(std::min(html.rfind("</body>"), html.size()), outcome);
}

} // namespace

std::string asUtf8(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::size_t valid = platform::validUtf8PrefixLength(text);
        result += text.substr(0, valid);
        if (valid < text.size())
            result += '?';
        text.remove_prefix(std::min(valid + 1, text.size()));
    }
    return result;
}

std::string reportTrouble(const RunFigures& figures)
{
    std::string text =
        joined(backupTrouble(figures), figures.afterFault.empty() ? "" : kAfterTrouble);
    if (!figures.selfTestTrouble.empty())
        text += (text.empty() ? "" : "; ") + figures.selfTestTrouble;
    if (!figures.overdue.empty())
        text += (text.empty() ? "" : "; ") + std::string("no success for too long");
    return text;
}

std::string reportHeadline(const RunFigures& figures)
{
    std::string trouble = reportTrouble(figures);
    if (trouble.empty())
        trouble = kAllIsBackedUp;
    else if (trouble == kAfterTrouble)
        trouble = joined(kAllIsBackedUp, trouble);
    std::string headline = joined(trouble, forgettingTrouble(figures));
    headline.front() =
        static_cast<char>(std::toupper(static_cast<unsigned char>(headline.front())));
    return headline;
}

Sending sendSummary(const std::string& username, const std::string& password,
                    const RunFigures& figures)
{
    const FailureWatch watch; // the operation itself says nothing
    WebServiceBroker::sendBackupReportForUserName(
        username, password, platform::currentDate(), figures.username, figures.machine,
        figures.begun, signedCount(figures.notChanged), signedCount(figures.backedUp),
        signedCount(figures.failed), signedCount(figures.processed()), figures.backedUpBytes);
    return {!watch.failure(), watch.failure()};
}

std::string reportSubject(const RunFigures& figures)
{
    const std::string trouble = joined(reportTrouble(figures), forgettingTrouble(figures));
    return General::createEmailReportSubjectWithAppName(appName(), figures.begun) +
           (trouble.empty() ? "" : ": " + trouble);
}

std::optional<std::string> reportHtml(const RunFigures& figures)
{
    auto html = General::createEmailReportHTMLBodyWithAppName(
        escaped(appName()), figures.begun, escaped(figures.username), escaped(figures.subject()),
        figures.begun, figures.notChanged, figures.backedUp, figures.failed, figures.processed(),
        figures.backedUpBytes);
    return html ? std::optional(withOutcome(std::move(*html), figures)) : std::nullopt;
}

Sending sendEmail(const std::string& to, const std::string& from, const std::string& subject,
                  const std::string& body, bool isHtml)
{
    const FailureWatch watch;
    const bool isDone = WebServiceBroker::sendEmailTo(to, from, subject, body, isHtml);
    return {isDone, watch.failure()};
}

Sending sendReportEmail(const std::string& to, const std::string& from, const RunFigures& figures,
                        bool isPlain)
{
    const auto body = isPlain ? std::optional(reportText(figures)) : reportHtml(figures);
    return body ? sendEmail(to, from, reportSubject(figures), *body, !isPlain) : Sending();
}

Sending sendEvent(const std::string& token, const std::string& event, const RunFigures& figures)
{
    const FailureWatch watch;
    const bool isDone = WebServiceBroker::centralMonitoringLogEvent(
        event, figures.username, token, figures.machine,
        static_cast<std::int32_t>(std::min(figures.seconds, 2147483647.0)),
        figures.failed + figures.selfTestLost, figures.failedBytes, figures.processed(),
        figures.processedBytes(), figures.notChanged, figures.notChangedBytes, figures.backedUp,
        figures.backedUpBytes);
    return {isDone, watch.failure()};
}

namespace {

/// The figures of an event, in its own order.
struct EventFigures {
    std::uint64_t errors = 0;
    std::uint64_t total = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t unchanged = 0;
    std::uint64_t unchangedBytes = 0;
};

/// An event of what a profile's runs hold: of another than the default one it names the profile.
Sending sendEventOf(const std::string& token, const char* event, const RunFigures& run,
                    const EventFigures& figures)
{
    const FailureWatch watch;
    const bool isDone = WebServiceBroker::centralMonitoringLogEvent(
        event, run.username, token, run.subject(), 0, figures.errors, 0, figures.total,
        figures.totalBytes, figures.unchanged, figures.unchangedBytes, 0, 0);
    return {isDone, watch.failure()};
}

} // namespace

Sending sendSelfTestEvent(const std::string& token, const RunFigures& figures)
{
    return sendEventOf(token, figures.isProof ? "SelfTestEnded" : "SelfTestEndedWithErrors",
                       figures,
                       {.errors = figures.selfTestLost,
                        .total = figures.proofFiles,
                        .totalBytes = figures.proofBytes,
                        .unchanged = figures.provenFiles,
                        .unchangedBytes = figures.provenBytes});
}

Sending sendForgettingEvent(const std::string& token, const RunFigures& figures)
{
    using Forgetting = RunFigures::Forgetting;
    if (figures.forgetting == Forgetting::suspended)
        return sendEventOf(token, "ForgettingSuspended", figures,
                           {.errors = figures.goneItems, .total = figures.goneOfItems});
    const char* event = figures.forgetting == Forgetting::done     ? "ForgettingEnded"
                        : figures.forgetting == Forgetting::failed ? "ForgettingEndedWithErrors"
                                                                   : "ForgettingPutOff";
    return sendEventOf(token, event, figures,
                       {.errors = figures.leftVersions,
                        .total = figures.deletedVersions,
                        .totalBytes = figures.deletedBytes,
                        .unchanged = figures.keptRuns,
                        .unchangedBytes = figures.givenBackBytes});
}

bool isOutOfReach(FailureKind kind)
{
    return kind == FailureKind::connection || kind == FailureKind::nameNotFound ||
           kind == FailureKind::hostUnreachable || kind == FailureKind::proxyRefused ||
           kind == FailureKind::timeOut;
}

void ReportFlags::declare(const Command& command)
{
    command.addFlag("--report", report_, "Send a summary of the run to the service");
    command.addOption("--email", email_, "Send a report of the run to this address");
    command.addFlag("--email-plain", isPlain_, "Send that report as plain text");
    command.addOption("--email-from", from_, "Sender of that e-mail; the recipient when left out");
    command.addFlag("--monitor", monitor_, "Send an event to central monitoring");
    tokenOptions_.declare(command, "monitor-token", "STOWLINE_MONITOR_TOKEN");
}

bool ReportFlags::readToken()
{
    if (!monitor_)
        return true;
    auto token = tokenOptions_.read("Monitoring token: ");
    token_ = token.value_or("");
    return token.has_value();
}

std::optional<fs::path> ReportFlags::outbox()
{
    const auto state = platform::stateFolder();
    return state ? std::optional(*state / "outbox") : std::nullopt;
}

void ReportFlags::keep(ReportKind kind, std::string why, const RunFigures& figures) const
{
    const auto folder = outbox();
    const std::string kindName = nameOf(kind);
    Dictionary entry{{"kind", kindName},
                     {"to", email_},
                     {"from", from_.empty() ? email_ : from_},
                     {"plain", isPlain_ ? "1" : ""},
                     {"figures", figures.dictionary()}};
    const auto bytes = platform::writeBinaryPropertyList(entry);
    const std::string name = fmt::format(
        "{:020}-{}.plist", platform::currentDate().time_since_epoch().count(), kindName);
    const bool isKept = folder && bytes && platform::makePrivateFolder(*folder) &&
                        platform::writeFileAtomically(*folder / name, *bytes);
    if (!why.empty())
        why = ": " + why.substr(0, why.find_last_not_of('.') + 1);
    output().complain(isKept
                          ? fmt::format("The {} could not be sent{}. It is kept and sent with "
                                        "the next backup that sends reports.",
                                        kindName, why)
                          : fmt::format("The {} could neither be sent nor kept{}.", kindName, why));
}

Sending ReportFlags::sendOne(ReportKind kind, const Mailing& mailing, const ReportSender& sender,
                             const RunFigures& figures) const
{
    if (kind == ReportKind::summary)
        return sender.password ? sendSummary(sender.username, *sender.password, figures)
                               : Sending();
    if (kind == ReportKind::email)
        return sendReportEmail(mailing.to, mailing.from, figures, mailing.isPlain);
    if (token_.empty())
        return {};
    if (kind == ReportKind::selfTestEvent)
        return sendSelfTestEvent(token_, figures);
    if (kind == ReportKind::forgettingEvent)
        return sendForgettingEvent(token_, figures);
    const bool isWhole = figures.failed == 0 && figures.sentence.empty() &&
                         figures.afterFault.empty() && figures.selfTestTrouble.empty() &&
                         figures.overdue.empty();
    const char* event = isWhole ? "BackupEnded" : "BackupEndedWithErrors";
    return sendEvent(token_, event, figures);
}

/// Sends it, and notes in `sender` that nothing more is to be tried.
Sending ReportFlags::send(ReportKind kind, const Mailing& mailing, ReportSender& sender,
                          const RunFigures& figures) const
{
    if (!sender.whyNot.empty())
        return {};
    Sending sending = sendOne(kind, mailing, sender, figures);
    if (sending.failure && isOutOfReach(sending.failure->kind))
        sender.whyNot = kOutOfReach;
    return sending;
}

void ReportFlags::sendKept(ReportSender& sender) const
{
    std::error_code fault;
    std::vector<fs::path> files;
    for (fs::directory_iterator file(outbox().value_or(""), fault), end; !fault && file != end;
         file.increment(fault))
        files.push_back(file->path());
    std::ranges::sort(files);
    for (const fs::path& file : files) {
        const auto bytes = platform::readRegularFile(file);
        const auto reading =
            bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
        const Dictionary* entry = reading.value ? reading.value->dictionary() : nullptr;
        const Dictionary* fields = entry ? platform::findDictionary(*entry, "figures") : nullptr;
        const auto figures = fields ? RunFigures::fromDictionary(*fields) : std::nullopt;
        const auto kind = entry ? kindNamed(platform::findText(*entry, "kind")) : std::nullopt;
        if (figures && !kind)
            continue; // a later version's, which can send it
        if (!figures || !kind) {
            fs::remove(file, fault); // of no use to anybody
            continue;
        }
        const Mailing mailing{.to = platform::findText(*entry, "to"),
                              .from = platform::findText(*entry, "from"),
                              .isPlain = !platform::findText(*entry, "plain").empty()};
        if (!send(*kind, mailing, sender, *figures).isDone)
            continue;
        fs::remove(file, fault);
    }
}

void ReportFlags::tell(ReportSender sender, const RunFigures& figures) const
{
    if (!isAnyWanted())
        return;
    sendKept(sender);
    const auto tellOne = [&](bool isWanted, ReportKind kind) {
        if (!isWanted)
            return;
        const Sending sending =
            send(kind, {email_, from_.empty() ? email_ : from_, isPlain_}, sender, figures);
        if (sending.isDone)
            return;
        std::string why = sender.whyNot;
        if (why.empty() && sending.failure)
            why = sending.failure->localizedDescription();
        if (why.empty() && kind == ReportKind::summary && !sender.password)
            why = "nobody is signed in";
        keep(kind, std::move(why), figures);
    };
    tellOne(report_, ReportKind::summary);
    tellOne(!email_.empty(), ReportKind::email);
    tellOne(monitor_, ReportKind::event);
    tellOne(monitor_ && figures.wasTested, ReportKind::selfTestEvent);
    tellOne(monitor_ && figures.forgetting != RunFigures::Forgetting::notAsked,
            ReportKind::forgettingEvent);
}

} // namespace stowline::cli
