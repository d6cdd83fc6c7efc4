#include "cli/shared/RunFigures.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/platform/values/PropertyList.h"

#include <algorithm>

namespace stowline::cli {

namespace {

/// Of the last run of a profile, or of any.
std::optional<std::filesystem::path> lastRunFile(const std::optional<std::string>& profile)
{
    const auto state = platform::stateFolder();
    if (!state)
        return std::nullopt;
    return profile ? backup::profileFolder(*state, *profile) / "last-run-of-profile.plist"
                   : *state / "last-run.plist";
}

std::uint64_t countIn(const Dictionary& fields, std::string_view key)
{
    return static_cast<std::uint64_t>(platform::leadingInteger(platform::findText(fields, key)));
}

bool isTrueIn(const Dictionary& fields, std::string_view key)
{
    const Value* value = find(fields, key);
    return value && value->boolean() && *value->boolean();
}

/// What a later version may have kept under a greater number is nothing that this one can tell.
RunFigures::Forgetting forgettingIn(const Dictionary& fields)
{
    const std::uint64_t number = countIn(fields, "forgetting");
    return number <= static_cast<std::uint64_t>(RunFigures::Forgetting::failed)
               ? static_cast<RunFigures::Forgetting>(number)
               : RunFigures::Forgetting::notAsked;
}

/// Texts are kept as bytes: a path need not be UTF-8.
std::string textIn(const Value* value)
{
    return value && value->data() ? platform::textFromData(*value->data()) : std::string();
}

Array arrayOf(const std::vector<std::string>& texts)
{
    Array array;
    for (const std::string& text : texts)
        array.emplace_back(platform::dataFromText(text));
    return array;
}

std::vector<std::string> textsIn(const Dictionary& fields, std::string_view key)
{
    std::vector<std::string> texts;
    const Value* value = find(fields, key);
    for (const Value& text : value && value->array() ? *value->array() : Array())
        texts.push_back(textIn(&text));
    return texts;
}

/// Why a run has not looked at all that it was to look at; empty when it has.
std::string whyNotEnded(const backup::BackupSummary& result)
{
    if (result.end == backup::BackupEnd::done || result.end == backup::BackupEnd::someFailed)
        return {};
    if (result.end == backup::BackupEnd::nothingThere)
        return "Nothing was found at the paths that were to be backed up.";
    if (result.end == backup::BackupEnd::interrupted)
        return "The backup was interrupted.";
    return result.sentence.empty() ? "The backup was not finished." : result.sentence;
}

} // namespace

Dictionary RunFigures::dictionary() const
{
    return {{"failures", arrayOf(failures)},
            {"sentence", platform::dataFromText(sentence)},
            {"afterFault", platform::dataFromText(afterFault)},
            {"selfTest", platform::dataFromText(selfTest)},
            {"selfTestLost", selfTestLost},
            {"selfTestFindings", arrayOf(selfTestFindings)},
            {"selfTestTrouble", platform::dataFromText(selfTestTrouble)},
            {"wasTested", wasTested},
            {"isProof", isProof},
            {"proofFiles", proofFiles},
            {"proofBytes", proofBytes},
            {"provenFiles", provenFiles},
            {"provenBytes", provenBytes},
            {"forgetting", static_cast<std::uint64_t>(forgetting)},
            {"forgettingText", platform::dataFromText(forgettingText)},
            {"forgottenRuns", forgottenRuns},
            {"keptRuns", keptRuns},
            {"deletedVersions", deletedVersions},
            {"deletedBytes", deletedBytes},
            {"leftVersions", leftVersions},
            {"givenBackBytes", givenBackBytes},
            {"goneItems", goneItems},
            {"goneOfItems", goneOfItems},
            {"overdue", arrayOf(overdue)},
            {"username", platform::dataFromText(username)},
            {"machine", platform::dataFromText(machine)},
            {"profile", platform::dataFromText(profile)},
            {"begun", begun},
            {"seconds", seconds},
            {"notChanged", notChanged},
            {"backedUp", backedUp},
            {"failed", failed},
            {"changedWhileRead", changedWhileRead},
            {"notChangedBytes", notChangedBytes},
            {"backedUpBytes", backedUpBytes},
            {"failedBytes", failedBytes}};
}

std::optional<RunFigures> RunFigures::fromDictionary(const Dictionary& fields)
{
    const Value* username = find(fields, "username");
    const Value* machine = find(fields, "machine");
    const Value* begun = find(fields, "begun");
    const Value* seconds = find(fields, "seconds");
    if (!username || !username->data() || !machine || !machine->data() || !begun || !begun->date())
        return std::nullopt;
    return RunFigures{.username = platform::textFromData(*username->data()),
                      .machine = platform::textFromData(*machine->data()),
                      .profile = find(fields, "profile") ? textIn(find(fields, "profile"))
                                                         : backup::ChainIdentity().profile,
                      .begun = *begun->date(),
                      .seconds = seconds && seconds->real() ? *seconds->real() : 0,
                      .notChanged = countIn(fields, "notChanged"),
                      .backedUp = countIn(fields, "backedUp"),
                      .failed = countIn(fields, "failed"),
                      .notChangedBytes = countIn(fields, "notChangedBytes"),
                      .backedUpBytes = countIn(fields, "backedUpBytes"),
                      .failedBytes = countIn(fields, "failedBytes"),
                      .changedWhileRead = countIn(fields, "changedWhileRead"),
                      .failures = textsIn(fields, "failures"),
                      .sentence = textIn(find(fields, "sentence")),
                      .afterFault = textIn(find(fields, "afterFault")),
                      .selfTest = textIn(find(fields, "selfTest")),
                      .selfTestLost = countIn(fields, "selfTestLost"),
                      .selfTestFindings = textsIn(fields, "selfTestFindings"),
                      .selfTestTrouble = textIn(find(fields, "selfTestTrouble")),
                      .wasTested = isTrueIn(fields, "wasTested"),
                      .isProof = isTrueIn(fields, "isProof"),
                      .proofFiles = countIn(fields, "proofFiles"),
                      .proofBytes = countIn(fields, "proofBytes"),
                      .provenFiles = countIn(fields, "provenFiles"),
                      .provenBytes = countIn(fields, "provenBytes"),
                      .forgetting = forgettingIn(fields),
                      .forgettingText = textIn(find(fields, "forgettingText")),
                      .forgottenRuns = countIn(fields, "forgottenRuns"),
                      .keptRuns = countIn(fields, "keptRuns"),
                      .deletedVersions = countIn(fields, "deletedVersions"),
                      .deletedBytes = countIn(fields, "deletedBytes"),
                      .leftVersions = countIn(fields, "leftVersions"),
                      .givenBackBytes = countIn(fields, "givenBackBytes"),
                      .goneItems = countIn(fields, "goneItems"),
                      .goneOfItems = countIn(fields, "goneOfItems"),
                      .overdue = textsIn(fields, "overdue")};
}

RunFigures figuresOf(const backup::BackupSummary& result, const std::string& username,
                     const std::string& machine, Date begun,
                     const std::vector<std::string>& failures)
{
    constexpr std::size_t most = 20;
    const bool isGood = result.end == backup::BackupEnd::done;
    const auto end =
        failures.begin() + static_cast<std::ptrdiff_t>(std::min(most, failures.size()));
    return {.username = username,
            .machine = machine,
            .begun = begun,
            .seconds = result.seconds,
            .notChanged = result.unchanged,
            .backedUp = result.stored,
            .failed = result.failed,
            .notChangedBytes = result.unchangedBytes,
            .backedUpBytes = result.storedBytes,
            .failedBytes = result.failedBytes,
            .changedWhileRead = isGood ? 0 : result.changedWhileRead, // else rules allow it
            .failures = {failures.begin(), isGood ? failures.begin() : end},
            .sentence = whyNotEnded(result)};
}

std::string RunFigures::subject() const
{
    return profile == backup::ChainIdentity().profile ? machine
                                                      : machine + " (profile " + profile + ")";
}

void keepLastRun(const RunFigures& figures)
{
    const auto bytes = platform::writeBinaryPropertyList(figures.dictionary());
    for (const auto& file : {lastRunFile(std::nullopt), lastRunFile(figures.profile)}) {
        if (file && bytes && platform::makePrivateFolder(file->parent_path()))
            (void)platform::replaceFile(*file, *bytes); // without it a later report says so
    }
}

std::optional<RunFigures> lastRun(const std::optional<std::string>& profile)
{
    const auto file = lastRunFile(profile);
    const auto bytes = file ? platform::readRegularFile(*file) : std::nullopt;
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* fields = reading.value ? reading.value->dictionary() : nullptr;
    return fields ? RunFigures::fromDictionary(*fields) : std::nullopt;
}

namespace {

std::optional<std::filesystem::path> lastGoodRunFile(const std::string& profile)
{
    const auto state = platform::stateFolder();
    return state ? std::optional(backup::profileFolder(*state, profile) / "last-good-run")
                 : std::nullopt;
}

} // namespace

void keepLastGoodRun(const std::string& profile, const BackupSubject& subject, Date begun)
{
    if (const auto file = lastGoodRunFile(profile))
        noteSuccess(*file, subject, begun);
}

std::optional<Date> lastGoodRun(const std::string& profile, const BackupSubject& subject)
{
    const auto file = lastGoodRunFile(profile);
    return file ? successIn(*file, subject) : std::nullopt;
}

} // namespace stowline::cli
