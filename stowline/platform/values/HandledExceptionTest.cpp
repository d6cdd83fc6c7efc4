#include "stowline/platform/values/HandledException.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

namespace stowline::platform {
namespace {

template <class Thrown> HandledException handled(const Thrown& thrown)
{
    try {
        throw thrown; // NOLINT(misc-throw-by-value-catch-by-reference): anything may be thrown
    } catch (...) {
        return handledException();
    }
}

TEST(HandledException, OnlyAThreadThatIsNotToBeHadIsToldAsOne)
{
    const HandledException noThread =
        handled(std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)));
    EXPECT_EQ(noThread.kind, FailureKind::noThread);
    EXPECT_EQ(noThread.sentence,
              "The system has no threads left. Please close programs and try again.");
    const HandledException full = handled(std::filesystem::filesystem_error(
        "cannot write", "/a/b", std::make_error_code(std::errc::no_space_on_device)));
    EXPECT_EQ(full.kind, FailureKind::unexpected);
    EXPECT_EQ(full.sentence, "filesystem error: cannot write: No space left on device [/a/b]");
}

TEST(HandledException, WantOfMemoryIsToldWithItsCureAndAllElseInItsOwnWords)
{
    const HandledException noMemory = handled(std::bad_alloc());
    EXPECT_EQ(noMemory.kind, FailureKind::noMemory);
    EXPECT_EQ(noMemory.sentence,
              "There is not enough memory. Please close programs and try again.");
    const HandledException other = handled(std::runtime_error("A sentence."));
    EXPECT_EQ(other.kind, FailureKind::unexpected);
    EXPECT_EQ(other.sentence, "A sentence.");
}

TEST(HandledException, WhatIsNotAnExceptionOfTheStandardLibrarySaysNothing)
{
    const HandledException number = handled(7);
    EXPECT_EQ(number.kind, FailureKind::unexpected);
    EXPECT_EQ(number.sentence, "");
}

TEST(HandledException, TellsItsSentenceAloneToWhatMayNotThrow)
{
    try {
        throw std::runtime_error("A sentence.");
    } catch (...) {
        EXPECT_EQ(handledSentence(), "A sentence.");
    }
}

} // namespace
} // namespace stowline::platform
