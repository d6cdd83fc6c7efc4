#include "stowline/platform/threads/Patience.h"

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace stowline::platform {

namespace {

struct End {
    std::mutex mutex;
    std::condition_variable came;
    std::optional<bool> isGood;
};

void doAndTell(const std::function<void()>& work, End& end)
{
    bool isGood = true;
    try {
        work();
    } catch (...) { // for want of memory, or whatever it was: it is not done
        isGood = false;
    }
    const std::lock_guard lock(end.mutex);
    end.isGood = isGood;
    end.came.notify_all();
}

} // namespace

bool isDoneWithin(std::chrono::milliseconds patience, std::function<void()> work)
{
    std::shared_ptr<End> end;
    try {
        end = std::make_shared<End>();
        std::thread([end, work = std::move(work)] { doAndTell(work, *end); }).detach();
    } catch (const std::exception&) { // no thread is to be had, or no memory
        return false;
    }
    std::unique_lock lock(end->mutex);
    end->came.wait_for(lock, patience, [&end] { return end->isGood.has_value(); });
    return end->isGood.value_or(false);
}

} // namespace stowline::platform
