// The macros note where they stand.
#include "stowline/logging/LogMacros.h"
#include "stowline/logging/DDLogTest.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

TEST(LogMacros, NoteThePlaceAndTheOperation)
{
    const auto logger = addedLogger();
    STOWLINE_LOG_INFO("\nA. value %d", 5);
    STOWLINE_LOG_ERROR("%@ failed", "B");
    const auto lines = logger->lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "\nA. value 5");
    EXPECT_EQ(lines[0].flag, 4);
    EXPECT_EQ(lines[0].function, "TestBody");
    EXPECT_EQ(lines[1].flag, 1);
}

} // namespace
} // namespace stowline
