// A whole broker call beside the curl command that posts the same envelope to the same server, over
// http and over https with a trust store of the system's size.
#include "bench/Measure.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/service/WebServicesSettings.h"
#include "stowline/soap/Envelope.h"
#include "tests/support/DevServerProcess.h"

#include <fmt/format.h>

#include <cstdlib>
#include <sstream>

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

Row compare(const std::string& subject, const std::vector<std::string>& curl, double wanted)
{
    std::vector<double> ours;
    std::vector<double> peer;
    for (int round = 0; round < kRounds; ++round) {
        ours.push_back(microsecondsFor(brokerCall));
        peer.push_back(microsecondsFor([&] { run(curl); }));
    }
    const double ratio = median(ours) / median(peer);
    return {subject, inMilliseconds(median(ours)),    "curl " + inMilliseconds(median(peer)),
            ratio,   fmt::format("≤ {:.1f}", wanted), ratio <= wanted};
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
    fmt::print("\nwhere the time of a call over http goes (medians):\n");
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
    std::vector<std::string> options;
    if (tls)
        options = {"--cacert", trust->bundle};
    const auto curl = curlCommand(folder, server.address(), options);
    print({compare("whole broker call over " + scheme, curl, tls ? 0.8 : 1.3)});
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
        for (const char* next : {"http", "https", "stages"}) {
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
    else
        measureScheme(part);
    std::fflush(stdout);
    std::exit(0);
}

} // namespace stowline::bench
