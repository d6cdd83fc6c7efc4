#include "stowline/platform/processes/HelperProgram.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace stowline::platform {

void endWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const char* parent = std::getenv(kParentVariable);
    if (parent && std::to_string(::getppid()) != parent)
        std::raise(SIGKILL);
}

void boundMemory([[maybe_unused]] std::size_t bytes)
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur <= bytes)
        return;
    limit.rlim_cur = bytes;
    ::setrlimit(RLIMIT_AS, &limit);
#endif
}

bool writeOnceToStandardOutput(std::string_view bytes)
{
    ssize_t written = -1;
    do {
        written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(bytes.size());
}

void closeStandardOutput()
{
    ::close(STDOUT_FILENO);
}

void awaitReleaseBytes()
{
    std::array<char, 4> release{};
    ssize_t count = -1;
    do
        count = ::read(STDIN_FILENO, release.data(), release.size());
    while (count < 0 && errno == EINTR);
}

} // namespace stowline::platform
