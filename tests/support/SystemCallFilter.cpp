#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::test {

namespace {

constexpr std::uint32_t kNumber = offsetof(seccomp_data, nr);
constexpr std::uint32_t kFirstWord = offsetof(seccomp_data, args); // its low half
constexpr std::uint32_t kThirdWord = kFirstWord + 2 * sizeof(std::uint64_t);

sock_filter statement(int code, std::uint32_t value)
{
    return {static_cast<std::uint16_t>(code), 0, 0, value};
}

sock_filter jump(int code, std::uint32_t value, int whenTrue, int whenFalse)
{
    return {static_cast<std::uint16_t>(code), static_cast<std::uint8_t>(whenTrue),
            static_cast<std::uint8_t>(whenFalse), value};
}

std::optional<std::string> install(std::vector<sock_filter> program)
{
    program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        return "This system takes no filter of system calls.";
    return std::nullopt;
}

std::optional<std::string> answerAll(const std::vector<long>& numbers, std::uint32_t answer)
{
    std::vector<sock_filter> program{statement(BPF_LD | BPF_W | BPF_ABS, kNumber)};
    for (const long number : numbers) {
        program.push_back(
            jump(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1));
        program.push_back(statement(BPF_RET | BPF_K, answer));
    }
    return install(std::move(program));
}

constexpr int kSkipped = 77;

/// Of the test that is running.
void skip()
{
    GTEST_SKIP() << "A part of this test cannot be tried here.";
}

} // namespace

std::optional<std::string> loseSystemCalls(const std::vector<long>& numbers)
{
    return answerAll(numbers, SECCOMP_RET_ERRNO | ENOSYS);
}

std::optional<std::string> endAtSystemCalls(const std::vector<long>& numbers)
{
    return answerAll(numbers, SECCOMP_RET_KILL_PROCESS);
}

std::optional<std::string> loseNamelessFiles()
{
    constexpr std::uint32_t tmpfile = O_TMPFILE & ~O_DIRECTORY;
    return install({statement(BPF_LD | BPF_W | BPF_ABS, kNumber),
                    jump(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
                    statement(BPF_LD | BPF_W | BPF_ABS, kThirdWord),
                    jump(BPF_JMP | BPF_JSET | BPF_K, tmpfile, 0, 1),
                    statement(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP)});
}

std::optional<std::string> loseProcessHandles()
{
    return install({statement(BPF_LD | BPF_W | BPF_ABS, kNumber),
                    jump(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3),
                    statement(BPF_LD | BPF_W | BPF_ABS, kFirstWord),
                    jump(BPF_JMP | BPF_JSET | BPF_K, CLONE_PIDFD, 0, 1),
                    statement(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL)});
}

bool holdsInAProcessOfItsOwn(const std::function<void()>& part)
{
    std::fflush(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
        part();
        std::fflush(nullptr);
        const bool isSkipped = testing::Test::IsSkipped();
        ::_exit(testing::Test::HasFailure() ? EXIT_FAILURE : isSkipped ? kSkipped : EXIT_SUCCESS);
    }
    int status = -1;
    if (process < 0 || ::waitpid(process, &status, 0) != process || !WIFEXITED(status))
        return false;
    if (WEXITSTATUS(status) == kSkipped)
        skip();
    return WEXITSTATUS(status) == EXIT_SUCCESS || WEXITSTATUS(status) == kSkipped;
}

} // namespace stowline::test
