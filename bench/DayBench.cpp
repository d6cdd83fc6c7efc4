// A home folder from its first backup to the day that a folder of it is wanted back, beside restic
// and rclone, each with its own server on this machine.
#include "bench/HomeFolder.h"
#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace stowline::bench {

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

constexpr std::uint64_t kFiles = 50000;
constexpr std::uint64_t kBytes = 10'000'000'000;
constexpr double kFewest = 400;             ///< files that a home folder may be made of
constexpr const char* kWanted = "Projects"; ///< the folder that is wanted back
constexpr int kQuietRounds = 3;

/// What a program and its server took for something.
struct Taken {
    double seconds = 0;
    double clientSeconds = 0; ///< of processor time
    double serverSeconds = 0;
    double mebibytes = 0;     ///< of memory, of the client
    double wireMegabytes = 0; ///< over the loopback device, both ways
};

/// A program with a server of its own, which has a home folder to back up.
class Contender {
public:
    Contender() = default;
    virtual ~Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    [[nodiscard]] virtual std::string name() const = 0;
    [[nodiscard]] virtual int server() const = 0; ///< its process
    virtual void prepare() {}
    [[nodiscard]] virtual test::ProgramRun backup() const = 0;
    /// The folder that is wanted, into an empty one.
    [[nodiscard]] virtual test::ProgramRun restore(const fs::path& target) const = 0;
    /// Where it then is.
    [[nodiscard]] virtual fs::path restored(const fs::path& target) const = 0;
};

void run(const test::ProgramRun& program)
{
    const auto result = test::runProgram(program);
    expect(result.status == 0, fmt::format("{} ended with {}: {}", program.words.front(),
                                           result.status, result.errors));
}

class Stowline final : public Contender {
public:
    Stowline(const fs::path& home, const fs::path& folder)
        : home_(home),
          server_({}, folder / "data"), environment_{{"HOME", folder / "home"},
                                                     {"STOWLINE_BUNDLE", server_.bundle()},
                                                     {"STOWLINE_USERNAME", "ann"},
                                                     {"STOWLINE_PASSWORD", "pass word"}}
    {
        fs::create_directories(folder / "home");
    }
    [[nodiscard]] std::string name() const override { return "Stowline"; }
    [[nodiscard]] int server() const override { return process_.processId(); }
    void prepare() override { run(command({"signup", "--email", "ann@example.com"})); }
    [[nodiscard]] test::ProgramRun backup() const override { return command({"backup", home_}); }
    [[nodiscard]] test::ProgramRun restore(const fs::path& target) const override
    {
        return command({"restore", home_ / kWanted, "--to", target});
    }
    [[nodiscard]] fs::path restored(const fs::path& target) const override
    {
        return target / kWanted;
    }

private:
    [[nodiscard]] test::ProgramRun command(Words words) const
    {
        words.insert(words.begin(), {test::builtProgram("stowline"), "-q", "--no-progress"});
        return {.words = std::move(words), .environment = environment_};
    }
    const fs::path home_;
    test::DevServerProcess server_;
    const test::BackgroundProgram& process_ = server_.process();
    const Environment environment_;
};

/// A server of rclone's for a folder, on a port of its choice.
class RcloneServer {
public:
    RcloneServer(const fs::path& folder, const std::string& kind, const Words& more)
    {
        fs::create_directories(folder / "served");
        std::string line = "exec rclone serve " + kind + " \"$0\" \"$@\" 2>&1";
        Words words{"/bin/bash", "-c",          line,       folder / "served",
                    "--addr",    "127.0.0.1:0", "--config", "/dev/null"};
        words.insert(words.end(), more.begin(), more.end());
        process_ = std::make_unique<test::BackgroundProgram>(
            test::ProgramRun{.words = words, .environment = {{"HOME", folder}}});
        while (const auto said = process_->readLine()) {
            const std::string_view before = "127.0.0.1:";
            const auto at = said->find(before);
            if (at == std::string::npos)
                continue;
            port_ = said->substr(at + before.size());
            while (!port_.empty() && std::isdigit(static_cast<unsigned char>(port_.back())) == 0)
                port_.pop_back();
            return;
        }
        giveUp("rclone serves nothing.");
    }
    ~RcloneServer() { process_->signal(SIGTERM); }
    RcloneServer(const RcloneServer&) = delete;
    RcloneServer& operator=(const RcloneServer&) = delete;
    [[nodiscard]] const std::string& port() const { return port_; }
    [[nodiscard]] int processId() const { return process_->processId(); }

private:
    std::unique_ptr<test::BackgroundProgram> process_;
    std::string port_;
};

class Restic final : public Contender {
public:
    Restic(fs::path home, const fs::path& folder)
        : home_(std::move(home)), server_(folder, "restic", {}),
          environment_{{"HOME", folder},
                       {"RESTIC_PASSWORD", "pass word"},
                       {"RESTIC_CACHE_DIR", folder / "cache"},
                       {"RESTIC_REPOSITORY", "rest:http://127.0.0.1:" + server_.port() + "/"}}
    {
    }
    [[nodiscard]] std::string name() const override { return "restic"; }
    [[nodiscard]] int server() const override { return server_.processId(); }
    void prepare() override { run(command({"init"})); }
    [[nodiscard]] test::ProgramRun backup() const override { return command({"backup", home_}); }
    [[nodiscard]] test::ProgramRun restore(const fs::path& target) const override
    {
        return command({"restore", "latest", "--target", target, "--include", home_ / kWanted});
    }
    [[nodiscard]] fs::path restored(const fs::path& target) const override
    {
        return target / (home_ / kWanted).relative_path();
    }

private:
    [[nodiscard]] test::ProgramRun command(Words words) const
    {
        words.insert(words.begin(), {"/usr/bin/restic", "-q"});
        return {.words = std::move(words), .environment = environment_};
    }
    const fs::path home_;
    const RcloneServer server_;
    const Environment environment_;
};

class Rclone final : public Contender {
public:
    Rclone(fs::path home, const fs::path& folder)
        : home_(std::move(home)), folder_(folder),
          server_(folder, "sftp", {"--user", "x", "--pass", "y"})
    {
        const auto obscured = test::runProgram({.words = {"/usr/bin/rclone", "obscure", "y"}});
        password_ = obscured.output.substr(0, obscured.output.find('\n'));
    }
    [[nodiscard]] std::string name() const override { return "rclone"; }
    [[nodiscard]] int server() const override { return server_.processId(); }
    [[nodiscard]] test::ProgramRun backup() const override
    {
        return command({"sync", home_, ":sftp:home"});
    }
    [[nodiscard]] test::ProgramRun restore(const fs::path& target) const override
    {
        return command({"copy", fmt::format(":sftp:home/{}", kWanted), target});
    }
    [[nodiscard]] fs::path restored(const fs::path& target) const override { return target; }

private:
    [[nodiscard]] test::ProgramRun command(Words words) const
    {
        words.insert(words.begin(), "/usr/bin/rclone");
        words.insert(words.end(),
                     {"--config", "/dev/null", "--sftp-host", "127.0.0.1", "--sftp-port",
                      server_.port(), "--sftp-user", "x", "--sftp-pass", password_});
        return {.words = std::move(words), .environment = {{"HOME", folder_}}};
    }
    const fs::path home_;
    const fs::path folder_;
    const RcloneServer server_;
    std::string password_;
};

/// Seconds of processor time of a process and of what it has waited for (proc(5), "stat").
double processorSecondsOf(int process)
{
    std::ifstream file(fmt::format("/proc/{}/stat", process));
    std::string text;
    std::getline(file, text);
    const auto name = text.rfind(')');
    expect(name != std::string::npos, "A server has ended.");
    std::istringstream rest(text.substr(name + 1));
    std::string word;
    constexpr int first = 14; // utime; then stime, cutime, cstime
    for (int field = 3; field < first; ++field)
        rest >> word;
    double ticks = 0;
    for (int i = 0; i < 4; ++i) {
        double some = 0;
        rest >> some;
        ticks += some;
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// What the loopback device has carried, with every header and acknowledgement.
double loopbackBytes()
{
    std::ifstream file("/proc/net/dev");
    for (std::string line; std::getline(file, line);) {
        const auto at = line.find("lo:");
        if (at == std::string::npos)
            continue;
        std::istringstream numbers(line.substr(at + 3));
        double bytes = 0;
        numbers >> bytes;
        return bytes;
    }
    giveUp("There is no loopback device.");
}

/// Has the kernel keep nothing of the files' content, so that it is read from the disk.
void forgetContent(const fs::path& top)
{
    ::sync(); // what was not written yet would be kept
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
        if (!entry.is_regular_file())
            continue;
        const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        expect(file >= 0 && ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0,
               entry.path().string() + " cannot be opened.");
        ::close(file);
    }
}

Taken takenBy(const Contender& contender, test::ProgramRun program, const fs::path& scratch)
{
    const auto figures = scratch / "figures";
    program.words.insert(program.words.begin(), {test::builtProgram("measured-program"), figures});
    const double server = processorSecondsOf(contender.server());
    const double wire = loopbackBytes();
    run(program);
    Taken taken;
    taken.wireMegabytes = (loopbackBytes() - wire) / 1e6;
    taken.serverSeconds = processorSecondsOf(contender.server()) - server;
    std::ifstream file(figures);
    file >> taken.seconds >> taken.clientSeconds >> taken.mebibytes;
    expect(!file.fail(), "What it took is not known.");
    taken.seconds /= 1e6;
    taken.clientSeconds /= 1e6;
    taken.mebibytes /= 1024;
    return taken;
}

void printHead()
{
    fmt::print("| measured | program | time | processor time: program | its server | peak memory | "
               "over the loopback |\n|---|---|--:|--:|--:|--:|--:|\n");
}

void printRow(const std::string& measured, const Contender& contender, const Taken& taken)
{
    fmt::print("| {} | {} | {:.1f} s | {:.1f} s | {:.1f} s | {:.0f} MiB | {:.1f} MB |\n", measured,
               contender.name(), taken.seconds, taken.clientSeconds, taken.serverSeconds,
               taken.mebibytes, taken.wireMegabytes);
    std::fflush(stdout);
}

/// The figures with the time in the middle.
Taken middleOf(std::vector<Taken> all)
{
    std::ranges::sort(all, {}, &Taken::seconds);
    return all[all.size() / 2];
}

using Contenders = std::vector<std::unique_ptr<Contender>>;

void measureBackups(const std::string& measured, const Contenders& all, const HomeFolder& home,
                    const fs::path& scratch, int rounds)
{
    for (const auto& contender : all) {
        std::vector<Taken> taken;
        for (int round = 0; round < rounds; ++round) {
            forgetContent(home.top);
            taken.push_back(takenBy(*contender, contender->backup(), scratch));
        }
        printRow(measured, *contender, middleOf(taken));
    }
}

void measureRestore(const Contenders& all, const HomeFolder& home, const fs::path& scratch)
{
    for (const auto& contender : all) {
        const auto target = scratch / "back";
        fs::remove_all(target);
        fs::create_directories(target);
        ::sync();
        const Taken taken = takenBy(*contender, contender->restore(target), scratch);
        run({.words = {"/usr/bin/diff", "-r", home.top / kWanted, contender->restored(target)}});
        printRow(fmt::format("restore of the folder {}", kWanted), *contender, taken);
        fs::remove_all(target);
    }
}

std::string firstLineOf(const Words& words)
{
    const auto result = test::runProgram({.words = words});
    return result.output.substr(0, result.output.find('\n'));
}

void expectRoom(const fs::path& folder, std::uint64_t bytes)
{
    constexpr double copies = 4.6; // the folder, three servers' and what comes back
    const double needed = copies * static_cast<double>(bytes);
    const double there = static_cast<double>(fs::space(folder).available);
    expect(there > needed,
           fmt::format("{} has {:.1f} GB free; {:.1f} GB are needed. Please name another folder by "
                       "TMPDIR, or a smaller part of the whole.",
                       folder.string(), there / 1e9, needed / 1e9));
}

void measureAll(double part)
{
    expect(part > 0 && part <= 1 && part * kFiles >= kFewest,
           fmt::format("The part of the whole is above {} and at most 1.", kFewest / kFiles));
    if (!std::getenv("TMPDIR"))
        ::setenv("TMPDIR", "/var/tmp", 1); // /tmp may lie in memory
    const test::TemporaryFolder folder;
    const HomeFolder home{.top = folder.path() / "home",
                          .files = static_cast<std::uint64_t>(part * kFiles),
                          .bytes = static_cast<std::uint64_t>(part * kBytes)};
    expectRoom(folder.path(), home.bytes);
    if (part < 1)
        fmt::print("Only {:g} of the whole, to try it out: these are not the table's figures.\n",
                   part);
    fmt::print("A home folder of {} files with {:.2f} GB; {}; {}.\n", home.files,
               static_cast<double>(home.bytes) / 1e9, firstLineOf({"/usr/bin/restic", "version"}),
               firstLineOf({"/usr/bin/rclone", "version"}));
    std::fflush(stdout);
    makeHomeFolder(home);
    Contenders all;
    for (const char* name : {"ours", "restic", "rclone"})
        fs::create_directories(folder.path() / name);
    all.push_back(std::make_unique<Stowline>(home.top, folder.path() / "ours"));
    all.push_back(std::make_unique<Restic>(home.top, folder.path() / "restic"));
    all.push_back(std::make_unique<Rclone>(home.top, folder.path() / "rclone"));
    for (const auto& contender : all)
        contender->prepare();
    printHead();
    measureBackups("first run", all, home, folder.path(), 1);
    measureBackups("unchanged run (median of three)", all, home, folder.path(), kQuietRounds);
    passADay(home);
    measureBackups("run after a day's changes", all, home, folder.path(), 1);
    measureRestore(all, home, folder.path());
}

} // namespace

void measureDay(double part)
{
    measureOrEnd([part] { measureAll(part); });
}

} // namespace stowline::bench
