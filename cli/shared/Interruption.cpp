#include "cli/shared/Interruption.h"

#include "cli/shared/Output.h"
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/processes/Terminal.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>

namespace stowline::cli {

namespace {

std::atomic<bool> workListens = false;
std::atomic<int> requestedStatus = 0;

struct Waiting {
    std::mutex mutex;
    std::string lastWords = "Interrupted.";
    std::condition_variable requested;
    StopRequest stop;
};

Waiting& waiting()
{
    static auto& instance = *new Waiting; // outlives the thread that watches
    return instance;
}

[[noreturn]] void leave(ExitStatus status)
{
    platform::restoreTerminal();
    std::string sentence;
    {
        const std::lock_guard lock(waiting().mutex);
        sentence = waiting().lastWords;
    }
    output().fail(status, sentence);
    std::_Exit(static_cast<int>(status));
}

} // namespace

bool watchForTermination()
try {
    std::thread([] {
        for (;;) {
            const int signal = platform::awaitTerminationSignal();
            const auto status = signal == SIGINT ? ExitStatus::interrupted : ExitStatus::terminated;
            if (!workListens || requestedStatus.exchange(static_cast<int>(status)) != 0)
                leave(status);
            waiting().stop.request();
            const std::lock_guard lock(waiting().mutex);
            waiting().requested.notify_all();
        }
    }).detach();
    return true;
} catch (const std::system_error&) { // pthread_create(3): EAGAIN
    return false;
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

const StopRequest& Interruptible::stopRequest()
{
    return waiting().stop;
}

std::optional<ExitStatus> Interruptible::awaitRequest(std::chrono::steady_clock::duration atMost)
{
    std::unique_lock lock(waiting().mutex);
    waiting().requested.wait_for(lock, atMost, [] { return requestedStatus != 0; });
    return request();
}

void Interruptible::sayWhenLeft(std::string sentence)
{
    const std::lock_guard lock(waiting().mutex);
    waiting().lastWords = std::move(sentence);
}

} // namespace stowline::cli
