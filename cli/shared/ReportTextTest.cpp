#include "cli/shared/ReportText.h"

#include "cli/shared/Reporting.h"
#include "stowline/util/General.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

RunFigures goodRun()
{
    RunFigures figures;
    figures.username = "ann";
    figures.machine = "iMac";
    figures.notChanged = 2;
    figures.backedUp = 3;
    figures.backedUpBytes = 1536;
    return figures;
}

bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

TEST(ReportText, SaysAllThatTheReportSays)
{
    const test::TestBundle bundle({});
    RunFigures figures = goodRun();
    const std::string good = reportText(figures);
    EXPECT_TRUE(holds(good, "Hello ann,\nthis is what the backup of iMac on ")) << good;
    EXPECT_TRUE(holds(good, "\nEverything that was found is backed up.\n")) << good;
    EXPECT_TRUE(holds(good, "Files backed up: 3\nNot changed since the last backup: 2\n"
                            "Could not be backed up: 0\nFiles looked at: 5\nData sent: 1.50 KB\n"))
        << good;
    figures.failed = 22;
    figures.failures = {"/a: <Permission> denied", "/b\nc: gone", "/\xff: no"};
    figures.sentence = "The disk was full.";
    figures.overdue = {"No run of these paths is known."};
    figures.selfTest = "Self-test: 1 file is lost.";
    figures.selfTestFindings = {"/d is missing"};
    figures.selfTestTrouble = "1 file is lost";
    const std::string bad = reportText(figures);
    for (const char* part :
         {"\nThe backup failed; 1 file is lost; no success for too long.\nThe disk was full.\n",
          "- No run of these paths is known.\n", "- /a: <Permission> denied\n", "- /?: no\n",
          "… and 19 more.\n", "\nSelf-test: 1 file is lost.\n- /d is missing\n"})
        EXPECT_TRUE(holds(bad, part)) << part << "\n" << bad;
    EXPECT_FALSE(holds(bad, "/b\nc")) << "a name is on one line";
    EXPECT_FALSE(holds(bad, "Everything"));
}

TEST(ReportText, IsNotWellWhenNothingWasBackedUp)
{
    const test::TestBundle bundle({});
    RunFigures figures = goodRun();
    figures.notChanged = 0;
    figures.backedUp = 0;
    EXPECT_TRUE(holds(reportText(figures), "\nNothing was backed up.\n"));
}

TEST(ReportSubject, NamesTheMomentOfTheRunWheneverItIsSent)
{
    const test::TestBundle bundle({});
    RunFigures figures = goodRun();
    figures.begun = Date(std::chrono::hours(24 * 365));
    const std::string date = General::emailReportDateFormatter().stringFromDate(figures.begun);
    EXPECT_TRUE(holds(reportSubject(figures), date)) << reportSubject(figures);
    EXPECT_TRUE(holds(reportText(figures), "report of " + date)) << reportText(figures);
    bundle.folder().write("Resources/backupReportEmailTemplate.html", "<p>||date||</p>");
    EXPECT_TRUE(holds(reportHtml(figures).value_or(""), "<p>" + date + "</p>"));
}

TEST(ReportMessage, HasTheTextAndTheHtml)
{
    const test::TestBundle bundle({});
    EXPECT_EQ(reportMessage("a@b.c", "d@e.f", goodRun()), std::nullopt) << "there is no template";
    bundle.folder().write("Resources/backupReportEmailTemplate.html", "<p>||username||</p>");
    const RunFigures figures = goodRun();
    const std::string message = reportMessage("a@b.c", "d\r\nBcc: x@e.f", figures).value_or("");
    EXPECT_TRUE(holds(message, "\r\nTo: a@b.c\r\n")) << message;
    EXPECT_FALSE(holds(message, "\nBcc:")) << message;
    const auto plain = message.find("Content-Type: text/plain; charset=utf-8\r\n");
    const auto html = message.find("Content-Type: text/html; charset=utf-8\r\n");
    ASSERT_NE(plain, std::string::npos) << message;
    ASSERT_NE(html, std::string::npos) << message;
    EXPECT_LT(plain, html) << "the best comes last";
    EXPECT_TRUE(message.ends_with("\r\n--=_report_of_a_backup--\r\n")) << message;
    std::string joined = message.substr(html);
    std::erase(joined, '\r');
    std::erase(joined, '\n');
    EXPECT_TRUE(holds(joined, General::base64EncodeString(*reportHtml(figures))));
    for (std::size_t start = 0; start < message.size();) {
        const auto end = message.find("\r\n", start);
        ASSERT_NE(end, std::string::npos);
        EXPECT_LE(end - start, 78U) << message.substr(start, end - start);
        start = end + 2;
    }
    EXPECT_FALSE(holds(reportMessage("", "", figures).value_or(""), "To:"));
}

} // namespace
} // namespace stowline::cli
