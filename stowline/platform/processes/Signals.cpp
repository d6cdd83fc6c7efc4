#include "stowline/platform/processes/Signals.h"

#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

sigset_t terminationSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    // Where somebody asked for the opposite (nohup) a hang-up stays unheard.
    struct sigaction hangUp {};
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN)
        ::sigaddset(&signals, SIGHUP);
    return signals;
}

} // namespace

void holdTerminationSignals()
{
    const sigset_t signals = terminationSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

int awaitTerminationSignal()
{
    const sigset_t signals = terminationSignals();
    int number = 0;
    while (::sigwait(&signals, &number) != 0) {
    }
    return number;
}

void outliveFileLimits()
{
    std::signal(SIGXFSZ, SIG_IGN);
}

void endWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const char* parent = std::getenv(kParentVariable);
    if (parent && std::to_string(::getppid()) != parent)
        std::raise(SIGKILL);
}

void keepMemoryPrivate()
{
    ::prctl(PR_SET_DUMPABLE, 0);
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

} // namespace stowline::platform
