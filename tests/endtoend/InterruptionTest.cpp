// The first request to stop ends a command, whichever answer of the service it waits for.
#include "tests/endtoend/Relayed.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <mutex>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::noise;
using test::Relayed;
using test::Words;

/// Holds back the answers to one kind of request.
class Stall {
public:
    explicit Stall(std::string call) : call_(std::move(call)) {}
    ~Stall() { release(); }
    Stall(const Stall&) = delete;
    Stall& operator=(const Stall&) = delete;

    /// In a thread of the relay: waits when it is such a request.
    void meet(const std::string& request)
    {
        if (Relayed::callOf(request) != call_)
            return;
        std::unique_lock lock(mutex_);
        isMet_ = true;
        change_.notify_all();
        change_.wait(lock, [this] { return isReleased_; });
    }
    /// @return false when no such request came
    [[nodiscard]] bool awaitRequest()
    {
        std::unique_lock lock(mutex_);
        return change_.wait_for(lock, std::chrono::seconds(60), [this] { return isMet_; });
    }
    void release()
    {
        const std::lock_guard lock(mutex_);
        isReleased_ = true;
        change_.notify_all();
    }

private:
    const std::string call_;
    std::mutex mutex_;
    std::condition_variable change_;
    bool isMet_ = false;
    bool isReleased_ = false;
};

struct Wait {
    std::string command;
    std::string call;
    int signal = SIGINT;
};

void PrintTo(const Wait& wait, std::ostream* stream)
{
    *stream << wait.command << " in " << wait.call;
}

class Interruption : public testing::TestWithParam<Wait> {
protected:
    Interruption()
    {
        account_.write({{"a", noise(1000, 1)}, {"d/b", noise(1000, 2)}});
        EXPECT_EQ(account_.backup().status, 0);
        account_.write({{"a", noise(1000, 3)}});
    }

    [[nodiscard]] test::ProgramRun run() const
    {
        const std::string& command = GetParam().command;
        if (command == "backup")
            return account_.backupRun();
        Words words{command, "--machine", "iMac", "--json"};
        if (command == "restore")
            words.insert(words.end(), {"--to", account_.command.home().path() / "back",
                                       account_.folder.path().string()});
        if (command == "verify")
            words.emplace_back("--read");
        return account_.command.run(words, account_.environment());
    }

    const BackedUp account_;
};

TEST_P(Interruption, EndsTheCommandAtOnce)
{
    const Wait& wait = GetParam();
    Stall stall(wait.call);
    Relayed relayed(account_);
    relayed.relay.setChange(
        [&stall](const std::string& request, test::RelayedAnswer&) { stall.meet(request); });
    test::BackgroundProgram program(run());
    ASSERT_TRUE(stall.awaitRequest()) << program.wait().errors;
    const auto start = std::chrono::steady_clock::now();
    program.signal(wait.signal);
    const auto result = program.wait();
    const auto took = std::chrono::steady_clock::now() - start;
    stall.release();
    relayed.relay.setChange({});
    // Two seconds and what a busy machine makes of them; the answer would never have come.
    EXPECT_LT(took, std::chrono::seconds(15));
    EXPECT_EQ(result.status, wait.signal == SIGINT ? 130 : 143) << result.errors;
    EXPECT_EQ(field(result, "status"), "interrupted") << result.output;

    const auto next = test::runProgram(run());
    EXPECT_EQ(next.status, 0) << next.errors;
}

std::vector<Wait> waits()
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> table{
        {"backup",
         {"Authenticate", "GetPhyPath", "GetAccountSystems", "GetAccountFilesAndFolders",
          "GetRestoreTicket", "/DownloadFilePart", "getMetaDataAboutFilesToRecover",
          "/UploadFilePart", "protect2"}},
        {"restore",
         {"Authenticate", "GetAccountSystems", "GetAccountFilesAndFolders", "GetFileVersions",
          "GetRestoreTicket", "/DownloadFilePart"}},
        {"verify",
         {"Authenticate", "GetAccountSystems", "GetAccountFilesAndFolders", "GetFileVersions",
          "GetRestoreTicket", "/DownloadFilePart", "getMetaDataAboutFilesToRecover"}}};
    std::vector<Wait> waits;
    for (const auto& [command, calls] : table)
        for (const std::string& call : calls)
            for (const int signal : {SIGINT, SIGTERM})
                waits.push_back({command, call, signal});
    return waits;
}

INSTANTIATE_TEST_SUITE_P(InEveryWait, Interruption, testing::ValuesIn(waits()),
                         [](const auto& test) {
                             const Wait& wait = test.param;
                             std::string name = wait.command + "_" + wait.call +
                                                (wait.signal == SIGINT ? "_INT" : "_TERM");
                             std::erase(name, '/');
                             return name;
                         });

} // namespace
} // namespace stowline
