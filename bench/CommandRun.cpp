#include "bench/CommandRun.h"

#include "bench/Measure.h"
#include "bench/ServedTree.h"
#include "stowline/platform/files/Files.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::bench {

namespace {

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

[[noreturn]] void become(const std::vector<std::string>& words, const Environment& environment)
{
    for (const auto& [name, value] : environment)
        ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}

} // namespace

double processorSeconds(const rusage& usage)
{
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

Run runMeasured(const std::vector<std::string>& words, const Environment& environment)
{
    std::array<int, 2> pipe{};
    expect(::pipe2(pipe.data(), O_CLOEXEC) == 0, "There is no pipe.");
    const auto start = Clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pipe[1], STDOUT_FILENO);
        become(words, environment);
    }
    ::close(pipe[1]);
    Run run;
    std::array<char, 65536> piece{};
    for (ssize_t count = 0; (count = ::read(pipe[0], piece.data(), piece.size())) > 0;)
        run.output.append(piece.data(), static_cast<std::size_t>(count));
    ::close(pipe[0]);
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    run.wall = std::chrono::duration<double>(Clock::now() - start).count();
    run.processor = processorSeconds(usage);
    run.peakKb = usage.ru_maxrss;
    expect(status == 0, words.front() + " failed:\n" + run.output);
    return run;
}

double processorSecondsOf(int process)
{
    const std::string stat =
        platform::readFile("/proc/" + std::to_string(process) + "/stat").value_or(")");
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    constexpr int fieldsBefore = 11;
    std::string skipped;
    for (int i = 0; i < fieldsBefore; ++i)
        fields >> skipped;
    double ticks = 0;
    for (int i = 0; i < 4; ++i) {
        double value = 0;
        fields >> value;
        ticks += value;
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

Environment commandEnvironment(const test::DevServerProcess& server,
                               const test::TemporaryFolder& home)
{
    return {{"STOWLINE_BUNDLE", server.bundle().string()},
            {"HOME", home.path().string()},
            {"STOWLINE_USERNAME", "ann"},
            {"STOWLINE_PASSWORD", "pass word"}};
}

void signUp(const test::DevServerProcess& server, const test::TemporaryFolder& home)
{
    (void)runMeasured({test::builtProgram("stowline"), "signup", "--email", "a@b.c"},
                      commandEnvironment(server, home));
}

} // namespace stowline::bench
