// A whole broker call beside the curl command that posts the same envelope to the same server, over
// http and over https with a trust store of the system's size: its time and processor time, the
// first call of a process, and calls of many threads at once.
#include "bench/CommandRun.h"
#include "bench/Measure.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/SettingsCheck.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/soap/Envelope.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Helpers.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;
using test::DevServerProcess;
using test::TemporaryFolder;

constexpr int kRounds = 101;
constexpr const char* kText = "a text to encrypt";

[[noreturn]] void giveUp(const std::string& sentence)
{
    fmt::print(stderr, "stowline-bench: {}\n", sentence);
    std::exit(1);
}

void run(const std::vector<std::string>& command)
{
    const auto answer = platform::captureOutput(command, std::chrono::minutes(1));
    if (!answer || !answer->exit.isSuccess())
        giveUp(command.front() + " failed");
}

/// A certificate for the server, and trust stores of the system's size that hold it too: a bundle
/// file for the command, a folder looked up by hash for ours.
struct TrustStores {
    explicit TrustStores(const TemporaryFolder& folder)
        : key((folder.path() / "key.pem").string()),
          certificate((folder.path() / "c.pem").string()),
          bundle((folder.path() / "bundle.pem").string()),
          hashed((folder.path() / "hashed").string())
    {
        run({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
             "/CN=bench", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out",
             certificate});
        const auto system = platform::readFile("/etc/ssl/certs/ca-certificates.crt");
        const auto own = platform::readFile(certificate);
        if (!system || !own || !platform::writeFileAtomically(bundle, *system + *own))
            giveUp("the system's certificates cannot be read (package ca-certificates)");
        fs::copy("/etc/ssl/certs", hashed, fs::copy_options::recursive);
        fs::copy(certificate, hashed + "/bench.pem");
        run({"openssl", "rehash", hashed});
    }
    std::string key;
    std::string certificate;
    std::string bundle;
    std::string hashed;
};

void brokerCall()
{
    if (!WebServiceBroker::encryptString(kText))
        giveUp("the broker's call failed");
}

/// The command that posts what the broker's call posts.
std::vector<std::string> curlCommand(const TemporaryFolder& folder, const std::string& address,
                                     const std::vector<std::string>& options)
{
    const std::string envelope = soap::envelopeFor({"EncryptString",
                                                    "http://stowline.example/account",
                                                    std::nullopt,
                                                    {{"sourceString", "<<SOURCESTRING>>"}},
                                                    {{"<<SOURCESTRING>>", kText}}});
    const auto file = folder.write("envelope.xml", envelope);
    std::vector<std::string> command{
        "curl",
        "--silent",
        "--fail",
        "--data-binary",
        "@" + file.string(),
        "-H",
        "Content-Type: text/xml; charset=utf-8",
        "-H",
        "SOAPAction: \"http://stowline.example/account/EncryptString\""};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(address + "/AccountService.asmx");
    return command;
}

std::string asWanted(double most)
{
    return fmt::format("≤ {:.2f}", most);
}

Row compare(const std::string& subject, const std::vector<std::string>& curl, double wanted)
{
    brokerCall(); // has the nursery begin
    std::vector<double> ours;
    std::vector<double> peer;
    for (int round = 0; round < kRounds; ++round) {
        ours.push_back(microsecondsFor(brokerCall));
        peer.push_back(microsecondsFor([&] { run(curl); }));
    }
    const double ratio = median(ours) / median(peer);
    return {subject,
            inMilliseconds(median(ours)),
            "curl " + inMilliseconds(median(peer)),
            ratio,
            asWanted(wanted),
            ratio <= wanted};
}

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Processor time of this process and of everything that it has waited for, in microseconds.
double ownProcessorTime()
{
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        ::getrusage(static_cast<__rusage_who_t>(who), &usage);
        sum += seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }
    return sum * 1e6;
}

/// The same of the nursery and the children that it has waited for (proc(5), "stat").
double nurserysProcessorTime()
{
    double seconds = 0;
    for (const int nursery : test::nurseriesOf(::getpid()))
        seconds += processorSecondsOf(nursery);
    return seconds * 1e6;
}

/// Processor time of every process of a call, which the system tells in hundredths of a second:
/// of many calls, therefore, and fewer than a nursery serves.
Row compareProcessorTime(const std::vector<std::string>& curl, double wanted)
{
    constexpr int calls = 400;
    WebServiceBroker::useNursery(false); // one that has served none yet
    WebServiceBroker::useNursery(true);
    brokerCall();
    const double before = ownProcessorTime() + nurserysProcessorTime();
    for (int i = 0; i < calls; ++i)
        brokerCall();
    const double ours = (ownProcessorTime() + nurserysProcessorTime() - before) / calls;
    const double begin = ownProcessorTime();
    for (int i = 0; i < calls; ++i)
        run(curl);
    const double peer = (ownProcessorTime() - begin) / calls;
    return {"processor time of a call over http",
            inMilliseconds(ours),
            "curl " + inMilliseconds(peer),
            ours / peer,
            asWanted(wanted),
            ours / peer <= wanted};
}

/// The first call of a process, again and again in a new one.
Row compareFirst(const test::DevServerProcess& server, const std::vector<std::string>& curl,
                 double wanted)
{
    constexpr int rounds = 31;
    std::vector<double> ours;
    std::vector<double> peer;
    for (int round = 0; round < rounds; ++round) {
        const auto result = test::runProgram(
            {{fs::read_symlink("/proc/self/exe").string(), "call"},
             {{"STOWLINE_BENCH_PART", "first"}, {"STOWLINE_BENCH_BUNDLE", server.bundle()}}});
        if (result.status != 0)
            giveUp(result.errors);
        ours.push_back(std::strtod(result.output.c_str(), nullptr));
        peer.push_back(microsecondsFor([&] { run(curl); }));
    }
    const double ratio = median(ours) / median(peer);
    return {"first call of a process",
            inMilliseconds(median(ours)),
            "curl " + inMilliseconds(median(peer)),
            ratio,
            asWanted(wanted),
            ratio <= wanted};
}

/// What a command does: begins the nursery, reads its settings, calls.
void measureFirst()
{
    platform::Bundle::useFolder(std::getenv("STOWLINE_BENCH_BUNDLE"));
    platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/stowline");
    WebServiceBroker::useNursery(true);
    WebServiceBroker::beginNursery();
    const auto settings =
        platform::readFile(platform::Bundle::resourceFolder() / "WebServicesSettings.plist");
    if (!settings || !checkSettings(*settings).empty())
        giveUp("the settings are not sound");
    fmt::print("{}\n", microsecondsFor(brokerCall));
}

/// Calls of many threads at once; every answer is looked at.
void measureThreads()
{
    constexpr int threads = 64;
    constexpr int callsEach = 500;
    constexpr double wanted = 1000;
    const DevServerProcess server;
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/stowline");
    WebServiceBroker::useNursery(true);
    std::atomic<int> wrong = 0;
    const double took = microsecondsFor([&] {
        std::vector<std::jthread> callers;
        for (int t = 0; t < threads; ++t)
            callers.emplace_back([&wrong, t] {
                const std::string text = fmt::format("text of thread {}", t);
                const auto expected = WebServiceBroker::encryptString(text);
                for (int i = 1; i < callsEach; ++i)
                    wrong +=
                        WebServiceBroker::decryptString(expected->text()) == Value(text) ? 0 : 1;
            });
    });
    const double rate = threads * callsEach / (took / 1e6);
    constexpr std::chrono::seconds patience{1}; // a child may still be ending as its call returns
    const auto deadline = Clock::now() + patience;
    while (!test::helpersOf(::getpid()).empty() && Clock::now() < deadline)
        std::this_thread::yield();
    const std::size_t left = test::helpersOf(::getpid()).size();
    fmt::print(
        "\n{} threads, {} calls each: {:.0f} calls/s (wanted ≥ {:.0f}{}); {} wrong answers, {} "
        "processes of calls left, the service on the same processors\n",
        threads, callsEach, rate, wanted, rate >= wanted ? "" : ", not met", wrong.load(), left);
}

/// Where the time of a call goes: medians of the stages that a helper with a stopwatch notes.
void printStages(const TemporaryFolder& folder)
{
    const std::string notes = (folder.path() / "stages").string();
    ::setenv("STOWLINE_BENCH_STAGES", notes.c_str(), 1);
    std::vector<std::string> names;
    std::vector<std::vector<double>> times;
    for (int round = 0; round < kRounds; ++round) {
        fs::remove(notes);
        const double begin = Microseconds(Clock::now().time_since_epoch()).count();
        brokerCall();
        const double end = Microseconds(Clock::now().time_since_epoch()).count();
        std::istringstream lines(platform::readFile(notes).value_or(""));
        double last = begin;
        std::size_t stage = 0;
        const auto note = [&](const std::string& name, double moment) {
            if (stage == names.size()) {
                names.push_back(name);
                times.emplace_back();
            }
            times[stage++].push_back(moment - last);
            last = moment;
        };
        for (std::string line; std::getline(lines, line);) {
            const auto blank = line.find(' ');
            note(line.substr(blank + 1), std::strtod(line.c_str(), nullptr));
        }
        note("output read, child released and reaped, result unarchived", end);
    }
    ::unsetenv("STOWLINE_BENCH_STAGES");
    fmt::print("\nwhere the time of a call over http goes when the program is started for it "
               "(medians):\n");
    for (std::size_t stage = 0; stage < names.size(); ++stage)
        fmt::print("  {:>9}  {}\n", inMilliseconds(median(times[stage])), names[stage]);
}

/// Runs the measurements of one scheme in a process of its own: the bundle is read once a process.
void measureScheme(const std::string& scheme)
{
    const TemporaryFolder folder;
    const bool tls = scheme == "https";
    const std::optional<TrustStores> trust =
        tls ? std::optional<TrustStores>(folder) : std::nullopt;
    std::vector<std::string> serverArguments;
    if (tls) {
        serverArguments = {"--tls-certificate", trust->certificate, "--tls-key", trust->key};
        ::setenv("SSL_CERT_DIR", trust->hashed.c_str(), 1);
    }
    const DevServerProcess server(serverArguments);
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/stowline");
    WebServiceBroker::useNursery(true);
    std::vector<std::string> options;
    if (tls)
        options = {"--cacert", trust->bundle};
    const auto curl = curlCommand(folder, server.address(), options);
    std::vector<Row> rows{compare("whole broker call over " + scheme, curl, tls ? 0.15 : 0.25)};
    if (!tls) {
        rows.push_back(compareProcessorTime(curl, 0.25));
        rows.push_back(compareFirst(server, curl, 1.1));
    }
    print(rows);
}

void measureStages()
{
    const TemporaryFolder folder;
    const DevServerProcess server;
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(STOWLINE_TEST_BIN "/timed/stowline");
    printStages(folder);
}

} // namespace

void measureCalls()
{
    const char* part = std::getenv("STOWLINE_BENCH_PART");
    if (!part) {
        for (const char* next : {"http", "https", "threads", "stages"}) {
            const auto result =
                test::runProgram({{fs::read_symlink("/proc/self/exe").string(), "call"},
                                  {{"STOWLINE_BENCH_PART", next}}});
            fmt::print("{}", result.output);
            if (result.status != 0)
                giveUp(result.errors);
        }
        fmt::print("\n");
        return;
    }
    if (std::string(part) == "stages")
        measureStages();
    else if (std::string(part) == "first")
        measureFirst();
    else if (std::string(part) == "threads")
        measureThreads();
    else
        measureScheme(part);
    std::fflush(stdout);
    std::exit(0);
}

} // namespace stowline::bench
