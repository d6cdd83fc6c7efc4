#include "cli/shared/Overdue.h"

#include "cli/shared/Amounts.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/RunFigures.h"
#include "stowline/platform/desktop/DesktopNotice.h"
#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>
#include <filesystem>

namespace stowline::cli {

namespace {

/// By how much the clocks of machines may differ.
constexpr std::chrono::hours kClockError{24};

std::filesystem::path fileOf(const std::string& profile, const char* name)
{
    const auto state = platform::stateFolder();
    return state ? backup::profileFolder(*state, profile) / name : std::filesystem::path();
}

BackupSubject withoutPaths(BackupSubject subject)
{
    subject.paths.clear();
    return subject;
}

} // namespace

void keepSelfTest(const std::string& profile, const BackupSubject& subject, bool isProof,
                  Date ended)
{
    const BackupSubject all = withoutPaths(subject);
    const auto first = fileOf(profile, "first-self-test");
    if (!successIn(first, all))
        noteSuccess(first, all, ended); // without it the next one is the first
    if (isProof)
        noteSuccess(fileOf(profile, "last-proof"), all, ended);
}

LastSuccesses lastSuccesses(const std::string& profile, const BackupSubject& subject)
{
    const BackupSubject all = withoutPaths(subject);
    return {.goodRun = lastGoodRun(profile, subject),
            .selfTest = successIn(fileOf(profile, "first-self-test"), all),
            .proof = successIn(fileOf(profile, "last-proof"), all),
            .isOfPaths = !subject.paths.empty()};
}

std::vector<std::string> overdue(const LastSuccesses& last, std::chrono::seconds alertAfter,
                                 Date now)
{
    const auto isInFuture = [&](Date moment) { return moment - now > kClockError; };
    const auto isTooLongAgo = [&](const std::optional<Date>& moment) {
        return !moment || now - *moment > alertAfter || isInFuture(*moment);
    };
    const auto momentOf = [&](Date moment) {
        return localTimeText(moment) +
               (isInFuture(moment) ? " (the clock was wrong then, or is now)" : "");
    };
    const std::string wanted = "; there should be one within " + spanText(alertAfter);
    std::vector<std::string> sentences;
    const std::string run = last.isOfPaths ? "run of these paths" : "run";
    if (isTooLongAgo(last.goodRun))
        sentences.push_back((last.goodRun
                                 ? "last " + run + " without failures: " + momentOf(*last.goodRun)
                                 : "no " + run + " without failures is known on this machine") +
                            wanted);
    const bool isProofWanted = last.selfTest || last.proof;
    if (isProofWanted && isTooLongAgo(last.proof) && (last.proof || isTooLongAgo(last.selfTest)))
        sentences.push_back(
            (last.proof ? "last self-test that found everything in order: " + momentOf(*last.proof)
                        : "no self-test has found everything in order yet") +
            wanted);
    return sentences;
}

void showOnDesktop(const std::vector<std::string>& overdue)
{
    if (overdue.empty())
        return;
    platform::showDesktopNotice({.application = General::productName().value_or("Stowline"),
                                 .title = "No good backup for too long",
                                 .text = fmt::format("{}", fmt::join(overdue, "\n"))});
}

void AlertFlag::declare(const Command& command, const std::string& help)
{
    command.addOption("--alert-after", span_, "Time (36h, 3d, 2w; a number alone is days) " + help)
        .accepts(faultInSpan);
}

std::vector<std::string> AlertFlag::sentencesFor(const LastSuccesses& last) const
{
    const auto span = parseSpan(span_);
    if (!span)
        return {};
    std::vector<std::string> sentences = overdue(last, *span, platform::currentDate());
    for (std::string& sentence : sentences) {
        sentence.front() =
            static_cast<char>(std::toupper(static_cast<unsigned char>(sentence.front())));
        sentence += ".";
    }
    return sentences;
}

} // namespace stowline::cli
