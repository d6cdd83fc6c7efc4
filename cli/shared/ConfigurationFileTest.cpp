// The configuration file's text, and words that are near to others.
#include "cli/shared/ConfigurationFile.h"
#include "cli/shared/NearestWord.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

TEST(ReadConfiguration, TellsNamesValuesAndPlaces)
{
    const auto text = readConfiguration("username = \"ann\"\n\n[backup]\njobs = 3\n"
                                        "  exclude = [\"*.o\", 'a b']\n[uploads.resume]\n"
                                        "checksum = true\nretry-time = 0.5\n");
    ASSERT_EQ(text.entries.size(), 5U);
    std::string all;
    for (const auto& entry : text.entries) {
        for (const auto& table : entry.tables)
            all += table + ".";
        all += entry.name + (entry.isList ? "[]" : entry.isBoolean ? "?" : "") + "=";
        for (const auto& value : entry.values)
            all += value + ",";
        all += "@" + std::to_string(entry.place.line) + ":" + std::to_string(entry.place.column) +
               "\n";
    }
    EXPECT_EQ(all, "backup.exclude[]=*.o,a b,@5:3\n"
                   "backup.jobs=3,@4:1\n"
                   "uploads.resume.checksum?=true,@7:1\n"
                   "uploads.resume.retry-time=0.5,@8:1\n"
                   "username=ann,@1:1\n");
}

struct Broken {
    const char* text;
    std::size_t line;
    std::size_t column;
};

TEST(ReadConfiguration, SaysWhereTheTextIsBroken)
{
    for (const Broken& broken : {Broken{"username = ann\n", 1, 12}, Broken{"a = 1\nb\n", 2, 2},
                                 Broken{"a = 1\n[b\n", 2, 3}, Broken{"a = 1\na = 2\n", 2, 5},
                                 Broken{"a = 1979-05-27\n", 1, 5}, Broken{"a = [[1]]\n", 1, 6}}) {
        try {
            (void)readConfiguration(broken.text);
            ADD_FAILURE() << broken.text;
        } catch (const ConfigurationFault& fault) {
            EXPECT_EQ(fault.place.line, broken.line) << broken.text << fault.what();
            EXPECT_EQ(fault.place.column, broken.column) << broken.text << fault.what();
        }
    }
}

TEST(NearestWord, IsTheOneWithTheFewestSlips)
{
    const std::vector<std::string> known{"backup", "uploads", "jobs", "username"};
    EXPECT_EQ(nearestWord("bakcup", known), "backup");    // exchanged
    EXPECT_EQ(nearestWord("usernam", known), "username"); // left out
    EXPECT_EQ(nearestWord("jobbs", known), "jobs");       // added
    EXPECT_EQ(nearestWord("uplaods", known), "uploads");
    EXPECT_EQ(nearestWord("jib", known), ""); // two of three are too many
    EXPECT_EQ(nearestWord("sync", known), "");
    EXPECT_EQ(nearestWord("", known), "");
    EXPECT_EQ(suggestion("jobz", known), " Did you mean \"jobs\"?");
    EXPECT_EQ(suggestion("restore", known), "");
}

} // namespace
} // namespace stowline::cli
