// A password that is easy to recognise goes through everything, on good days and bad ones; it may
// be nowhere afterwards, and in no list of processes meanwhile.
#include "stowline/logging/DDFileLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/logging/SQLiteLogger.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Base64.h"
#include "tests/endtoend/BackedUp.h"
#include "tests/support/Helpers.h"
#include "tests/support/TestPaths.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Environment;
using test::Words;

constexpr const char* kCanary = "Kanarienvogel<&>7f3c";
constexpr const char* kToken = "Zeisig<&>9d21";

/// A secret as it may look on its way: as it is, escaped for XML and URLs, in Base64 (without the
/// last characters, which depend on what follows).
std::vector<std::string> formsOf(const std::string& secret)
{
    std::string base64 = Base64::base64EncodingWithLineLength(secret, 0);
    base64.resize(base64.size() - 4);
    return {secret, platform::escapedForHtml(secret), base64, secret.substr(0, secret.find('<'))};
}

/// Where one of the secrets stands in a text, in some form; empty when nowhere.
std::string secretIn(const std::string& text)
{
    for (const std::string& secret : {std::string(kCanary), std::string(kToken)}) {
        for (const std::string& form : formsOf(secret)) {
            if (const auto at = text.find(form); at != std::string::npos)
                return text.substr(at > 60 ? at - 60 : 0, 160);
        }
    }
    return {};
}

/// Looks at every file below a folder.
void expectNoSecretBelow(const fs::path& folder)
{
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file())
            continue;
        const auto content = platform::readFile(entry.path());
        EXPECT_EQ(secretIn(content.value_or("")), "") << entry.path();
    }
}

/// Every command that has a secret to handle.
std::vector<Words> commands(const fs::path& folder)
{
    const std::string path = folder.string();
    return {{"signin"},
            {"backup", path, "--retry-time", "0", "--report", "--email", "a@b.c", "--monitor"},
            {"uploads", "resume", "--retry-time", "0"},
            {"account", "--show-encryption-key"},
            {"systems"},
            {"ls", path},
            {"search", "*"},
            {"versions", "1"},
            {"restore-info", "1"},
            {"monitor", "settings"},
            {"monitor", "event", "BackupEnded"},
            {"report"},
            {"email", "a@b.c"},
            {"rm", "--version", "1", "--yes"},
            {"rm", path + "/d", "--yes", "--poll", "0.05", "--follow-time", "1"},
            {"signup", "--email", "a@b.c"},
            {"signup", "--email", "a@b.c", "--customer-type", "T", "--secret-question", "Who?"}};
}

const std::vector<std::string> kMethods{"Authenticate",
                                        "CreateAccount",
                                        "CreateTrialAccount",
                                        "GetAccountUsedSpace",
                                        "GetAccountInfo",
                                        "GetPhyPath",
                                        "getenckey",
                                        "PreparePackagedFilesForProtection",
                                        "GetAccountSystems",
                                        "GetAccountFilesAndFolders",
                                        "GetFileVersions",
                                        "SearchFilesEx",
                                        "getMetaDataAboutFilesToRecover",
                                        "DeleteFilesInBulk",
                                        "ProtectFile",
                                        "protect2",
                                        "GetSettings",
                                        "LogEvent",
                                        "SendBackupSummaryReport",
                                        "sendEmail",
                                        "BeginDeleteFolders",
                                        "CheckDeleteFolders",
                                        "BeginCancelDeleteFolders",
                                        "GetServerPartInfo",
                                        "UploadFilePart"};

/// A machine with the command and an account on a service, whose every folder is looked at.
class Household {
public:
    Household()
    {
        tree_.write("a", "content");
        tree_.write("d/b", "content");
        const test::DevServerProcess sound(options({}), data_.path() / "kept");
        const Words first{"signup", "--email", "a@b.c"};
        EXPECT_EQ(test::runProgram(run(sound, first)).status, 0);
        EXPECT_EQ(test::runProgram(run(sound, {"backup", tree_.path().string()})).status, 0);
    }

    /// Every command, on a service whose methods fail.
    void runAll(const std::vector<std::string>& failingMethods, const std::string& kind)
    {
        Words faults;
        for (const std::string& method : failingMethods)
            faults.insert(faults.end(), {"--fault", method + ":*:" + kind});
        const test::DevServerProcess faulty(options(faults), data_.path() / "kept");
        const bool isSlow = kind == "stall" || kind == "drip";
        for (const Words& words : commands(tree_.path())) {
            const auto result =
                isSlow ? interrupted(run(faulty, words)) : test::runProgram(run(faulty, words));
            EXPECT_EQ(secretIn(result.output), "") << words.front();
            EXPECT_EQ(secretIn(result.errors), "") << words.front();
            EXPECT_LT(result.status, 1000) << words.front() << " crashed";
        }
    }

    void expectNoSecretIsLeft() const
    {
        EXPECT_FALSE(fs::is_empty(home_.path() / ".local/state/stowline/logs"));
        EXPECT_FALSE(fs::is_empty(data_.path() / "logs"));
        EXPECT_NE(secretIn(platform::readFile(tokens_).value()), "") << "it is not recognised";
        fs::remove(tokens_);
        for (const auto* folder : {&home_, &temporary_, &data_})
            expectNoSecretBelow(folder->path());
    }

private:
    [[nodiscard]] Words options(Words more) const
    {
        more.insert(more.end(), {"--monitoring-tokens", tokens_.string(), "--log-folder",
                                 (data_.path() / "logs").string(), "--log-level", "verbose"});
        return more;
    }

    [[nodiscard]] test::ProgramRun run(const test::DevServerProcess& server, Words words) const
    {
        words.insert(words.begin(), {test::builtProgram("stowline"), "-v", "--log-file",
                                     "--log-level", "verbose"});
        return {std::move(words),
                {{"HOME", home_.path().string()},
                 {"TMPDIR", temporary_.path().string()},
                 {"STOWLINE_BUNDLE", server.bundle().string()},
                 {"STOWLINE_USERNAME", "ann"},
                 {"STOWLINE_PASSWORD", kCanary},
                 {"STOWLINE_ANSWER", kCanary},
                 {"STOWLINE_MONITOR_TOKEN", kToken}}};
    }

    /// Of a command that would wait for a minute: ended by SIGTERM after a moment.
    /// Whether a process waits for SIGTERM or has a handler for it (proc(5), "SigBlk" and "SigCgt":
    /// masks of signal numbers from 1).
    static bool catchesTermination(int process)
    {
        std::ifstream status("/proc/" + std::to_string(process) + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if ((line.starts_with("SigBlk:") || line.starts_with("SigCgt:")) &&
                (std::stoull(line.substr(7), nullptr, 16) >> (SIGTERM - 1) & 1) != 0)
                return true;
        }
        return false;
    }

    static test::ProgramResult interrupted(const test::ProgramRun& run)
    {
        test::BackgroundProgram program(run);
        // Not before it has got so far as to obey: a loaded machine needs seconds to start it.
        while (program.isRunning() && !catchesTermination(program.processId()))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
        while (program.isRunning() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        program.signal(SIGTERM);
        return program.wait();
    }

    const test::TemporaryFolder data_;
    const test::TemporaryFolder temporary_;
    const test::TemporaryFolder tree_;
    const test::TemporaryFolder home_;
    const fs::path tokens_ = data_.write("tokens", std::string(kToken) + "\n");
};

class SecretsUnderFault : public testing::TestWithParam<std::string> {};

TEST_P(SecretsUnderFault, AreInNothingThatIsLeft)
{
    Household household;
    household.runAll(kMethods, GetParam());
    // Once more with a sign-in that works, so that the rest is reached.
    household.runAll({kMethods.begin() + 1, kMethods.end()}, GetParam());
    if (std::getenv("STOWLINE_LONG_TESTS")) {
        for (const std::string& method : kMethods)
            household.runAll({method}, GetParam());
    }
    household.expectNoSecretIsLeft();
}

INSTANTIATE_TEST_SUITE_P(Kinds, SecretsUnderFault,
                         testing::Values("fault", "500", "html", "cut", "stall", "reset", "drip",
                                         "garbage", "lost", "lie"),
                         [](const auto& kind) { return "kind_" + kind.param; });

/// Loggers of every kind that keeps something, with everything let through.
class EverythingLogged {
public:
    explicit EverythingLogged(const fs::path& folder)
    {
        platform::setConsoleLogSink(
            [this](std::string_view line) { console_.append(line).push_back('\n'); });
        DDLog::addLogger(std::make_shared<DDFileLogger>(
            std::make_shared<DDLogFileManagerDefault>((folder / "logs").string())));
        DDLog::addLogger(SQLiteLogger::open((folder / "log.sqlite").string(), nullptr));
    }
    ~EverythingLogged()
    {
        DDLog::removeAllLoggers();
        DDLog::flushLog();
        platform::setConsoleLogSink({});
    }
    EverythingLogged(const EverythingLogged&) = delete;
    EverythingLogged& operator=(const EverythingLogged&) = delete;

    [[nodiscard]] const std::string& console() const { return console_; }

private:
    std::string console_;
};

/// Where a nursery forks the helper, and where it is started for its call.
class Secrets : public testing::TestWithParam<test::HelperForm> {
protected:
    /// A sign-in at a service that does not answer it.
    [[nodiscard]] static test::BackgroundProgram
    signingIn(const test::DevServerProcess& server, const test::TemporaryFolder& home, Words words)
    {
        words.insert(words.end(), {test::builtProgram("stowline"), "signin"});
        auto environment = test::environmentFor(GetParam());
        environment.insert({{"HOME", home.path().string()},
                            {"STOWLINE_BUNDLE", server.bundle().string()},
                            {"STOWLINE_USERNAME", "ann"},
                            {"STOWLINE_PASSWORD", kCanary}});
        return test::BackgroundProgram({std::move(words), std::move(environment)});
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, Secrets, testing::ValuesIn(test::kHelperForms), test::nameOfForm);

TEST_P(Secrets, AreInNoProcessListLogDatabaseOrSystemLogDuringTenThousandCalls)
{
    const bool isLong = std::getenv("STOWLINE_LONG_TESTS");
    const int calls = isLong ? 10000 : 300;
    const int enough = calls / 50; // helpers that the scanner must have come upon
    const test::DevServerProcess server;
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
    WebServiceBroker::useNursery(GetParam() == test::HelperForm::ofNursery);
    const test::TemporaryFolder folder;
    std::string console;
    {
        const EverythingLogged logged(folder.path());
        ASSERT_TRUE(
            WebServiceBroker::creatAccountWithFirstname("Ann", "ann", kCanary, "a@b.c", nullptr));
        test::BackgroundProgram scanner(
            {{"/usr/bin/python3", test::sourceFile("tests/process_scanner.py"), "WebServiceCaller",
              std::to_string(enough)},
             {},
             std::string(kCanary) + "\n"});
        ASSERT_EQ(scanner.readLine(), "ready");
        std::atomic<int> left = calls;
        std::atomic<int> refused = 0;
        std::atomic<bool> isSeen = false;
        std::vector<std::jthread> callers;
        for (int i = 0; i < 4; ++i) {
            callers.emplace_back([&] {
                while (left-- > 0 || !isSeen) {
                    std::optional<Error> error;
                    const auto result =
                        WebServiceBroker::authenticateForUsername("ann", kCanary, &error);
                    if (!result || platform::findText(*result, "AuthenticateResult") != "true")
                        ++refused;
                }
            });
        }
        EXPECT_EQ(scanner.readLine(), "seen");
        isSeen = true;
        callers.clear();
        scanner.closeInput();
        EXPECT_EQ(refused, 0);
        const auto report = scanner.wait();
        EXPECT_EQ(report.errors, "");
        std::istringstream figures(report.output);
        int looks = 0;
        int seen = 0;
        int finds = -1;
        figures >> looks >> seen >> finds;
        std::cout << calls << " calls; " << looks << " looks at all processes, " << seen
                  << " helpers seen\n";
        EXPECT_GE(seen, enough);
        EXPECT_EQ(finds, 0);
        console = logged.console();
    }
    EXPECT_FALSE(console.empty());
    EXPECT_EQ(secretIn(console), "");
    expectNoSecretBelow(folder.path());
}

/// Whether a program that crashes leaves a core in its folder here.
bool areCoresWritten()
{
    const test::TemporaryFolder folder;
    (void)test::runProgram(
        {{"/bin/sh", "-c", "ulimit -c unlimited; cd \"$0\"; sh -c 'kill -SEGV $$'",
          folder.path().string()}});
    return !fs::is_empty(folder.path());
}

TEST_P(Secrets, AreInNoChildsEnvironmentAndNoLongerInTheCommandsOwn)
{
    const test::DevServerProcess server({"--fault", "Authenticate:*:stall"});
    const test::TemporaryFolder home;
    test::BackgroundProgram command = signingIn(server, home, {});
    std::vector<int> processes{command.awaitHelper(), command.processId()};
    const auto nurseries = test::nurseriesOf(command.processId());
    EXPECT_EQ(nurseries.size(), test::nurseriesIn(GetParam()));
    processes.insert(processes.end(), nurseries.begin(), nurseries.end());
    for (const int process : processes) {
        // A child that was just made has none until its program runs.
        const std::string file = "/proc/" + std::to_string(process) + "/environ";
        auto environment = platform::readFile(file);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (environment && environment->empty() && std::chrono::steady_clock::now() < deadline)
            environment = platform::readFile(file);
        ASSERT_TRUE(environment) << process;
        EXPECT_NE(environment->find("STOWLINE_USERNAME=ann"), std::string::npos);
        EXPECT_EQ(secretIn(*environment), "");
    }
    command.signal(SIGTERM);
    (void)command.wait();
}

TEST_P(Secrets, AreInNoCore)
{
    if (!areCoresWritten())
        GTEST_SKIP() << "This machine writes no cores into the folder of the program that crashed "
                        "(/proc/sys/kernel/core_pattern).";
    const test::DevServerProcess server({"--fault", "Authenticate:*:stall"});
    const test::TemporaryFolder folder;
    const test::TemporaryFolder home;
    test::BackgroundProgram command = signingIn(
        server, home,
        {"/bin/sh", "-c", "ulimit -c unlimited; cd \"$0\"; exec \"$@\"", folder.path().string()});
    const int helper = command.awaitHelper();
    ASSERT_EQ(::kill(helper, SIGSEGV), 0);
    command.signal(SIGSEGV);
    (void)command.wait();
    test::awaitEnd(helper);
    // A helper that ends before it forbids its core has read nothing yet.
    for (const auto& core : fs::directory_iterator(folder.path()))
        EXPECT_EQ(platform::readFile(core.path()).value().find(kCanary), std::string::npos)
            << core.path();
}

} // namespace
} // namespace stowline
