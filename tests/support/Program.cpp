#include "tests/support/Program.h"

#include "stowline/platform/files/Files.h"
#include "tests/support/Helpers.h"
#include "tests/support/TestPaths.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ; // NOLINT

namespace stowline::test {

namespace {

struct Ends {
    int read = -1;
    int write = -1;
};

Ends makePipe()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    return {ends[0], ends[1]};
}

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& added)
{
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text(*entry);
        if (!added.contains(text.substr(0, text.find('='))))
            result.push_back(text);
    }
    for (const auto& [name, value] : added)
        result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (const auto& text : texts)
        result.push_back(const_cast<char*>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

int decoded(int status)
{
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

void drain(int descriptor, std::string& into)
{
    std::array<char, 65536> piece{};
    for (;;) {
        const ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        into.append(piece.data(), static_cast<std::size_t>(count));
    }
}

} // namespace

BackgroundProgram::BackgroundProgram(const ProgramRun& run)
{
    const Ends in = makePipe();
    const Ends out = makePipe();
    const Ends err = makePipe();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in.read, 0);
    ::posix_spawn_file_actions_adddup2(&actions, out.write, 1);
    ::posix_spawn_file_actions_adddup2(&actions, err.write, 2);
    const auto environment = mergedEnvironment(run.environment);
    pid_t child = -1;
    const int fault = ::posix_spawn(&child, run.words.at(0).c_str(), &actions, nullptr,
                                    pointers(run.words).data(), pointers(environment).data());
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in.read);
    ::close(out.write);
    ::close(err.write);
    if (fault != 0)
        throw std::runtime_error("cannot start " + run.words.at(0));
    process_ = child;
    input_ = in.write;
    output_ = out.read;
    errors_ = err.read;
    if (!run.input.empty()) {
        std::signal(SIGPIPE, SIG_IGN); // the program may end without reading
        (void)!::write(input_, run.input.data(), run.input.size());
    }
}

BackgroundProgram::~BackgroundProgram()
{
    if (!ended_) {
        ::kill(process_, SIGKILL);
        int status = 0;
        ::waitpid(process_, &status, 0);
    }
    for (const int descriptor : {input_, output_, errors_}) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
}

std::optional<std::string> BackgroundProgram::readLine()
{
    for (;;) {
        if (const auto end = buffered_.find('\n'); end != std::string::npos) {
            std::string line = buffered_.substr(0, end);
            buffered_.erase(0, end + 1);
            return line;
        }
        std::array<char, 4096> piece{};
        const ssize_t count = ::read(output_, piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return std::nullopt;
        buffered_.append(piece.data(), static_cast<std::size_t>(count));
    }
}

void BackgroundProgram::writeInput(std::string_view bytes) const
{
    (void)!::write(input_, bytes.data(), bytes.size());
}

void BackgroundProgram::closeInput()
{
    if (input_ >= 0)
        ::close(input_);
    input_ = -1;
}

void BackgroundProgram::signal(int number) const
{
    ::kill(process_, number);
}

int BackgroundProgram::awaitHelper() const
{
    for (;;) {
        if (const auto helpers = helpersOf(process_); !helpers.empty())
            return helpers.front();
        std::this_thread::yield();
    }
}

void awaitEnd(int process)
{
    // One that has ended stays in the list until its parent, or the system's first process, takes
    // note of it ("Z", proc(5)).
    const std::string file = "/proc/" + std::to_string(process) + "/stat";
    while (::kill(process, 0) == 0 &&
           platform::readFile(file).value_or("").find(") Z ") == std::string::npos)
        std::this_thread::yield();
}

bool BackgroundProgram::isRunning()
{
    int status = 0;
    if (!ended_ && ::waitpid(process_, &status, WNOHANG) == process_) {
        ended_ = true;
        status_ = decoded(status);
    }
    return !ended_;
}

ProgramResult BackgroundProgram::wait()
{
    ProgramResult result;
    result.output = buffered_;
    std::thread errorReader([&] { drain(errors_, result.errors); });
    drain(output_, result.output);
    errorReader.join();
    if (!ended_) {
        int status = 0;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        ended_ = true;
        status_ = decoded(status);
    }
    result.status = status_;
    return result;
}

ProgramResult runProgram(const ProgramRun& run)
{
    BackgroundProgram program(run);
    program.closeInput();
    return program.wait();
}

std::string builtProgram(std::string_view name)
{
    return builtPrograms() + "/" + std::string(name);
}

std::size_t openDescriptorCount()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

std::size_t childCount()
{
    const std::string parent = std::to_string(::getpid());
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string stat;
        std::getline(file, stat);
        // After the name in parentheses: state and parent (proc(5)).
        std::istringstream rest(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
        std::string state;
        std::string of;
        if (rest >> state >> of && of == parent)
            ++count;
    }
    return count;
}

bool hasChildren()
{
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

} // namespace stowline::test
