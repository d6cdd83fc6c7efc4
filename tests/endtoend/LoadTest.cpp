// Many threads at once, each with answers of its own.
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/endtoend/BackedUp.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

/// What one thread does over and over; each answer can only be its own.
class Client {
public:
    Client(int number, std::string server, std::string path)
        : number_(number), server_(std::move(server)), path_(std::move(path))
    {
    }

    void work(int operations)
    {
        for (int i = 0; i < operations; ++i) {
            switch (i % 5) {
            case 0:
                upload(i);
                break;
            case 1:
                ask();
                break;
            case 2:
                registerIt(i);
                break;
            case 3:
                search();
                break;
            default:
                encrypt(i);
            }
        }
    }

private:
    std::string guid() const { return fmt::format("guid-{}-{}", number_, round_); }
    std::string content() const { return fmt::format("client {} round {}", number_, round_); }
    std::string name() const { return fmt::format("file-{}-", number_) + std::to_string(round_); }

    void upload(int i)
    {
        round_ = i;
        std::optional<Error> error;
        const auto answer = WebServiceBroker::uploadForUser("ann", content(), name(), 1000, server_,
                                                            path_, guid(), &error);
        ASSERT_TRUE(answer) << (error ? error->localizedDescription() : "no");
        EXPECT_EQ(platform::findText(*answer, "X-ServerPath"), path_ + guid());
        EXPECT_EQ(platform::findText(*answer, "X-ReceivedBytes"), std::to_string(content().size()));
    }

    void ask()
    {
        const auto answer = WebServiceBroker::getServerFileInfoForClientFilename(
            name(), guid(), "ann", path_, server_, nullptr);
        ASSERT_TRUE(answer);
        EXPECT_EQ(platform::findText(*answer, "X-ServerPath"), path_ + guid());
    }

    void registerIt(int)
    {
        EXPECT_TRUE(WebServiceBroker::protect2UploadedFileForUser(
            "ann", "pass word", server_, name(), fmt::format("/load/{}", number_), content().size(),
            guid(), content().size(), path_, Date(), false, "iMac", 0, guid(), false,
            content().size(), -1, nullptr));
    }

    void search()
    {
        std::int64_t total = -1;
        const auto found = WebServiceBroker::searchFilesForUsername(
            "ann", "pass word", server_, "iMac", fmt::format("/load/{}", number_), name(), 0, 10,
            &total, nullptr);
        ASSERT_TRUE(found);
        ASSERT_EQ(found->size(), 1U);
        EXPECT_EQ(platform::valueAtKeyPath(found->at(0), "Name"), Value(name()));
    }

    void encrypt(int i)
    {
        const std::string text = fmt::format("secret {} {}", number_, i);
        const auto box = WebServiceBroker::encryptString(text);
        ASSERT_TRUE(box);
        EXPECT_EQ(WebServiceBroker::decryptString(box->text()), Value(text));
    }

    const int number_;
    const std::string server_;
    const std::string path_;
    int round_ = 0;
};

void mixedLoad(int threads, int operationsEach)
{
    const test::BackedUp account;
    platform::Bundle::useFolder(account.server.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
    const std::string server = account.server.address().substr(std::string("http://").size());
    const auto path = WebServiceBroker::getUploadServerPathForUsername("ann", server, "load");
    ASSERT_TRUE(path);
    std::vector<std::jthread> workers;
    for (int number = 0; number < threads; ++number)
        workers.emplace_back([=] { Client(number, server, *path).work(operationsEach); });
}

TEST(MixedLoad, NoAnswerIsAnothersOnSixteenThreads)
{
    mixedLoad(16, 10);
}

TEST(MixedLoad, NoAnswerIsAnothersOnSixtyFourThreadsAndTenThousandOperations)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes minutes; scripts/test --long runs it.";
    mixedLoad(64, 160);
}

} // namespace
} // namespace stowline
