// Restoring from a service that lies: whatever it sends, nothing but what was stored gets a final
// name, the rest comes back, and the end says what is wrong.
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/restore/FilePlacer.h"
#include "stowline/util/Crc32.h"
#include "tests/support/Relay.h"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <atomic>
#include <map>
#include <set>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;
using test::RelayedAnswer;

constexpr std::uint64_t kPart = 1000;

/// A stored tree that is read back through a relay.
class RestoreHostile : public testing::Test {
protected:
    RestoreHostile() : relay_(stored_.choice.account.server)
    {
        platform::Bundle::useFolder(stored_.server.bundle());
    }

    void store(const std::map<std::string, std::string>& files)
    {
        files_ = files;
        for (const auto& [name, content] : files)
            stored_.machine.write("tree/" + name, content);
        ASSERT_EQ(stored_.run(), 1U);
        for (const auto& [name, content] : files) {
            const auto item = stored_.index.find((stored_.folder() / name).string());
            nameOfVersion_[item->content->version] = name;
        }
    }

    /// The file that a part belongs to; empty: it is a record's, or no part at all.
    [[nodiscard]] std::string nameIn(const std::string& request) const
    {
        const auto name = nameOfVersion_.find(test::headerOf(request, "X-VersionID"));
        const bool isPart = request.starts_with("GET /DownloadFilePart");
        return isPart && name != nameOfVersion_.end() ? name->second : "";
    }
    [[nodiscard]] static bool isPartOfRecord(const std::string& request, const std::string& name)
    {
        return request.starts_with("GET /DownloadFilePart") && name.empty();
    }
    [[nodiscard]] static std::uint64_t offsetIn(const std::string& request)
    {
        return std::stoull(test::headerOf(request, "X-Offset"));
    }

    /// Gives a body the checksum that makes it believed.
    static void putBody(RelayedAnswer& answer, std::string body)
    {
        answer.body = std::move(body);
        const Data bytes(answer.body.begin(), answer.body.end());
        answer.setHeader("X-Checksum", fmt::format("{:08x}", Crc32::TW_crc32(bytes)));
    }

    RestoreSummary restore(std::chrono::milliseconds budget = std::chrono::seconds(20))
    {
        return stored_.restore([&](RestoreRequest& request) {
            request.choice.account.server = relay_.address();
            request.choice.budgetPerStep = budget;
            request.partBytes = kPart;
        });
    }

    /// Every file below the target is one of the stored ones, with its content.
    /// @return how many are there
    [[nodiscard]] std::size_t countOfRightFiles() const
    {
        std::size_t count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(stored_.target.path())) {
            const std::string name = entry.path().filename();
            if (!entry.is_regular_file() ||
                isGatheringName(name)) // a later restore goes on with it
                continue;
            ++count;
            EXPECT_TRUE(files_.contains(name)) << name;
            EXPECT_TRUE(platform::readFile(entry.path()) == files_.at(name)) << name;
        }
        return count;
    }

    void expectOnlyLost(const RestoreSummary& summary, std::size_t bad)
    {
        EXPECT_EQ(summary.end, ReadEnd::badContent) << summary.sentence << stored_.faultText();
        EXPECT_EQ(summary.badContent, bad) << stored_.faultText();
        EXPECT_EQ(summary.failed, bad) << stored_.faultText();
        EXPECT_EQ(countOfRightFiles(), files_.size() - bad);
    }

    Stored stored_;
    test::Relay relay_;
    std::map<std::string, std::string> files_;
    std::map<std::string, std::string> nameOfVersion_;
};

TEST_F(RestoreHostile, ARelayThatChangesNothingIsNoHindrance)
{
    store({{"a", noise(2500)}, {"b", "b"}});
    const auto summary = restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored_.faultText();
    EXPECT_EQ(countOfRightFiles(), 2U);
}

TEST_F(RestoreHostile, PartsThatAreSwappedBetweenFilesComeUnderNoName)
{
    const std::string content = noise(2500);
    std::string other = content;
    std::reverse(other.begin(), other.end());
    store({{"a", content}, {"b", other}, {"c", "right"}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name == "a" || name == "b")
            putBody(answer, (name == "a" ? other : content).substr(offsetIn(request), kPart));
    });
    expectOnlyLost(restore(), 2);
}

TEST_F(RestoreHostile, PartsOfOneFileThatTradedTheirPlacesComeUnderNoName)
{
    const std::string content = noise(3 * kPart);
    store({{"a", content}, {"c", "right"}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) == "a")
            putBody(answer, content.substr(2 * kPart - offsetIn(request), kPart));
    });
    expectOnlyLost(restore(), 1);
}

TEST_F(RestoreHostile, PartsThatAreDoubledOrCutComeUnderNoName)
{
    store({{"a", noise(2500)}, {"b", noise(2500)}, {"c", "right"}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name == "a")
            putBody(answer, answer.body + answer.body);
        else if (name == "b")
            putBody(answer, answer.body.substr(1));
    });
    expectOnlyLost(restore(), 2);
}

TEST_F(RestoreHostile, SizesThatLieAreNotBelieved)
{
    store({{"a", noise(2500)}, {"b", noise(2500)}, {"c", "right"}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name == "a" || name == "b")
            answer.setHeader("X-VersionSize", name == "a" ? "2499" : "18446744073709551615");
    });
    expectOnlyLost(restore(), 2);
}

TEST_F(RestoreHostile, AContentThatHasGrownIsNotBelieved)
{
    const std::string content = noise(kPart);
    store({{"a", content}, {"c", "right"}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) == "a") {
            putBody(answer, content + "more");
            answer.setHeader("X-VersionSize", std::to_string(kPart + 4));
        }
    });
    expectOnlyLost(restore(), 1);
}

TEST_F(RestoreHostile, APartOfAnotherVersionIsFetchedAgain)
{
    store({{"a", noise(2500)}, {"b", noise(2500)}});
    std::atomic<int> askedForA = 0; // their first parts
    std::atomic<int> askedForB = 0;
    std::atomic<int> allOfB = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name == "a" && offsetIn(request) == 0 && askedForA++ < 2)
            answer.setHeader("X-VersionSize", "2600");
        allOfB += name == "b" ? 1 : 0;
        if (name == "b" && offsetIn(request) == 0 && askedForB++ < 2) {
            putBody(answer, std::string(kPart, 'x'));
            answer.setHeader("X-Digest", std::string(64, 'e'));
        }
    });
    const auto summary = restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored_.faultText();
    EXPECT_EQ(countOfRightFiles(), 2U);
    EXPECT_EQ(allOfB, 5) << "more than that part was fetched again";
}

TEST_F(RestoreHostile, APartThatDoesNotFitItsChecksumIsFetchedAgain)
{
    store({{"a", noise(2500)}, {"b", noise(2500)}});
    std::atomic<int> askedForFirst = 0;
    std::atomic<int> askedForOthers = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name.empty())
            return;
        if (name != "a" || offsetIn(request) != 0)
            ++askedForOthers;
        else if (askedForFirst++ < 2)
            answer.body.at(17) ^= 1;
    });
    const auto summary = restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored_.faultText();
    EXPECT_EQ(countOfRightFiles(), 2U);
    EXPECT_EQ(askedForFirst, 3);
    EXPECT_EQ(askedForOthers, 5) << "more than that part was fetched again";
}

TEST_F(RestoreHostile, APartThatNeverFitsItsChecksumIsDamagedAndNotAskedForForEver)
{
    store({{"a", noise(2500)}, {"c", "right"}});
    std::atomic<int> asked = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) != "a" || offsetIn(request) != kPart)
            return;
        ++asked;
        answer.body.at(17) ^= 1;
    });
    expectOnlyLost(restore(), 1);
    EXPECT_NE(stored_.faultText().find("does not fit its checksum"), std::string::npos)
        << stored_.faultText();
    EXPECT_GT(asked, 1);
    EXPECT_LT(asked, 10);
}

TEST_F(RestoreHostile, ADigestThatIsToldWronglyLosesNothing)
{
    store({{"a", noise(500)}});
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) == "a")
            answer.setHeader("X-Digest", std::string(64, 'e'));
    });
    EXPECT_EQ(restore().end, ReadEnd::done) << stored_.faultText();
    EXPECT_EQ(countOfRightFiles(), 1U);
}

TEST_F(RestoreHostile, AnAnswerWithoutEndEndsTheFileAndNotTheRestore)
{
    store({{"a", noise(kPart)}, {"c", "right"}});
    std::atomic<int> asked = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) != "a")
            return;
        ++asked;
        answer.isRaw = true;
        answer.isEndless = true;
        const std::string length = answer.header("Content-Length");
        const auto at = answer.head.find("Content-Length: " + length);
        answer.head.erase(at, ("Content-Length: " + length + "\r\n").size());
        answer.body = std::string(1U << 20, 'x');
    });
    const auto summary = restore(std::chrono::milliseconds(1));
    EXPECT_NE(summary.end, ReadEnd::done);
    EXPECT_EQ(summary.failed, 1U) << stored_.faultText();
    EXPECT_GE(asked, 1);
    for (const auto& entry : fs::directory_iterator(stored_.target.path() / "tree"))
        EXPECT_NE(entry.path().filename(), "a");
    EXPECT_EQ(platform::readFile(stored_.target.path() / "tree/c"), "right");
}

/// A file for every second byte of an answer, with something that happens to each.
constexpr int kMostBytesOfAnAnswer = 400;

std::map<std::string, std::string> smallFiles()
{
    std::map<std::string, std::string> files;
    for (int i = 0; i < kMostBytesOfAnAnswer; i += 2)
        files.emplace(fmt::format("{:03}", i), fmt::format("content of {:03}", i));
    return files;
}

TEST_F(RestoreHostile, AnswersThatAreCutAfterAnyByteBecomeNoFile)
{
    store(smallFiles());
    std::atomic<int> whole = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name.empty())
            return;
        answer.cutAfter = std::stoul(name);
        if (answer.cutAfter >= answer.head.size() + 2 + answer.body.size())
            ++whole;
    });
    const auto summary = restore(std::chrono::milliseconds(1));
    EXPECT_NE(summary.end, ReadEnd::done);
    EXPECT_GT(whole, 0) << "answers are longer than this test thinks";
    EXPECT_EQ(countOfRightFiles() + summary.failed, files_.size());
    EXPECT_EQ(summary.failed, files_.size() - static_cast<std::size_t>(whole))
        << stored_.faultText();
}

TEST_F(RestoreHostile, AnswersWithAnyByteChangedBecomeNoOtherFile)
{
    store(smallFiles());
    std::atomic<int> changed = 0;
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        const std::string name = nameIn(request);
        if (name.empty())
            return;
        answer.isRaw = true;
        answer.setHeader("Content-Length", std::to_string(answer.body.size()));
        const auto at = std::stoul(name);
        const auto bodyAt = answer.head.size() + 2;
        if (at < answer.head.size())
            answer.head[at] ^= 1;
        else if (at >= bodyAt && at < bodyAt + answer.body.size())
            answer.body[at - bodyAt] ^= 1;
        else
            return;
        ++changed;
    });
    const auto summary = restore(std::chrono::milliseconds(1));
    EXPECT_NE(summary.end, ReadEnd::done);
    EXPECT_GT(changed, 70);
    EXPECT_LT(changed, kMostBytesOfAnAnswer / 2) << "answers are longer than this test thinks";
    EXPECT_EQ(countOfRightFiles() + summary.failed, files_.size());
    EXPECT_GE(summary.failed, 7U); // those of the body at least
}

TEST_F(RestoreHostile, ARecordThatIsChangedAnywhereIsRefusedWithoutATrace)
{
    store({{"a", noise(2500)}, {"c", "right"}});
    for (int sixteenth = 0; sixteenth < 16; ++sixteenth) {
        relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
            if (!isPartOfRecord(request, nameIn(request)) || answer.body.empty())
                return;
            std::string body = answer.body;
            body[body.size() * static_cast<std::size_t>(sixteenth) / 16] ^= 4;
            putBody(answer, std::move(body));
        });
        const auto summary = restore(std::chrono::milliseconds(1));
        EXPECT_NE(summary.end, ReadEnd::done) << sixteenth;
        EXPECT_NE(summary.end, ReadEnd::someFailed) << sixteenth;
        EXPECT_FALSE(summary.sentence.empty());
        EXPECT_TRUE(fs::is_empty(stored_.target.path())) << sixteenth;
    }
}

TEST_F(RestoreHostile, ARecordWithoutEndOrInThePlaceOfWhichAFileComesIsRefused)
{
    const std::string content = noise(2500);
    store({{"a", content}});
    for (const bool isEndless : {false, true}) {
        relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
            if (!isPartOfRecord(request, nameIn(request)))
                return;
            if (!isEndless) {
                putBody(answer, content.substr(0, answer.body.size()));
                return;
            }
            // It says that there is always more.
            putBody(answer, content.substr(0, 1000));
            answer.setHeader("X-VersionSize", "1000000000000000");
        });
        const auto summary = restore(std::chrono::milliseconds(1));
        EXPECT_NE(summary.end, ReadEnd::done);
        EXPECT_TRUE(fs::is_empty(stored_.target.path()));
    }
}

TEST_F(RestoreHostile, ATicketGoesToNobodyButTheServerThatGaveIt)
{
    store({{"a", "a"}});
    const test::RawServer other(test::httpAnswer("stolen"));
    relay_.setChange([&](const std::string& request, RelayedAnswer& answer) {
        if (nameIn(request) != "a")
            return;
        answer.head =
            "HTTP/1.1 307 Temporary Redirect\r\nLocation: " + other.url("/DownloadFilePart") +
            "\r\n";
        answer.body.clear();
    });
    EXPECT_NE(restore(std::chrono::milliseconds(1)).end, ReadEnd::done);
    for (const std::string& request : other.requests())
        EXPECT_EQ(test::headerOf(request, "X-Ticket"), "");
    EXPECT_EQ(countOfRightFiles(), 0U);
}

} // namespace
} // namespace stowline::backup
