// Timestamps in the local time of several zones.
#include "stowline/util/DateMethods.h"

#include "stowline/platform/time/DateText.h"
#include "stowline/util/StringMethods.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace stowline {
namespace {

using DateMethods::TW_ISO8601DateTimeFromDate;
using platform::dateFromInternetTimeText;
using StringMethods::TW_dateFromISO8601DateTime;

Date utc(const char* text)
{
    return dateFromInternetTimeText(text).value();
}

/// Before the first use of local time; every test has a process of its own.
void moveTo(const char* zone)
{
    ::setenv("TZ", zone, 1);
}

TEST(Timestamp, IsTruncatedToHundredths)
{
    moveTo("Europe/Berlin");
    const Date date = utc("2012-03-05T13:07:09Z") + std::chrono::milliseconds(257);
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(date), "2012-03-05T14:07:09.25");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2012-03-05T14:07:09.25"),
              utc("2012-03-05T13:07:09Z") + std::chrono::milliseconds(250));
}

TEST(Timestamp, BeforeTheEpochIsTruncatedTowardsThePast)
{
    moveTo("UTC");
    const Date date = utc("1969-12-31T23:59:59Z") + std::chrono::microseconds(999999);
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(date), "1969-12-31T23:59:59.99");
    EXPECT_EQ(TW_dateFromISO8601DateTime("1969-12-31T23:59:59.99"),
              utc("1969-12-31T23:59:59Z") + std::chrono::milliseconds(990));
}

TEST(Timestamp, IsReadInItsExactFormOnly)
{
    moveTo("UTC");
    EXPECT_TRUE(TW_dateFromISO8601DateTime("2012-02-29T23:59:59.99"));
    for (const char* wrong :
         {"", "2012-03-05T14:07:09", "2012-03-05T14:07:09.2", "2012-03-05T14:07:09.257",
          "2012-03-05T14:07:09.25Z", "2012-03-05T14:07:09.25 ", " 2012-03-05T14:07:09.25",
          "2012-13-05T14:07:09.25", "2012-00-05T14:07:09.25", "2011-02-29T14:07:09.25",
          "2012-03-05T24:00:00.00", "2012-03-05T23:60:00.00", "2012-03-05T23:59:60.00",
          "2012-03-05 14:07:09.25", "2012-3-5T14:07:09.25", "0000-01-01T00:00:00.00",
          "20120305T140709.25", "2012-03-05T14:07:09,25", "+012-03-05T14:07:09.25"})
        EXPECT_FALSE(TW_dateFromISO8601DateTime(wrong)) << wrong;
    using namespace std::string_view_literals;
    EXPECT_FALSE(TW_dateFromISO8601DateTime("2012-03-05T14:07:09.25\0"sv));
}

TEST(Timestamp, UsesTheGregorianCalendarAlsoBeforeItsIntroduction)
{
    moveTo("UTC");
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("1582-10-10T00:00:00Z")), "1582-10-10T00:00:00.00");
    EXPECT_EQ(TW_dateFromISO8601DateTime("0001-01-01T00:00:00.00"), utc("0001-01-01T00:00:00Z"));
}

TEST(Timestamp, SurvivesTheWayThereAndBackInEveryYear)
{
    moveTo("Asia/Kathmandu");
    for (int year = 10; year < 9990; year += 7) {
        const Date date = utc("1970-01-01T00:00:00Z") + std::chrono::hours(8766) * (year - 1970) +
                          std::chrono::milliseconds(120);
        EXPECT_EQ(TW_dateFromISO8601DateTime(TW_ISO8601DateTimeFromDate(date)), date) << year;
    }
}

TEST(Timestamp, NewYorkSkipsAnHourAndRepeatsOne)
{
    moveTo("America/New_York");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-03-10T01:59:59.00"), utc("2024-03-10T06:59:59Z"));
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-03-10T02:30:00.00"), utc("2024-03-10T07:30:00Z"));
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2024-03-10T07:30:00Z")), "2024-03-10T03:30:00.00");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-11-03T01:30:00.00"), utc("2024-11-03T06:30:00Z"));
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2024-11-03T05:30:00Z")), "2024-11-03T01:30:00.00");
}

TEST(Timestamp, BerlinSkipsAnHourAndRepeatsOne)
{
    moveTo("Europe/Berlin");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-03-31T02:30:00.00"), utc("2024-03-31T01:30:00Z"));
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-10-27T02:30:00.00"), utc("2024-10-27T01:30:00Z"));
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2024-10-27T00:30:00Z")), "2024-10-27T02:30:00.00");
}

TEST(Timestamp, LordHoweIslandChangesByHalfAnHour)
{
    moveTo("Australia/Lord_Howe");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-10-06T02:15:00.00"), utc("2024-10-05T15:45:00Z"));
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2024-10-05T15:45:00Z")), "2024-10-06T02:45:00.00");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2024-04-07T01:45:00.00"), utc("2024-04-06T15:15:00Z"));
}

TEST(Timestamp, SamoaSkippedAWholeDay)
{
    moveTo("Pacific/Apia");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2011-12-30T12:00:00.00"), utc("2011-12-30T22:00:00Z"));
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2011-12-30T22:00:00Z")), "2011-12-31T12:00:00.00");
}

/// Zones whose rules changed after the libraries that carry zone data of their own were packaged.
TEST(Timestamp, FollowsTheZoneDataOfTheSystem)
{
    const Date date = utc("2026-06-21T00:00:00Z");
    for (const auto& [zone, text] : {std::pair{"Africa/Cairo", "2026-06-21T03:00:00.00"},
                                     {"Asia/Almaty", "2026-06-21T05:00:00.00"},
                                     {"America/Mexico_City", "2026-06-20T18:00:00.00"},
                                     {"America/Nuuk", "2026-06-20T23:00:00.00"},
                                     {"America/Asuncion", "2026-06-20T21:00:00.00"}}) {
        moveTo(zone); // also: the zone is changed inside the process
        EXPECT_EQ(TW_ISO8601DateTimeFromDate(date), text) << zone;
        EXPECT_EQ(TW_dateFromISO8601DateTime(text), date) << zone;
    }
}

TEST(Timestamp, FollowsZonesThatAreRules)
{
    moveTo("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2026-07-01T00:00:00Z")), "2026-06-30T20:00:00.00");
    EXPECT_EQ(TW_dateFromISO8601DateTime("2026-03-08T02:30:00.00"), utc("2026-03-08T07:30:00Z"));
    moveTo("<+0330>-3:30");
    EXPECT_EQ(TW_ISO8601DateTimeFromDate(utc("2026-07-01T00:00:00Z")), "2026-07-01T03:30:00.00");
}

} // namespace
} // namespace stowline
