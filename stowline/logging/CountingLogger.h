// A logger for tests and benchmarks: counts, and keeps the texts when asked to.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace stowline {

/// Counts the messages it is handed. Any thread may ask while it is in use.
class CountingLogger final : public DDAbstractLogger {
public:
    enum class Keep { nothing, texts };
    explicit CountingLogger(Keep keep = Keep::texts);

    void logMessage(const DDLogMessage& message) override;
    void didAddLogger() override { ++addCount_; }
    void willRemoveLogger() override { ++removeCount_; }
    void flush() override { ++flushCount_; }

    [[nodiscard]] std::size_t count() const { return count_; }
    [[nodiscard]] std::size_t addCount() const { return addCount_; }
    [[nodiscard]] std::size_t removeCount() const { return removeCount_; }
    [[nodiscard]] std::size_t flushCount() const { return flushCount_; }

    /// Messages kept so far, in the order logged.
    struct Line {
        std::string text;
        std::int32_t flag;
        std::string function;
        std::optional<std::string> queueLabel;
        std::string file; ///< without folder and extension
    };
    [[nodiscard]] std::vector<Line> lines() const;

    /// Whether a kept message has exactly this text.
    [[nodiscard]] bool hasLine(std::string_view text) const;

private:
    const Keep keep_;
    std::atomic<std::size_t> count_ = 0;
    std::atomic<std::size_t> addCount_ = 0;
    std::atomic<std::size_t> removeCount_ = 0;
    std::atomic<std::size_t> flushCount_ = 0;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

} // namespace stowline
