// Children that do what they should not: how long they are borne, forked by a nursery or started
// alone.
#include "stowline/platform/processes/Nursery.h"
#include "tests/support/Helpers.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;
using test::HelperForm;

constexpr std::chrono::seconds kLong{60};

class Misbehaving : public testing::TestWithParam<HelperForm> {
protected:
    Misbehaving() : start_(std::chrono::steady_clock::now())
    {
        std::filesystem::create_symlink(test::builtProgram("nursery_stand_in"), program_);
    }
    ~Misbehaving() override
    {
        EXPECT_LT(std::chrono::steady_clock::now() - start_, kLong);
        EXPECT_EQ(alone_, 0) << "another one was started";
    }

    /// Runs one that does so.
    ChildAnswer answerOf(const char* what, std::chrono::milliseconds limit = kLong,
                         std::size_t maximumBytes = std::size_t(1) << 30)
    {
        ::setenv("STOWLINE_STAND_IN", what, 1);
        const ChildRun run{.program = program_,
                           .input = "in",
                           .releaseBytes = [](std::string_view) { return std::string(4, 'r'); },
                           .limit = limit,
                           .maximumOutputBytes = maximumBytes};
        const auto answer = GetParam() == HelperForm::ofNursery
                                ? runNurseryChild(run,
                                                  [this](std::string_view why) {
                                                      ++alone_;
                                                      std::cout << why << "\n";
                                                  })
                                : runChild(run);
        EXPECT_TRUE(answer);
        return answer ? *answer : ChildAnswer();
    }

private:
    const test::TemporaryFolder folder_;
    const std::filesystem::path program_ = folder_.path() / "WebServiceCaller";
    int alone_ = 0;
    const std::chrono::steady_clock::time_point start_;
};

INSTANTIATE_TEST_SUITE_P(Forms, Misbehaving, testing::ValuesIn(test::kHelperForms),
                         test::nameOfForm);

TEST_P(Misbehaving, NoneIsLikeAnyOther)
{
    for (int i = 0; i < 3; ++i) {
        const ChildAnswer answer = answerOf("answers");
        EXPECT_EQ(answer.output, "answer");
        EXPECT_TRUE(answer.exit.isKnown);
        EXPECT_EQ(answer.exit.status, 7);
        EXPECT_FALSE(answer.endedByLimit || answer.endedBySize || answer.endedByStop);
    }
}

TEST_P(Misbehaving, OneThatHangsIsEndedAtItsLimit)
{
    const ChildAnswer answer = answerOf("hangs", 300ms);
    EXPECT_TRUE(answer.endedByLimit);
    EXPECT_EQ(answer.output, "");
}

TEST_P(Misbehaving, OneThatWritesForEverIsEndedAtItsSize)
{
    constexpr std::size_t most = std::size_t(5) << 20;
    const ChildAnswer answer = answerOf("writes for ever", kLong, most);
    EXPECT_TRUE(answer.endedBySize);
    EXPECT_FALSE(answer.endedByLimit);
    EXPECT_LT(answer.output.size(), most + (1U << 20));
}

TEST_P(Misbehaving, OneThatStaysAfterItsAnswerIsEndedAtItsLimit)
{
    const ChildAnswer answer = answerOf("stays", 300ms);
    EXPECT_TRUE(answer.endedByLimit);
    EXPECT_EQ(answer.output, "answer");
}

TEST_P(Misbehaving, OneThatCrashesIsNotTriedAgain)
{
    const ChildAnswer answer = answerOf("crashes");
    EXPECT_TRUE(answer.exit.isKnown);
    EXPECT_TRUE(answer.exit.bySignal);
    EXPECT_EQ(answer.exit.status, SIGSEGV);
    EXPECT_EQ(answer.output, "");
}

TEST_P(Misbehaving, OneThatSaysThatItWasRefusedIsNotTriedAgain)
{
    if (GetParam() != HelperForm::ofNursery)
        GTEST_SKIP() << "It has nobody to tell.";
    EXPECT_FALSE(answerOf("says that it was refused").exit.isKnown);
}

TEST_P(Misbehaving, ANurseryThatIsStoppedCostsNoMoreThanTheLimit)
{
    if (GetParam() != HelperForm::ofNursery)
        GTEST_SKIP() << "There is none.";
    EXPECT_EQ(answerOf("answers").output, "answer");
    const auto waiting = test::nurseriesOf(::getpid());
    ASSERT_EQ(waiting.size(), 1U);
    ASSERT_EQ(::kill(waiting.front(), SIGSTOP), 0);
    const ChildAnswer answer = answerOf("answers", 300ms); // and none is started alone then
    EXPECT_TRUE(answer.endedByLimit);
    EXPECT_EQ(answer.output, "");
    test::awaitEnd(waiting.front());
}

} // namespace
} // namespace stowline::platform
