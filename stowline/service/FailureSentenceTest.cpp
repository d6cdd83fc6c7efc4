#include "stowline/service/FailureSentence.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

TEST(FailureSentence, SaysItsReasonOnceAndOnlyWhereThereIsOne)
{
    EXPECT_EQ(sentenceFor(FailureKind::unavailable, "the service", "status 503"),
              "The service cannot serve at the moment. Please try again later. (status 503)");
    EXPECT_EQ(sentenceFor(FailureKind::unavailable, "b.example"),
              "b.example cannot serve at the moment. Please try again later.");
    EXPECT_EQ(sentenceFor(FailureKind::badRequest, "b.example", "status 400"),
              sentenceFor(FailureKind::badRequest, "b.example"));
    EXPECT_EQ(sentenceFor(FailureKind::proxyRefused, "b.example", "status 407"),
              sentenceFor(FailureKind::proxyRefused, "b.example"));
    EXPECT_TRUE(sentenceFor(FailureKind::proxyRefused, "b.example", "status 403")
                    .ends_with(" (status 403)"));
    EXPECT_EQ(sentenceFor(FailureKind::requestTooLarge, "b.example", "status 413"),
              sentenceFor(FailureKind::requestTooLarge, "b.example"));
}

} // namespace
} // namespace stowline
