#include "stowline/backup/content/RecoverySheet.h"

#include "stowline/backup/content/KeyFault.h"
#include "stowline/platform/desktop/SealedBox.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace stowline::backup {
namespace {

std::string replaced(std::string text, char from, char to)
{
    std::ranges::replace(text, from, to);
    return text;
}

TEST(RecoveryText, BringsTheKeyBack)
{
    for (int i = 0; i < 100; ++i) {
        const MasterKey key = MasterKey::make();
        const std::string text(recoveryText(key).view());
        ASSERT_TRUE(keyOfRecoveryText(text).bytes().isSameAs(key.bytes())) << text;
    }
}

TEST(RecoveryText, IsFourteenGroupsOfFour)
{
    std::string bytes;
    for (int i = 100; i < 132; ++i)
        bytes += static_cast<char>(i);
    const std::string text(recoveryText(MasterKey(platform::SecretBytes::copyOf(bytes))).view());
    // base64.b32encode of the bytes and of the first three of their check, both with Python.
    EXPECT_EQ(text, "MRSW MZ3I NFVG W3DN NZXX A4LS ON2H K5TX PB4X U634 PV7H 7AEB QKBV ZWDH");
}

TEST(RecoveryText, IsReadAsPeopleTypeIt)
{
    const MasterKey key = MasterKey::make();
    std::string text(recoveryText(key).view());
    std::ranges::transform(text, text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    EXPECT_TRUE(keyOfRecoveryText(" " + text + "\n").bytes().isSameAs(key.bytes()));
    EXPECT_TRUE(keyOfRecoveryText(replaced(text, ' ', '-')).bytes().isSameAs(key.bytes()));
    const std::string digits = replaced(replaced(replaced(text, 'o', '0'), 'i', '1'), 'b', '8');
    EXPECT_TRUE(keyOfRecoveryText(digits).bytes().isSameAs(key.bytes()));
}

TEST(RecoveryText, IsRefusedWithALetterMistypedMissingOrAdded)
{
    std::string bytes(platform::kSealingKeySize, 'k');
    const std::string text(recoveryText(MasterKey(platform::SecretBytes::copyOf(bytes))).view());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ')
            continue;
        std::string changed = text;
        changed[i] = text[i] == 'A' ? 'C' : 'A';
        EXPECT_THROW((void)keyOfRecoveryText(changed), KeyFault) << changed;
        changed = text;
        changed.erase(i, 1);
        EXPECT_THROW((void)keyOfRecoveryText(changed), KeyFault) << changed;
        changed = text;
        changed.insert(i, 1, 'A');
        EXPECT_THROW((void)keyOfRecoveryText(changed), KeyFault) << changed;
    }
    for (const char* other : {"", "no key", "9", "!"})
        EXPECT_THROW((void)keyOfRecoveryText(other), KeyFault) << other;
}

} // namespace
} // namespace stowline::backup
