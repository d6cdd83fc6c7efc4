#include "stowline/backup/transfer/Tries.h"
#include "stowline/service/Operation.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using namespace std::chrono_literals;

/// An attempt that waits as a call does whose answer never ends.
bool dripping(std::optional<Error>& error)
{
    StopRequest::ofThisThread()->waitFor(1h);
    error = platform::makeError("test", 1, "Time is up");
    return false;
}

TEST(Tries, RepeatsUntilItIsDone)
{
    Tries tries(60s, StopRequest());
    int count = 0;
    EXPECT_FALSE(tries.repeat([&](std::optional<Error>& error) {
        error = platform::makeError("test", 1, "not yet");
        return ++count == 2;
    }));
    EXPECT_EQ(count, 2);
}

TEST(Tries, AnAnswerThatDripsEndsWithTheTimeOfItsStep)
{
    Tries tries(1s, StopRequest());
    const auto failure = tries.repeat(dripping); // an hour, if nobody ended it
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->end, StepEnd::temporary);
    EXPECT_EQ(failure->reason, "Time is up. It was tried until the time for it was used up.");
}

TEST(Tries, AStopEndsATryAndIsFollowedByNone)
{
    const StopRequest stop;
    Tries tries(1h, stop);
    int count = 0;
    const auto failure = tries.repeat([&](std::optional<Error>& error) {
        ++count;
        stop.request();
        return dripping(error); // an hour, if the stop did not end it
    });
    EXPECT_EQ(failure->end, StepEnd::interrupted);
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(tries.once([&count](auto&) { return ++count > 0; }));
    EXPECT_EQ(tries.repeat([&count](auto&) { return ++count > 0; })->end, StepEnd::interrupted);
    EXPECT_EQ(count, 1);
}

TEST(Tries, AServiceThatIsDownCostsTheWholeTimeOnce)
{
    Moment now;
    Tries tries(1h, StopRequest(), [&now] { return now; });
    int count = 0;
    // Its second try uses the time up, when there is one.
    const auto fails = [&](std::optional<Error>& error) {
        now += ++count == 2 ? Duration(1h) : Duration::zero();
        error = platform::makeError("test", 1, "down");
        return false;
    };
    EXPECT_EQ(tries.repeat(fails)->end, StepEnd::temporary);
    EXPECT_EQ(count, 2);
    count = 0;
    EXPECT_EQ(tries.repeat(fails)->end, StepEnd::temporary);
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(tries.repeat([](auto&) { return true; }));
    count = 0;
    EXPECT_EQ(tries.repeat(fails)->end, StepEnd::temporary);
    EXPECT_EQ(count, 2);
}

TEST(Tries, ARefusalIsBelievedAfterTheThirdTime)
{
    Tries tries(60s, StopRequest());
    int count = 0;
    const auto failure = tries.repeat([&](auto&) { return ++count < 0; });
    EXPECT_EQ(failure->end, StepEnd::refused);
    EXPECT_EQ(count, 3);
}

TEST(Tries, WhatNoSlotTellsIsNoRefusal)
{
    const auto failsWith = [](FailureKind kind) {
        Tries tries(100ms, StopRequest());
        return tries.repeat([kind](std::optional<Error>&) {
            return runOperation("call:", nullptr, false, [kind](const Operation& operation) {
                operation.failUntold(kind, "So it was.");
                return false;
            });
        });
    };
    for (const FailureKind kind : {FailureKind::timeOut, FailureKind::helperFailed}) {
        const auto failure = failsWith(kind);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->end, StepEnd::temporary) << platform::nameOf(kind);
        EXPECT_EQ(failure->reason, "So it was. It was tried until the time for it was used up.");
    }
    EXPECT_EQ(failsWith(FailureKind::refusedByService)->end, StepEnd::refused);
}

TEST(Tries, ATryThatWasStoppedForItsTimeIsToldAsSilence)
{
    Tries tries(100ms, StopRequest());
    const auto failure = tries.repeat([](std::optional<Error>& error) {
        error = platform::makeError("test", 1, "The request was stopped.", FailureKind::stopped);
        return false;
    });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->reason, "The service did not answer in time. It was tried until the time "
                               "for it was used up.");
}

TEST(Tries, ARefusalStaysOneWhenThereIsNoTimeToAskAgain)
{
    Tries tries(0s, StopRequest());
    int count = 0;
    const auto refuses = [&](auto&) { return ++count < 0; };
    EXPECT_EQ(tries.repeat(refuses)->end, StepEnd::refused);
    EXPECT_EQ(count, 1);
}

} // namespace
} // namespace stowline::backup
