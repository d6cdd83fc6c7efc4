// What a run asks the service after, and how.
#include "tests/endtoend/Relayed.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::Files;
using test::Relayed;
using test::Words;

/// An account whose service is asked through a relay from the first run on: by another address it
/// would be another service to the index.
class VersionQuestions : public testing::Test {
protected:
    /// The versions that the requests of one more backup ask after.
    std::set<std::string> askedByTheNext(const Words& options = {})
    {
        const std::size_t before = relayed_.relay.requests().size();
        const auto result = account_.backup(options);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "stored"), 0) << result.output;
        std::set<std::string> versions;
        const auto requests = relayed_.relay.requests();
        for (std::size_t i = before; i < requests.size(); ++i) {
            if (Relayed::callOf(requests[i]) != "getMetaDataAboutFilesToRecover")
                continue;
            const auto begin = requests[i].find("strArrInp>") + sizeof "strArrInp>" - 1;
            std::istringstream list(
                requests[i].substr(begin, requests[i].find('<', begin) - begin));
            for (std::string version; std::getline(list, version, ',');)
                EXPECT_TRUE(versions.insert(version).second) << version << " is asked after twice";
        }
        for (const std::string& version : versions)
            EXPECT_EQ(version.find_first_not_of("0123456789"), std::string::npos) << version;
        return versions;
    }

    const BackedUp account_;
    Relayed relayed_{account_};
};

TEST_F(VersionQuestions, AreAboutAnotherThirtiethInEachRun)
{
    Files files;
    for (unsigned i = 0; i < 90; ++i)
        files.emplace("f" + std::to_string(i), "content " + std::to_string(i));
    account_.write(files);
    std::this_thread::sleep_for(std::chrono::milliseconds(2100)); // the stamps are settled
    const auto first = account_.backup({"--jobs", "8"});
    ASSERT_EQ(first.status, 0) << first.errors;
    const auto items = field(first, "record_items").get<std::size_t>();
    std::set<std::string> all;
    for (int run = 1; run <= 3; ++run) {
        const auto asked = askedByTheNext();
        EXPECT_EQ(asked.size(), (items + 29) / 30);
        all.insert(asked.begin(), asked.end());
        EXPECT_EQ(all.size(), static_cast<std::size_t>(run) * asked.size());
    }
    // Where nothing is taken for known it is about all of them, and nothing is sent for that.
    EXPECT_EQ(askedByTheNext({"--rebuild-index"}).size(), files.size());
}

/// Keeps the first of some requests waiting until a second one has come too.
class Meeting {
public:
    /// @return whether another one came; the first waits for it
    bool take()
    {
        std::unique_lock lock(mutex_);
        ++count_;
        came_.notify_all();
        return came_.wait_for(lock, std::chrono::seconds(30), [this] { return count_ > 1; });
    }
    [[nodiscard]] int count() const
    {
        const std::lock_guard lock(mutex_);
        return count_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable came_;
    int count_ = 0;
};

/// An account whose files are on the service, and of whose run nobody can tell any more: the record
/// is damaged and this machine's state is gone. The service's listings are all there is.
class Listings : public testing::Test {
protected:
    Listings()
    {
        for (int i = 0; i < 8; ++i)
            files_.emplace("listed" + std::to_string(i) + "/file", "content " + std::to_string(i));
        account_.write(files_);
        EXPECT_EQ(account_.backup().status, 0);
        devserver::Storage storage(account_.server.data());
        const auto record =
            storage
                .search({.userName = "ann", .folder = "/=stowline=/records", .pageSize = 9},
                        "00000001-finished", "")
                .value();
        const auto version = storage.versions("ann", record.items.at(0).id).at(0);
        fs::resize_file(account_.server.data() / version.serverFile.substr(1), 10);
        fs::remove_all(account_.command.home().path() / ".local/state/stowline");
    }

    /// Whether a request asks for what the service holds of one of the folders.
    [[nodiscard]] bool isListing(const std::string& request) const
    {
        return Relayed::callOf(request) == "GetAccountFilesAndFolders" &&
               request.find(account_.folder.path().string() + "/listed") != std::string::npos;
    }

    const BackedUp account_;
    Files files_;
};

TEST_F(Listings, AreAskedForSideBySide)
{
    Meeting meeting;
    std::atomic<bool> isAlone = false;
    Relayed relayed(account_);
    relayed.relay.setChange([&](const std::string& request, test::RelayedAnswer&) {
        if (isListing(request) && !meeting.take())
            isAlone = true;
    });
    const auto result = account_.backup({"--jobs", "8"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_FALSE(isAlone) << "a listing waited for the answer to another one";
    EXPECT_EQ(meeting.count(), 8);
    EXPECT_EQ(field(result, "unchanged"), 8) << result.output;
    EXPECT_EQ(field(result, "stored"), 0);
}

TEST_F(Listings, ThatFailMakeNothingNew)
{
    {
        Relayed relayed(account_);
        relayed.relay.setChange([&](const std::string& request, test::RelayedAnswer& answer) {
            if (isListing(request))
                answer = {.head = "HTTP/1.1 503 Service Unavailable\r\n", .body = ""};
        });
        const auto result = account_.backup({"--retry-time", "1", "--jobs", "8"});
        EXPECT_EQ(result.status, 3) << result.errors;
        EXPECT_EQ(field(result, "stored"), 0) << result.output;
        EXPECT_EQ(field(result, "failed"), 8);
        EXPECT_NE(result.errors.find("the service did not say what it holds of its folder"),
                  std::string::npos)
            << result.errors;
    }
    // Nor does the next run send what that one could not ask about.
    const auto next = account_.backup();
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(field(next, "stored"), 0) << next.output;
    EXPECT_EQ(field(next, "unchanged"), 8);
    devserver::Storage storage(account_.server.data());
    const auto page =
        storage
            .search({.userName = "ann", .folder = account_.folder.path(), .pageSize = 100}, "*", "")
            .value();
    EXPECT_EQ(page.items.size(), 8U);
    for (const auto& item : page.items)
        EXPECT_EQ(item.versions, 1) << item.folder;
    EXPECT_EQ(account_.stored(), files_);
}

TEST_F(Listings, ThatBreakOffMakeNothingNew)
{
    Relayed relayed(account_);
    relayed.relay.setChange([&](const std::string& request, test::RelayedAnswer& answer) {
        const auto from = answer.body.find("<items>");
        const auto to = answer.body.find("</items>");
        if (isListing(request) && to != std::string::npos)
            answer.body.erase(from, to + 8 - from); // the count stays
    });
    const auto result = account_.backup({"--retry-time", "1", "--jobs", "8"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(field(result, "stored"), 0) << result.output;
    EXPECT_EQ(field(result, "failed"), 8);
    const std::string words = "The service's list breaks off: 0 of 1 entries came.";
    EXPECT_NE(result.errors.find(words), std::string::npos) << result.errors;
    const auto listed =
        account_.run({"ls", account_.folder.path() / "listed1", "--system", "iMac"});
    EXPECT_EQ(listed.status, 5);
    EXPECT_NE(listed.errors.find(words), std::string::npos) << listed.errors;
}

} // namespace
} // namespace stowline
