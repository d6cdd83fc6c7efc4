#include "cli/shared/ReportText.h"

#include "cli/shared/Output.h"
#include "cli/shared/Reporting.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/Date.h"
#include "stowline/util/General.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

namespace stowline::cli {

namespace {

/// No line of Base64 holds it.
constexpr const char* kBoundary = "=_report_of_a_backup";

std::string lineOf(std::string_view text)
{
    return onOneLine(asUtf8(text));
}

std::string listText(const std::vector<std::string>& sentences)
{
    std::string list;
    for (const std::string& sentence : sentences)
        list += "- " + lineOf(sentence) + "\n";
    return list;
}

std::string outcomeText(const RunFigures& figures)
{
    std::string text = reportHeadline(figures) + ".\n";
    if (!figures.sentence.empty())
        text += lineOf(figures.sentence) + "\n";
    if (!figures.afterFault.empty())
        text += lineOf(figures.afterFault) + "\n";
    text += listText(figures.overdue) + listText(figures.failures);
    const std::uint64_t all = figures.failed + figures.changedWhileRead;
    if (!figures.failures.empty() && all > figures.failures.size())
        text += fmt::format("… and {} more.\n", all - figures.failures.size());
    if (!figures.forgettingText.empty())
        text += "\n" + asUtf8(figures.forgettingText) + "\n";
    if (!figures.selfTest.empty())
        text += "\n" + asUtf8(figures.selfTest) + "\n" + listText(figures.selfTestFindings);
    return text;
}

/// Base64 in lines that a message may have.
std::string encoded(const std::string& text)
{
    constexpr std::size_t longest = 76;
    const std::string base64 = General::base64EncodeString(text);
    std::string lines;
    for (std::size_t start = 0; start < base64.size(); start += longest)
        lines += base64.substr(start, longest) + "\r\n";
    return lines;
}

/// A header's words, in encoded words (RFC 2047) of whole characters, each short enough.
std::string headerText(const std::string& text)
{
    constexpr std::size_t mostBytes = 39;
    std::string words;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t count =
            std::max<std::size_t>(platform::validUtf8PrefixLength(rest.substr(0, mostBytes)), 1);
        words += (words.empty() ? "" : "\r\n ") +
                 fmt::format("=?UTF-8?B?{}?=", General::base64EncodeString(rest.substr(0, count)));
        rest.remove_prefix(count);
    }
    return words;
}

std::string partText(const char* kind, const std::string& content)
{
    return fmt::format("--{}\r\nContent-Type: {}; charset=utf-8\r\n"
                       "Content-Transfer-Encoding: base64\r\n\r\n{}",
                       kBoundary, kind, encoded(content));
}

} // namespace

std::string reportText(const RunFigures& figures)
{
    const platform::DateFormatter dates = General::emailReportDateFormatter();
    std::string text = fmt::format("{}: backup report of {}\n\nHello {},\nthis is what the backup "
                                   "of {} on {} came to.\n\n{}\n",
                                   General::productName().value_or("Stowline"),
                                   dates.stringFromDate(figures.begun), lineOf(figures.username),
                                   lineOf(figures.subject()), dates.stringFromDate(figures.begun),
                                   outcomeText(figures));
    text += fmt::format("Files backed up: {}\nNot changed since the last backup: {}\n"
                        "Could not be backed up: {}\nFiles looked at: {}\nData sent: {}\n",
                        figures.backedUp, figures.notChanged, figures.failed, figures.processed(),
                        General::sizeString(figures.backedUpBytes));
    return text;
}

std::optional<std::string> reportMessage(const std::string& to, const std::string& from,
                                         const RunFigures& figures)
{
    const auto html = reportHtml(figures);
    if (!html)
        return std::nullopt;
    const auto now = std::chrono::floor<std::chrono::seconds>(platform::currentDate());
    std::string message =
        fmt::format("Date: {:%a, %d %b %Y %H:%M:%S} +0000\r\n",
                    fmt::gmtime(std::chrono::system_clock::to_time_t(
                        std::chrono::system_clock::time_point(now.time_since_epoch()))));
    if (!to.empty())
        message += fmt::format("From: {}\r\nTo: {}\r\n", lineOf(from), lineOf(to));
    message += fmt::format("Subject: {}\r\nMIME-Version: 1.0\r\n"
                           "Content-Type: multipart/alternative; boundary=\"{}\"\r\n\r\n",
                           headerText(lineOf(reportSubject(figures))), kBoundary);
    // What shows best comes last.
    message += partText("text/plain", reportText(figures)) + partText("text/html", *html);
    return message + fmt::format("--{}--\r\n", kBoundary);
}

} // namespace stowline::cli
