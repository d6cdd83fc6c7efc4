// Getting back: a large file beside curl, tee and sha256sum, many small ones beside rclone and its
// own server, and a tree that is right already beside sha256sum.
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "bench/SftpServer.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <cstdio>
#include <fstream>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 3;
constexpr std::uint64_t kPartBytes = 4U << 20;
constexpr std::uint64_t kLargeBytes = 1U << 30;

void run(const std::vector<std::string>& words)
{
    const auto result = test::runProgram({.words = words});
    expect(result.status == 0, words.front() + ": " + result.errors);
}

/// Bytes that nothing can pack.
void writeNoise(const fs::path& file, std::uint64_t size)
{
    std::ofstream out(file, std::ios::binary);
    std::vector<std::uint64_t> piece(kPartBytes / sizeof(std::uint64_t));
    std::uint64_t state = 88172645463325252U;
    for (std::uint64_t at = 0; at < size; at += kPartBytes) {
        for (std::uint64_t& word : piece) { // xorshift64
            state ^= state << 13U;
            state ^= state >> 7U;
            state ^= state << 17U;
            word = state;
        }
        out.write(reinterpret_cast<const char*>(piece.data()),
                  static_cast<std::streamsize>(kPartBytes));
    }
    expect(out.good(), "The large file cannot be written.");
}

/// Writes the same requests as a restore makes, one after another over one connection.
void writeCurlConfiguration(const fs::path& file, const ServedTree& service,
                            const std::string& name)
{
    const backup::Account& account = service.account();
    const auto ticket = WebServiceBroker::restoreTicketForUsername(
        account.username, account.password, account.server, nullptr);
    expect(ticket.has_value(), "There is no ticket.");
    const auto version = service.versionOf(name);
    std::ofstream out(file);
    for (std::uint64_t at = 0; at < version.storedSize; at += kPartBytes)
        out << fmt::format("{}url = \"http://{}/DownloadFilePart\"\nsilent\nfail\n"
                           "header = \"X-UserName: YW5u\"\nheader = \"X-Ticket: {}\"\n"
                           "header = \"X-VersionID: {}\"\nheader = \"X-Offset: {}\"\n"
                           "header = \"X-Length: {}\"\n",
                           at == 0 ? "" : "next\n", account.server, ticket->text, version.id, at,
                           kPartBytes);
    expect(out.good(), "The requests cannot be written.");
}

Row rowOf(const std::string& subject, double ours, const std::string& peer, double theirs,
          const char* wanted, double most)
{
    return {subject, inMilliseconds(ours), peer + " " + inMilliseconds(theirs), ours / theirs,
            wanted,  ours <= most * theirs};
}

void measureLargeFile()
{
    const test::TemporaryFolder folder;
    fs::create_directories(folder.path() / "tree");
    ServedTree service(folder.path(), "seed");
    writeNoise(folder.path() / "tree/large", kLargeBytes);
    service.store(folder.path() / "tree/large");
    const auto configuration = folder.path() / "curl.conf";
    // In a process of its own: this one is to know another service later.
    (void)measured([&] { writeCurlConfiguration(configuration, service, "large"); });
    const auto target = folder.path() / "back";
    const auto copy = folder.path() / "copy";
    const std::string peer =
        fmt::format("set -o pipefail; curl --config '{}' | tee '{}' | sha256sum >/dev/null",
                    configuration.string(), copy.string());
    std::vector<Figures> ours;
    std::vector<Figures> theirs;
    std::vector<Figures> again;
    std::vector<Figures> sums;
    for (int round = 0; round < kRounds; ++round) {
        fs::remove_all(target);
        fs::remove(copy);
        ours.push_back(measured([&] { service.restoreTo(target, 1, false); }));
        theirs.push_back(measured([&] { run({"/bin/bash", "-c", peer}); }));
        expect(fs::file_size(copy) == kLargeBytes, "curl has not fetched it all.");
        again.push_back(measured([&] { service.restoreTo(target, 1, true); }));
        sums.push_back(measured([&] { run({"/usr/bin/sha256sum", target / "large"}); }));
    }
    const Figures restore = mediansOf(ours);
    const Figures curl = mediansOf(theirs);
    print({rowOf("restoring 1 GiB in parts of 4 MiB", restore.microseconds,
                 "curl | tee | sha256sum", curl.microseconds, "≤ 1.2", 1.2),
           rowOf("processor time of the same", restore.processor, "curl | tee | sha256sum",
                 curl.processor, "≤ 1.3", 1.3),
           rowOf("restoring 1 GiB that is there already", mediansOf(again).microseconds,
                 "sha256sum", mediansOf(sums).microseconds, "≤ 1.2", 1.2)});
    fmt::print("Restoring 1 GiB takes at most {:.0f} MiB of memory.\n", restore.mebibytes);
    std::fflush(stdout);
}

void measureSmallFiles()
{
    constexpr int files = 10000;
    const test::TemporaryFolder folder;
    const Shape shape{100, files / 100, std::string(1024, 'x')};
    const auto top = folder.path() / "tree";
    makeTree(top, shape);
    ServedTree service(folder.path(), shape.content);
    service.prepare(top);
    (void)measured([&] { service.runUnchanged(shape.files()); });
    const SftpServer rclone(top);
    std::vector<Figures> ours;
    std::vector<Figures> theirs;
    for (int round = 0; round < kRounds; ++round) {
        const auto target = folder.path() / fmt::format("back {}", round);
        const auto copy = folder.path() / fmt::format("copy {}", round);
        ours.push_back(measured([&] { service.restoreTo(target, shape.files(), false); }));
        theirs.push_back(measured([&] { rclone.copyTo(copy); }));
        run({"/usr/bin/diff", "-r", target / "tree", copy});
    }
    const Figures restore = mediansOf(ours);
    const Figures copying = mediansOf(theirs);
    print({rowOf("restoring 10,000 files of 1 KiB", restore.microseconds, "rclone over sftp",
                 copying.microseconds, "≤ 1.0", 1.0),
           rowOf("processor time of the same", restore.processor, "rclone over sftp",
                 copying.processor, "", 1e9)});
}

void measureAll()
{
    onMemory();
    measureLargeFile();
    measureSmallFiles();
}

} // namespace

void measureRestores()
{
    measureOrEnd(measureAll);
}

} // namespace stowline::bench
