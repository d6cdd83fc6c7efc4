#include "stowline/backup/content/KeySlotCost.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

KeySlot slot(const std::string& identifier, SecretKind kind, std::uint64_t operations,
             std::uint64_t memoryKib)
{
    return {.identifier = identifier,
            .kind = kind,
            .label = {},
            .cost = {.operations = operations, .memoryKib = memoryKib},
            .salt = {},
            .box = {}};
}

TEST(PassphraseCost, IsUsuallyThreePassesOverAQuarterOfAGibibyte)
{
    EXPECT_EQ(platform::PassphraseCost(),
              (platform::PassphraseCost{.operations = 3, .memoryKib = 262144}));
}

TEST(KeySlotCost, HasBounds)
{
    EXPECT_TRUE(isAllowed({.operations = 1, .memoryKib = 8}));
    EXPECT_TRUE(isAllowed({.operations = 16, .memoryKib = 1048576}));
    EXPECT_TRUE(isAllowed({}));
    EXPECT_FALSE(isAllowed({.operations = 0, .memoryKib = 8}));
    EXPECT_FALSE(isAllowed({.operations = 1, .memoryKib = 7}));
    EXPECT_FALSE(isAllowed({.operations = 17, .memoryKib = 8}));
    EXPECT_FALSE(isAllowed({.operations = 1, .memoryKib = 1048577}));
}

TEST(SlotsToTry, AreThoseOfTheKindTheCheapestFirst)
{
    const std::vector<KeySlot> slots{
        slot("a", SecretKind::passphrase, 3, 1000), slot("b", SecretKind::account, 1, 8),
        slot("c", SecretKind::passphrase, 16, 8), slot("d", SecretKind::passphrase, 1, 128)};
    std::string order;
    for (const KeySlot* tried : slotsToTry(slots, SecretKind::passphrase))
        order += tried->identifier;
    EXPECT_EQ(order, "cda");
    EXPECT_EQ(workOf(slots, SecretKind::passphrase), 3000U + 128 + 128);
    EXPECT_EQ(workOf(slots, SecretKind::keyFile), 0U);
}

} // namespace
} // namespace stowline::backup
