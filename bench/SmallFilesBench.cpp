// Many small files through the whole command: by the number of jobs, beside rclone, and over a way
// on which everything takes 40 milliseconds; and a long listing in one answer.
#include "bench/CommandRun.h"
#include "bench/DelayingRelay.h"
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "bench/SftpServer.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr int kJobs = 8;

/// STOWLINE_BENCH_FILES tries all this with fewer.
int fileCount()
{
    const char* given = std::getenv("STOWLINE_BENCH_FILES");
    return given ? std::max(100, std::atoi(given) / 100 * 100) : 10'000;
}

void makeFiles(const fs::path& top, int files)
{
    makeTree(top, {files / 100, 100, std::string(1024, 'x')});
}

/// What storing a tree took.
struct Storing {
    double filesEachSecond = 0;
    double command = 0;     ///< processor seconds, with what it waited for
    double service = 0;     ///< processor seconds
    double registering = 0; ///< seconds of all jobs together
    double seconds = 0;
    double wall = 0;
    long peakKb = 0;
};

Storing stored(test::DevServerProcess& server, const Environment& environment, const fs::path& top,
               int files, int jobs)
{
    const double before = processorSecondsOf(server.process().processId());
    const Run run = runMeasured({test::builtProgram("stowline"), "backup", "--json", "--jobs",
                                 std::to_string(jobs), top.string()},
                                environment);
    const auto last = run.output.rfind("{\"v\":1,\"type\":\"result\"");
    expect(last != std::string::npos, "The backup told no result.");
    const auto result = nlohmann::json::parse(run.output.substr(last));
    expect(result["stored"].get<int>() == files, "Not all was stored.");
    const double seconds = result["seconds"].get<double>();
    return {.filesEachSecond = files / seconds,
            .command = run.processor,
            .service = processorSecondsOf(server.process().processId()) - before,
            .registering = result["registration_seconds"].get<double>(),
            .seconds = seconds,
            .wall = run.wall,
            .peakKb = run.peakKb};
}

/// A service with an account, and a home for the command.
struct Account {
    Account() { signUp(server, home); }
    test::DevServerProcess server;
    const test::TemporaryFolder home;
    const Environment environment = commandEnvironment(server, home);
};

Row rateRow(const std::string& subject, double ours, const std::string& peer, double theirs,
            double wanted)
{
    return {subject,       fmt::format("{:.0f} files/s", ours), peer,
            ours / theirs, fmt::format("≥ {:.1f}", wanted),     ours >= wanted * theirs};
}

void measureByJobs(const fs::path& top, int files)
{
    for (const int jobs : {1, 2, 4, kJobs}) {
        Account account;
        const Storing it = stored(account.server, account.environment, top, files, jobs);
        fmt::print("{} files of 1 KiB, {} at once: {:.0f} files/s; {:.0f} % of the jobs' time "
                   "in SOAP registration, {:.2f} ms each; processor time a file: command without "
                   "its helpers {:.2f} ms, "
                   "service {:.2f} ms ({:.1f} s in all); peak {} KiB\n",
                   files, jobs, it.filesEachSecond, 100 * it.registering / (it.seconds * jobs),
                   1000 * it.registering / files, 1000 * it.command / files,
                   1000 * it.service / files, it.service, it.peakKb);
        std::fflush(stdout);
    }
}

void measureBesideRclone(const fs::path& top, int files)
{
    constexpr int rounds = 3;
    constexpr double wantedEachSecond = 800;
    std::vector<double> rates;
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < rounds; ++round) {
        Account account;
        const Storing it = stored(account.server, account.environment, top, files, kJobs);
        rates.push_back(it.filesEachSecond);
        ours.push_back(it.wall);
        const test::TemporaryFolder target;
        const SftpServer rclone(target.path());
        theirs.push_back(microsecondsFor([&] { rclone.copyFrom(top, kJobs); }) / 1e6);
        expect(fs::exists(target.path() / "folder 00000"), "rclone has copied nothing.");
    }
    const double share = median(ours) / median(theirs);
    const std::string subject = fmt::format("{} files of 1 KiB, eight jobs", files);
    print({rateRow(subject, median(rates), "800 files/s", wantedEachSecond, 1),
           {subject + ", whole command", fmt::format("{:.1f} s", median(ours)),
            fmt::format("rclone to sftp {:.1f} s", median(theirs)), share, "< 1.0", share < 1}});
}

/// Has the service of an account be reached by a relay, with connections kept or without.
class Relayed {
public:
    Relayed(const Account& account, bool isKept)
        : server_(account.server.address().substr(sizeof "http://" - 1)),
          relay_(server_, std::chrono::milliseconds(40))
    {
        const fs::path settings =
            account.server.bundle() / "Resources" / "WebServicesSettings.plist";
        std::string text = platform::readFile(settings).value_or("");
        expect(text.find("<key>requestIdHeader</key>") != std::string::npos,
               "The settings name no header for requests.");
        text = platform::replacingOccurrences(text, server_, relay_.address());
        if (!isKept)
            text = platform::replacingOccurrences(text, "<key>requestIdHeader</key>",
                                                  "<key>noRequestIdHeader</key>");
        expect(platform::writeFileAtomically(settings, text), "The settings cannot be written.");
    }

private:
    const std::string server_;
    const DelayingRelay relay_;
};

void measureOverALongLine(const fs::path& top, int files)
{
    constexpr int rounds = 3;
    constexpr double wanted = 5;
    std::vector<double> kept;
    std::vector<double> single;
    for (int round = 0; round < rounds; ++round) {
        for (const bool isKept : {true, false}) {
            Account account;
            const Relayed relayed(account, isKept);
            (isKept ? kept : single)
                .push_back(
                    stored(account.server, account.environment, top, files, kJobs).filesEachSecond);
        }
    }
    print({rateRow(fmt::format("{} of them, 40 ms each way", files), median(kept),
                   fmt::format("connections not kept {:.0f}", median(single)), median(single),
                   wanted)});
}

std::string listingOf(int entries)
{
    std::string text = "<items>";
    for (int i = 0; i < entries; ++i)
        text += fmt::format("<FileInfo><Name>file {0:06}.txt</Name><FileID>{0}</FileID>"
                            "<IsFolder>false</IsFolder><Size>1024</Size><Path>/big</Path>"
                            "<SystemName>iMac</SystemName><Modified>2026-01-01 00:00:00</Modified>"
                            "<Checksum>cafe{0:06}</Checksum><Versions>1</Versions>"
                            "<IsPackage>false</IsPackage></FileInfo>",
                            i);
    return "<GetAccountFilesAndFoldersResult><Code>Success</Code></"
           "GetAccountFilesAndFoldersResult>" +
           text + "</items><totalCount>" + std::to_string(entries) + "</totalCount>";
}

/// Answers every request with one listing, in a process whose memory is nobody's.
class ListingServer {
public:
    explicit ListingServer(int entries)
    {
        std::array<int, 2> told{};
        expect(::pipe2(told.data(), O_CLOEXEC) == 0, "There is no pipe.");
        process_ = ::fork();
        if (process_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const test::RawServer server(test::soapAnswer(listingOf(entries)));
            const int port = server.port();
            (void)!::write(told[1], &port, sizeof port);
            for (;;)
                ::pause();
        }
        ::close(told[1]);
        expect(::read(told[0], &port_, sizeof port_) == ssize_t(sizeof port_),
               "The server has not begun.");
        ::close(told[0]);
    }
    ~ListingServer()
    {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ListingServer(const ListingServer&) = delete;
    ListingServer& operator=(const ListingServer&) = delete;

    [[nodiscard]] std::string url() const { return fmt::format("http://127.0.0.1:{}/", port_); }

private:
    pid_t process_ = -1;
    int port_ = 0;
};

/// One call that lists, in a process of its own.
void list(int entries)
{
    std::int64_t count = 0;
    std::optional<Error> error;
    const auto items = WebServiceBroker::getAccountFilesAndFoldersForUserName(
        "ann", "pw", "s", "iMac", "/big", "Name", true, 0, entries, &count, &error);
    expect(items && items->size() == static_cast<std::size_t>(entries),
           "The listing is not whole" + (error ? ": " + error->text() : std::string(".")));
}

long peakKbOf(__rusage_who_t who)
{
    rusage usage{};
    ::getrusage(who, &usage);
    return usage.ru_maxrss;
}

void measureOneAnswer(int entries)
{
    constexpr double wantedSeconds = 3;
    constexpr double wantedMebibytes = 400;
    const ListingServer server(entries);
    const test::TestBundle bundle(test::settingsWith(
        "GetAccountFilesAndFolders",
        test::methodEntry(server.url(), {"USERNAME", "PATH", "STARTINDEX", "PAGESIZE"})));
    std::vector<Figures> all;
    for (int round = 0; round < 3; ++round) {
        all.push_back(measured([entries] {
            WebServiceBroker::useNursery(true);
            list(entries);
        }));
    }
    // The peak of a helper that is started alone is told when it ends.
    const test::TemporaryFolder folder;
    (void)measured([&] {
        list(entries);
        folder.write("peak", std::to_string(peakKbOf(RUSAGE_CHILDREN)));
    });
    const long helper = std::stol(platform::readFile(folder.path() / "peak").value_or("0"));
    const Figures figures = mediansOf(all);
    const double most = std::max(figures.mebibytes, static_cast<double>(helper) / 1024);
    const double seconds = figures.microseconds / 1e6;
    print({{fmt::format("listing {} entries in one answer", entries),
            fmt::format("{:.2f} s", seconds), "", seconds / wantedSeconds, "≤ 3 s",
            seconds <= wantedSeconds},
           {"memory of host and helper, the larger", fmt::format("{:.0f} MiB", most), "",
            most / wantedMebibytes, "≤ 400 MiB", most <= wantedMebibytes}});
}

void measureAll()
{
    const int files = fileCount();
    fmt::print("\n");
    measureOneAnswer(10 * files);
    const test::TemporaryFolder folder;
    makeFiles(folder.path() / "tree", files);
    makeFiles(folder.path() / "fewer", std::max(100, files / 20));
    measureByJobs(folder.path() / "tree", files);
    measureBesideRclone(folder.path() / "tree", files);
    measureOverALongLine(folder.path() / "fewer", std::max(100, files / 20));
}

} // namespace

void measureSmallFiles()
{
    measureOrEnd(measureAll);
}

} // namespace stowline::bench
