// Folders that are being deleted: a process each, which takes its time and can be cancelled.
#pragma once

#include "devserver/Storage.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace stowline::devserver {

struct DeletionState {
    std::string guid;
    std::string userName;
    std::string systemName;
    std::string path;
    std::int64_t versions = 0; ///< when it began
    std::int64_t deleted = 0;
    bool isCompleted = false;
    bool isCancelled = false;
    std::string trouble; ///< what keeps it from going on, as a full disk; empty when nothing does
};

/// Works on one deletion after the other, one version at a time, in a thread of its own. What was
/// deleted before a cancellation stays deleted. Deletions are forgotten when the service ends; what
/// is left of the folder then stays. What the disk refuses is tried again every second until it is
/// cancelled. Any thread.
class Deletions {
public:
    /// @param pause after each version, so that a small folder takes its time too
    Deletions(Storage& storage, std::chrono::milliseconds pause);
    ~Deletions();
    Deletions(const Deletions&) = delete;
    Deletions& operator=(const Deletions&) = delete;

    /// @return the process's identifier; absent when nothing is stored of the folder
    [[nodiscard]] std::optional<std::string>
    begin(const std::string& userName, const std::string& systemName, const std::string& path);

    /// Absent when the user has no such process.
    [[nodiscard]] std::optional<DeletionState> state(const std::string& userName,
                                                     const std::string& guid);
    void cancel(const std::string& userName, const std::string& guid);

    [[nodiscard]] std::vector<DeletionState> all();

private:
    struct Process {
        DeletionState state;
        std::vector<std::string> listIds; ///< newest first, so that deltas go before their base
        bool isToBeCancelled = false;
    };
    void work();
    [[nodiscard]] std::optional<std::string> deleteOne(const std::string& userName,
                                                       const std::string& listId);
    [[nodiscard]] bool workOn(Process& process, std::unique_lock<std::mutex>& lock);

    Storage& storage_;
    const std::chrono::milliseconds pause_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isEnding_ = false;
    std::vector<std::string> order_;
    std::map<std::string, Process> processes_;
    std::thread worker_; ///< last: it begins when all else is there
};

} // namespace stowline::devserver
