// What forgetting came to, in words: for "forget", and for what a backup forgets after it.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/ExitStatus.h"
#include "stowline/backup/ForgetRun.h"

#include <string>
#include <vector>

namespace stowline::cli {

/// "--keep-last" and so on. @param what is kept by the first of them, a sentence
void declareKeepRules(const Command& command, backup::KeepRules& keep, const std::string& what);

[[nodiscard]] ExitStatus statusOf(backup::ForgetEnd end);

/// "3 runs (1, 2, 5)".
[[nodiscard]] std::string forgottenRunsText(const backup::ForgetPlan& plan);
/// "12 versions, 3 MB".
[[nodiscard]] std::string versionsText(std::uint64_t versions, std::uint64_t bytes);

/// Whether anything was forgotten, deleted or removed.
[[nodiscard]] bool hasChanged(const backup::ForgetSummary& summary);
/// What was done, what was kept: a sentence.
[[nodiscard]] std::string doneSentence(const backup::ForgetSummary& summary);
/// What the account used before and uses now, by the service's word; or that it does not say.
[[nodiscard]] std::string spaceSentence(const backup::ForgetSummary& summary);
/// What stays of runs that are forgotten, and why, a sentence each.
[[nodiscard]] std::vector<std::string> restSentences(const backup::ForgetSummary& summary);
/// How a person confirms what runs found gone.
[[nodiscard]] std::string confirmationHint(const std::string& profile);

} // namespace stowline::cli
