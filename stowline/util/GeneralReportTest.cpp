#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace stowline {
namespace {

void useZone(const char* zone)
{
    ::setenv("TZ", zone, 1);
    ::tzset();
}

Date at(int year, unsigned month, unsigned day, int hour, int minute)
{
    using namespace std::chrono;
    return sys_days(std::chrono::year(year) / static_cast<int>(month) / static_cast<int>(day)) +
           hours(hour) + minutes(minute);
}

TEST(SizeString, CountsInStepsOf1024)
{
    const std::vector<std::pair<std::uint64_t, std::string>> sizes{
        {0, "0 Bytes"},    {1023, "1023 Bytes"}, {1024, "1 KB"},
        {1025, "1 KB"},    {1034, "1 KB"},       {1035, "1.01 KB"},
        {1535, "1.49 KB"}, {1536, "1.50 KB"},    {1048575, "1023.99 KB"},
        {1048576, "1 MB"}, {5368709120, "5 GB"}, {(std::uint64_t{1} << 40) - 1, "1023.99 GB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(General::sizeString(bytes), text) << bytes;
}

TEST(SizeString, HundredthsOfTerabytesComeFromTheLowestByte)
{
    constexpr std::uint64_t terabyte = std::uint64_t{1} << 40;
    EXPECT_EQ(General::sizeString(terabyte), "1 TB");
    EXPECT_EQ(General::sizeString(terabyte + 128), "1.50 TB");
    EXPECT_EQ(General::sizeString(terabyte + 256), "1 TB");
    EXPECT_EQ(General::sizeString(terabyte + terabyte / 2), "1 TB");
    EXPECT_EQ(General::sizeString(2048 * terabyte), "2048 TB");
    EXPECT_EQ(General::sizeString(~std::uint64_t{0}), "16777215.99 TB");
}

TEST(EmailReport, SubjectIsPlainAsciiWhateverTheLanguage)
{
    useZone("UTC");
    for (const char* language : {"de_DE.UTF-8", "ar_EG.UTF-8", "C"}) {
        ::setenv("LC_ALL", language, 1);
        EXPECT_EQ(General::createEmailReportSubjectWithAppName("Stowline", at(2026, 1, 31, 21, 5)),
                  "Stowline - Backup Report for 1/31/26, 9:05 PM");
    }
    EXPECT_EQ(General::emailReportDateFormatter().stringFromDate(at(2009, 12, 1, 0, 0)),
              "12/1/09, 12:00 AM");
}

TEST(EmailReport, DatesAreLocal)
{
    useZone("America/New_York");
    EXPECT_EQ(General::emailReportDateFormatter().stringFromDate(at(2026, 7, 1, 16, 30)),
              "7/1/26, 12:30 PM");
}

/// Zones whose rules changed after the libraries that carry zone data of their own were packaged,
/// one after the other in one process.
TEST(EmailReport, DatesFollowTheZoneDataOfTheSystem)
{
    for (const auto& [zone, text] : {std::pair{"Africa/Cairo", "6/21/26, 3:00 AM"},
                                     {"Asia/Almaty", "6/21/26, 5:00 AM"},
                                     {"America/Mexico_City", "6/20/26, 6:00 PM"},
                                     {"America/Nuuk", "6/20/26, 11:00 PM"},
                                     {"America/Asuncion", "6/20/26, 9:00 PM"},
                                     {"EST5EDT,M3.2.0,M11.1.0", "6/20/26, 8:00 PM"}}) {
        ::setenv("TZ", zone, 1);
        EXPECT_EQ(General::emailReportDateFormatter().stringFromDate(at(2026, 6, 21, 0, 0)), text)
            << zone;
    }
}

std::optional<std::string> body(const std::string& user = "ann",
                                const std::string& machine = "iMac")
{
    return General::createEmailReportHTMLBodyWithAppName("App", at(2026, 1, 31, 21, 5), user,
                                                         machine, at(2026, 1, 30, 9, 0), 1, 2, 3,
                                                         18446744073709551615U, 1536);
}

TEST(EmailReport, MarkersAreReplacedInOrderEverywhere)
{
    useZone("UTC");
    const test::TestBundle bundle({});
    bundle.folder().write("Resources/backupReportEmailTemplate.html",
                          "||AppCaption||,||date||,||username||,||backup date||,"
                          "||num not changed||,||num backed up||,||num failed||,||num failed||,"
                          "||num processed||,||size transfered||,||machine name||,||Date||");
    EXPECT_EQ(body(), "App,1/31/26, 9:05 PM,ann,1/30/26, 9:00 AM,1,2,3,3,18446744073709551615,"
                      "1.50 KB,iMac,||Date||");
    // A marker in a value is replaced by a later line, not by an earlier one.
    EXPECT_NE(body("||num failed||")->find(",3,1/30/26"), std::string::npos);
    EXPECT_NE(body("ann", "||username||")->find("||username||"), std::string::npos);
}

TEST(EmailReport, ATemplateNeedNotUseAllMarkers)
{
    const test::TestBundle bundle({});
    bundle.folder().write("Resources/backupReportEmailTemplate.html", "<p>||username||</p>");
    EXPECT_EQ(body(), "<p>ann</p>");
}

TEST(EmailReport, WithoutATemplateThereIsNoBody)
{
    const test::TestBundle bundle({});
    EXPECT_EQ(body(), std::nullopt);
    bundle.folder().write("Resources/backupReportEmailTemplate.html", "\xff");
    EXPECT_EQ(body(), std::nullopt);
}

TEST(EmailReport, TheShippedTemplateUsesAllTenMarkers)
{
    const auto text =
        platform::readFile(test::sourceFile("resources/backupReportEmailTemplate.html"));
    ASSERT_TRUE(text);
    for (const char* marker : {"||AppCaption||", "||date||", "||username||", "||backup date||",
                               "||num not changed||", "||num backed up||", "||num failed||",
                               "||num processed||", "||size transfered||", "||machine name||"})
        EXPECT_NE(text->find(marker), std::string::npos) << marker;
    EXPECT_EQ(text->find("<script"), std::string::npos);
    EXPECT_EQ(text->find("src="), std::string::npos); // nothing is fetched from anywhere
    EXPECT_EQ(text->find("@import"), std::string::npos);
}

} // namespace
} // namespace stowline
