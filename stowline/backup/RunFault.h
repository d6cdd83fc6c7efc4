// Why a run cannot go on.
#pragma once

#include "stowline/backup/BackupRun.h"

#include <stdexcept>

namespace stowline::backup {

/// Ends a run; its text is the summary's sentence. Never leaves the public operations.
class RunFault : public std::runtime_error {
public:
    RunFault(BackupEnd end, const std::string& sentence) : std::runtime_error(sentence), end_(end)
    {
    }
    [[nodiscard]] BackupEnd end() const { return end_; }

private:
    BackupEnd end_;
};

} // namespace stowline::backup
