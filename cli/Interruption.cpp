#include "cli/Interruption.h"

#include "cli/Output.h"
#include "stowline/platform/Signals.h"
#include "stowline/platform/Terminal.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace stowline::cli {

namespace {

std::atomic<bool> workListens = false;
std::atomic<int> requestedStatus = 0;

[[noreturn]] void leave(ExitStatus status)
{
    platform::restoreTerminal();
    output().fail(status, "Interrupted.");
    std::_Exit(static_cast<int>(status));
}

} // namespace

void watchForTermination()
{
    std::thread([] {
        for (;;) {
            const int signal = platform::awaitTerminationSignal();
            const auto status = signal == SIGINT ? ExitStatus::interrupted : ExitStatus::terminated;
            if (!workListens || requestedStatus.exchange(static_cast<int>(status)) != 0)
                leave(status);
        }
    }).detach();
}

Interruptible::Interruptible()
{
    workListens = true;
}

Interruptible::~Interruptible()
{
    workListens = false;
}

std::optional<ExitStatus> Interruptible::request()
{
    const int status = requestedStatus;
    return status == 0 ? std::nullopt : std::optional(static_cast<ExitStatus>(status));
}

} // namespace stowline::cli
