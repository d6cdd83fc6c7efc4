// Sessions, and how often passwords may be tried.
#include "devserver/page/HeldServiceTest.h"

#include <set>

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;

class SessionsTest : public HeldService {
protected:
    void SetUp() override { open("ann"); }

    Sessions sessions_{accounts_, [this] { return now_; }};
};

TEST_F(SessionsTest, AreKnownByRandomTextsOf128Bits)
{
    std::set<std::string> texts;
    for (int i = 0; i < 16; ++i)
        texts.insert(sessions_.begin("ann"));
    EXPECT_EQ(texts.size(), 16U);
    for (const std::string& text : texts) {
        EXPECT_EQ(text.size(), 32U);
        EXPECT_EQ(text.find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_EQ(sessions_.userOf(text), "ann");
    }
    EXPECT_EQ(sessions_.userOf(""), std::nullopt);
    EXPECT_EQ(sessions_.userOf(std::string(32, '0')), std::nullopt);
}

TEST_F(SessionsTest, EndAfterAnHour)
{
    const std::string text = sessions_.begin("ann");
    letPass(1h - 1s);
    EXPECT_EQ(sessions_.userOf(text), "ann"); // and looking does not lengthen it
    letPass(1s);
    EXPECT_EQ(sessions_.userOf(text), std::nullopt);
    letPass(-1h);
    EXPECT_EQ(sessions_.userOf(text), std::nullopt);
}

TEST_F(SessionsTest, EndByEitherClock)
{
    const std::string asleep = sessions_.begin("ann");
    now_.clock += 1h; // the machine slept
    EXPECT_EQ(sessions_.userOf(asleep), std::nullopt);
    const std::string setBack = sessions_.begin("ann");
    now_.passed += 1h;
    now_.clock -= 1h;
    EXPECT_EQ(sessions_.userOf(setBack), std::nullopt);
}

TEST_F(SessionsTest, EndWithTheirPassword)
{
    const std::string text = sessions_.begin("ann");
    ASSERT_EQ(accounts_.changePassword("ann", "secret", "other"), AccountOutcome::success);
    EXPECT_EQ(sessions_.userOf(text), std::nullopt);
}

TEST_F(SessionsTest, EndWhenTheyAreEnded)
{
    const std::string text = sessions_.begin("ann");
    const std::string other = sessions_.begin("ann");
    sessions_.end(text);
    EXPECT_EQ(sessions_.userOf(text), std::nullopt);
    EXPECT_EQ(sessions_.userOf(other), "ann");
}

TEST_F(SessionsTest, AreSixteenOfAnAccountAtMost)
{
    open("bob");
    const std::string bobs = sessions_.begin("bob");
    const std::string first = sessions_.begin("ann");
    const std::string second = sessions_.begin("ann");
    for (std::size_t i = 2; i <= Sessions::kMostOfAccount; ++i)
        (void)sessions_.begin("ann");
    EXPECT_EQ(sessions_.userOf(first), std::nullopt);
    EXPECT_EQ(sessions_.userOf(second), "ann");
    EXPECT_EQ(sessions_.userOf(bobs), "bob");
}

TEST_F(SessionsTest, AreAThousandAtMost)
{
    const std::string first = sessions_.begin("ann");
    for (std::size_t i = 0; i + 1 < Sessions::kMost; ++i)
        (void)sessions_.begin("user" + std::to_string(i));
    EXPECT_EQ(sessions_.userOf(first), "ann");
    (void)sessions_.begin("one more");
    EXPECT_EQ(sessions_.userOf(first), std::nullopt);
}

class SignInLimitTest : public testing::Test {
protected:
    int takeAll(const std::string& name)
    {
        int taken = 0;
        while (limit_.take(name))
            ++taken;
        return taken;
    }

    SignInLimit::Clock::time_point now_{};
    SignInLimit limit_{[this] { return now_; }};
};

TEST_F(SignInLimitTest, GivesANameFiveTriesAndOneMoreEachMinute)
{
    EXPECT_EQ(takeAll("ann"), 5);
    EXPECT_EQ(takeAll("bob"), 5);
    now_ += 59s;
    EXPECT_FALSE(limit_.take("ann"));
    now_ += 1s;
    EXPECT_EQ(takeAll("ann"), 1);
    now_ += 1h;
    EXPECT_EQ(takeAll("ann"), 5);
}

TEST_F(SignInLimitTest, CountsNoTryThatSucceeded)
{
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(limit_.take("ann"));
        limit_.giveBack("ann");
    }
    EXPECT_EQ(takeAll("ann"), 5);
    limit_.giveBack("ann");
    EXPECT_EQ(takeAll("ann"), 1);
}

TEST_F(SignInLimitTest, GivesAllNamesTogetherThirtyAndOneMoreEveryTwoSeconds)
{
    int taken = 0;
    for (int i = 0; i < 100; ++i)
        taken += limit_.take("name " + std::to_string(i)) ? 1 : 0;
    EXPECT_EQ(taken, 30);
    now_ += 2s;
    EXPECT_TRUE(limit_.take("ann"));
    EXPECT_FALSE(limit_.take("bob"));
}

} // namespace
} // namespace stowline::devserver
