#include "stowline/platform/values/Error.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(FailureKind, EveryKindHasANameOfItsOwn)
{
    for (int number = 0; number <= static_cast<int>(FailureKind::stopped); ++number) {
        const auto kind = static_cast<FailureKind>(number);
        EXPECT_EQ(failureKindNamed(nameOf(kind)), kind) << number;
        EXPECT_EQ(nameOf(kind) == "unspecified", kind == FailureKind::unspecified) << number;
    }
    EXPECT_EQ(failureKindNamed("something newer"), FailureKind::unspecified);
}

TEST(Error, TheKindIsNoPartOfItsText)
{
    const Error error = makeError("d", 7, "Why.", FailureKind::certificate);
    EXPECT_EQ(error.kind, FailureKind::certificate);
    EXPECT_EQ(error.text(), makeError("d", 7, "Why.").text());
    EXPECT_EQ(error.localizedDescription(), "Why.");
    EXPECT_EQ(makeError("d", 7, "Why.").kind, FailureKind::unspecified);
}

} // namespace
} // namespace stowline::platform
