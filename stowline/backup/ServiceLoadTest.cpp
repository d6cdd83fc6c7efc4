// How much is asked of the service at once, and how much of its answers is held in memory.
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/VerifyRun.h"
#include "stowline/backup/transfer/VersionCheck.h"
#include "tests/support/Relay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>

namespace stowline::backup {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kJobs = 2;
constexpr std::size_t kPartsOfAFile = 3; ///< that may be on their way at the same time
constexpr std::size_t kPart = 10000;

/// Some files of many parts, which are read through a relay. It answers no part before as many are
/// asked for as may be, and has given others the time to come.
class PartsInFlight : public testing::Test {
protected:
    PartsInFlight() : relay_(stored_.choice.account.server)
    {
        for (const char* name : {"a", "b", "c", "d"})
            stored_.machine.write(std::string("tree/") + name, name + noise(6 * kPart));
        EXPECT_EQ(stored_.run(), 1U);
        for (const char* name : {"a", "b", "c", "d"})
            versions_.insert(
                stored_.index.find((stored_.folder() / name).string())->content->version);
        stored_.choice.account.server = relay_.address();
        relay_.setChange([this](const std::string& request, test::RelayedAnswer&) {
            if (request.starts_with("GET /DownloadFilePart") &&
                versions_.contains(test::headerOf(request, "X-VersionID")))
                holdPart();
        });
    }

    void holdPart()
    {
        std::unique_lock lock(mutex_);
        most_ = std::max(most_, ++open_);
        changed_.notify_all();
        if (!isMet_ && changed_.wait_for(lock, 60s, [this] {
                return isMet_ || open_ >= kJobs * kPartsOfAFile;
            })) {
            changed_.wait_for(lock, 300ms, [this] { return open_ > kJobs * kPartsOfAFile; });
            isMet_ = true;
            changed_.notify_all();
        }
        --open_;
    }

    Stored stored_;
    std::set<std::string> versions_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t open_ = 0;
    std::size_t most_ = 0; ///< that were asked for and not answered at one moment
    bool isMet_ = false;   ///< so many were once; no part waits any more
    test::Relay relay_;
};

TEST_F(PartsInFlight, OfARestoreAreThreeOfEachOfItsJobs)
{
    const auto summary = stored_.restore([](RestoreRequest& request) {
        request.jobs = kJobs;
        request.partBytes = kPart;
    });
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored_.faultText();
    EXPECT_EQ(most_, kJobs * kPartsOfAFile);
}

TEST_F(PartsInFlight, OfAVerificationAreThreeOfEachOfItsJobs)
{
    VerifyObserver observer;
    const auto summary =
        runVerify({.choice = stored_.choice, .fractionRead = 1, .jobs = kJobs, .partBytes = kPart},
                  observer, stored_.stop);
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
    EXPECT_EQ(summary.read, 4U);
    EXPECT_EQ(most_, kJobs * kPartsOfAFile);
}

TEST(ServiceLoad, VersionsAreAskedAboutManyInACall)
{
    Stored stored;
    test::Relay relay(stored.choice.account.server);
    stored.choice.account.server = relay.address();
    std::vector<StoredVersion> versions(1100, StoredVersion{.path = "/a", .size = 1});
    for (std::size_t i = 0; i < versions.size(); ++i)
        versions[i].content.version = std::to_string(i + 1);
    Tries tries(20s, stored.stop);
    std::optional<StepFailure> failure;
    const auto verdicts = askedAfter(stored.choice.account, versions, tries, failure);
    ASSERT_TRUE(verdicts) << failure->reason;
    EXPECT_EQ(verdicts->size(), versions.size());
    EXPECT_EQ(verdicts->back().kind, VersionVerdict::Kind::missing);
    EXPECT_EQ(std::ranges::count_if(relay.requests(),
                                    [](const std::string& request) {
                                        return request.find("getMetaDataAboutFilesToRecover") !=
                                               std::string::npos;
                                    }),
              3);
}

} // namespace
} // namespace stowline::backup
