#include "stowline/platform/processes/Signals.h"

#include <csignal>
#include <pthread.h>
#include <sys/prctl.h>

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

void keepMemoryPrivate()
{
    ::prctl(PR_SET_DUMPABLE, 0);
}

} // namespace stowline::platform
