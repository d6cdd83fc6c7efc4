// What the service's word of a version has to say for the version to count as held.
#include "stowline/backup/transfer/VersionCheck.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Kind = VersionVerdict::Kind;

StoredVersion stored()
{
    return {.path = "/home/ann/a\x01",
            .size = 10,
            .content = {.version = "7",
                        .digest = std::string(64, 'd'),
                        .checksum = 0x1234abcd,
                        .storedSize = 10}};
}

Dictionary word()
{
    return {{"VersionID", "7"},       {"Path", "/home/ann"},
            {"Name", "=b64=YQE="},    {"State", "Whole"},
            {"Size", "10"},           {"StoredSize", "10"},
            {"Checksum", "1234abcd"}, {"Digest", std::string(64, 'd')}};
}

Kind kindWith(const std::string& key, const std::string& value)
{
    Dictionary other = word();
    other.insert_or_assign(key, value);
    return judged(stored(), &other).kind;
}

TEST(VersionCheck, AWordThatAgreesSaysThatItIsWhole)
{
    const Dictionary all = word();
    EXPECT_TRUE(judged(stored(), &all).isWhole()) << judged(stored(), &all).reason;
    const Dictionary least{{"VersionID", "7"}, {"State", "Whole"}};
    EXPECT_TRUE(judged(stored(), &least).isWhole()) << judged(stored(), &least).reason;
}

TEST(VersionCheck, NoWordOrALostContentIsMissing)
{
    EXPECT_EQ(judged(stored(), nullptr).kind, Kind::missing);
    EXPECT_EQ(kindWith("State", "Missing"), Kind::missing);
}

TEST(VersionCheck, EverythingThatDoesNotAgreeIsDamage)
{
    EXPECT_EQ(kindWith("State", "Damaged"), Kind::damaged);
    EXPECT_EQ(kindWith("Size", "11"), Kind::damaged);
    EXPECT_EQ(kindWith("Size", "10 bytes"), Kind::damaged);
    EXPECT_EQ(kindWith("StoredSize", "9"), Kind::damaged);
    EXPECT_EQ(kindWith("Checksum", "1234abce"), Kind::damaged);
    EXPECT_EQ(kindWith("Checksum", "none"), Kind::damaged);
    EXPECT_EQ(kindWith("Digest", std::string(64, 'e')), Kind::damaged);
}

TEST(VersionCheck, WhatIsLostOrDamagedIsStillTheVersionThatWasStored)
{
    using Identity = VersionVerdict::Identity;
    EXPECT_EQ(judged(stored(), nullptr).identity, Identity::none);
    for (const char* state : {"Whole", "Missing", "Damaged", ""}) {
        Dictionary same = word();
        same.insert_or_assign("State", state);
        EXPECT_EQ(judged(stored(), &same).identity, Identity::same) << state;
        same.insert_or_assign("Digest", std::string(64, 'e'));
        EXPECT_EQ(judged(stored(), &same).identity, Identity::other) << state;
    }
}

TEST(VersionCheck, ThePlaceCountsWhereNoDigestIsTold)
{
    for (const auto& [key, value] : {std::pair("Path", "/home/bob"), std::pair("Name", "b")}) {
        // A further name of a hard link may have taken over what was sent under the first.
        EXPECT_EQ(kindWith(key, value), Kind::whole) << key;
        Dictionary other = word();
        other.erase("Digest");
        EXPECT_TRUE(judged(stored(), &other).isWhole());
        other.insert_or_assign(key, value);
        EXPECT_EQ(judged(stored(), &other).kind, Kind::damaged) << key;
    }
}

TEST(VersionCheck, AStateThatIsUnknownOrUntoldIsNotWhole)
{
    EXPECT_EQ(kindWith("State", "Asleep"), Kind::untold);
    EXPECT_EQ(kindWith("State", ""), Kind::untold);
    const Dictionary numberAlone{{"VersionID", "7"}};
    EXPECT_EQ(judged(stored(), &numberAlone).kind, Kind::untold);
}

TEST(VersionCheck, TheDigestOfTheFileIsNoneOfBytesThatWereChangedOnTheirWay)
{
    StoredVersion packed = stored();
    packed.content.kind = "gzip";
    packed.content.storedSize = 6;
    Dictionary other = word();
    other.insert_or_assign("StoredSize", "6");
    other.insert_or_assign("Digest", std::string(64, 'e'));
    EXPECT_TRUE(judged(packed, &other).isWhole());
}

TEST(VersionCheck, AFolderMayBeNamedWithEitherSlash)
{
    StoredVersion odd = stored();
    odd.path = "/home/a\\b/file";
    Dictionary other = word();
    other.erase("Digest");
    other.insert_or_assign("Name", "file");
    other.insert_or_assign("Path", "/home/a/b");
    EXPECT_TRUE(judged(odd, &other).isWhole());
}

TEST(VersionCheck, AVersionIsAPositiveDecimalNumber)
{
    for (const char* text : {"1", "42", "9223372036854775807"})
        EXPECT_TRUE(isVersionNumber(text)) << text;
    for (const char* text : {"", "0", "-1", "+1", "07", "1,2", "1 ", " 1", "1.0", "0x1", "one",
                             "9223372036854775808", "-99999999999999999999999"})
        EXPECT_FALSE(isVersionNumber(text)) << text;
}

} // namespace
} // namespace stowline::backup
