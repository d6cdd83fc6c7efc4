#include "devserver/Housekeeping.h"

#include "stowline/logging/LogMacros.h"

#include <chrono>

namespace stowline::devserver {

namespace {

constexpr std::chrono::hours kPause{1};

void dropAbandoned(Storage& storage)
try {
    if (const std::size_t dropped = storage.dropAbandoned(); dropped > 0)
        STOWLINE_LOG_INFO("%lu abandoned uploads were dropped", dropped);
} catch (const std::exception& fault) {
    STOWLINE_LOG_ERROR("Abandoned uploads cannot be dropped: %@", fault.what());
}

void dropDeleted(Storage& storage)
try {
    if (const std::size_t dropped = storage.dropDeleted(); dropped > 0)
        STOWLINE_LOG_INFO("The days of grace of %lu deleted versions are over", dropped);
} catch (const std::exception& fault) {
    STOWLINE_LOG_ERROR("Deleted versions cannot be taken away: %@", fault.what());
}

void noteSpace(Storage& storage)
try {
    storage.noteSpace();
} catch (const std::exception& fault) {
    STOWLINE_LOG_ERROR("What accounts hold cannot be noted: %@", fault.what());
}

} // namespace

Housekeeping::Housekeeping(Storage& storage) : storage_(storage), worker_([this] { work(); }) {}

Housekeeping::~Housekeeping()
{
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ending_.notify_all();
    worker_.join();
}

void Housekeeping::work()
{
    std::unique_lock lock(mutex_);
    do {
        lock.unlock();
        dropDeleted(storage_);
        dropAbandoned(storage_);
        noteSpace(storage_);
        lock.lock();
    } while (!ending_.wait_for(lock, kPause, [this] { return isEnding_; }));
}

} // namespace stowline::devserver
