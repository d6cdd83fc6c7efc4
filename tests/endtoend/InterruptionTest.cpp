// The first request to stop ends a command, whichever answer of the service it waits for.
#include "tests/endtoend/HeldAnswers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::HeldAnswers;
using test::noise;
using test::Words;

struct Wait {
    std::string command;
    std::string call;
    int signal = SIGINT;
    HeldAnswers::Form form = HeldAnswers::Form::silent;
};

void PrintTo(const Wait& wait, std::ostream* stream)
{
    *stream << wait.command << " in " << wait.call
            << (wait.form == HeldAnswers::Form::dripping ? ", which drips" : "");
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
    HeldAnswers answers(account_);
    answers.hold(test::callsOf(wait.call), wait.form);
    test::BackgroundProgram program(run());
    ASSERT_TRUE(answers.await()) << program.wait().errors;
    const auto start = std::chrono::steady_clock::now();
    program.signal(wait.signal);
    const auto result = program.wait();
    const auto took = std::chrono::steady_clock::now() - start;
    answers.release();
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
          "/UploadFilePart", "protect2", "/GetServerPartInfo"}},
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
    for (const char* call : {"/UploadFilePart", "protect2"})
        waits.push_back({"backup", call, SIGINT, HeldAnswers::Form::dripping});
    for (const char* call : {"/DownloadFilePart", "GetFileVersions"})
        waits.push_back({"restore", call, SIGINT, HeldAnswers::Form::dripping});
    return waits;
}

INSTANTIATE_TEST_SUITE_P(InEveryWait, Interruption, testing::ValuesIn(waits()),
                         [](const auto& test) {
                             const Wait& wait = test.param;
                             std::string name =
                                 wait.command + "_" + wait.call +
                                 (wait.signal == SIGINT ? "_INT" : "_TERM") +
                                 (wait.form == HeldAnswers::Form::dripping ? "_Drip" : "");
                             std::erase(name, '/');
                             return name;
                         });

} // namespace
} // namespace stowline
