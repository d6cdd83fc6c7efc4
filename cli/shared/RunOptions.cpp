#include "cli/shared/RunOptions.h"

#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/platform/time/LocalTime.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <algorithm>
#include <filesystem>

namespace stowline::cli {

namespace {

using backup::ReadEnd;

constexpr std::size_t kSecondsLength = 19; ///< of "2026-01-31 18:30:15"

Date dateOf(const backup::Timestamp& moment)
{
    return Date(std::chrono::seconds(moment.seconds));
}

backup::Timestamp timestampOf(Date date, std::uint32_t nanoseconds)
{
    return {std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count(), nanoseconds};
}

} // namespace

std::optional<RunOrMoment> parseRunOrMoment(const std::string& given)
{
    if (const auto run = platform::wholeNumber<std::uint64_t>(given))
        return *run == 0 ? std::nullopt : std::optional<RunOrMoment>(*run);
    constexpr std::uint32_t lastNanosecond = 999'999'999;
    std::string text = given;
    bool isUniversal = text.ends_with('Z') && text.contains('T');
    if (isUniversal)
        text.pop_back();
    std::string zone; // with a blank before it, as times are shown
    if (text.size() > kSecondsLength && text[kSecondsLength] == ' ') {
        zone = text.substr(kSecondsLength);
        text.resize(kSecondsLength);
        isUniversal = isUniversal || zone == " UTC";
    }
    std::ranges::replace(text, 'T', ' ');
    // What is left out is the last of it: a day is not over before its last second.
    constexpr std::string_view last = "0000-00-00 23:59:59";
    if (text.size() == 10 || text.size() == 16)
        text += last.substr(text.size());
    const auto numbers = platform::numbersInPattern(text, "0000-00-00 00:00:00");
    if (!numbers || text.size() != kSecondsLength)
        return std::nullopt;
    std::string internet = text + "Z";
    std::ranges::replace(internet, ' ', 'T');
    const auto universal = platform::dateFromInternetTimeText(internet);
    if (!universal) // a day or an hour that there is not
        return std::nullopt;
    if (isUniversal)
        return timestampOf(*universal, lastNanosecond);
    const auto& [year, month, day, hour, minute, second, unused, unused2] = *numbers;
    const Date moment = platform::dateFromLocalTime({year, month, day, hour, minute, second, 0});
    // The zone tells which of the two it is when a clock is set back by an hour.
    for (const Date candidate : {moment, moment - std::chrono::hours(1)}) {
        if (zone.empty() || localTimeText(candidate) == text + zone)
            return timestampOf(candidate, lastNanosecond);
    }
    return std::nullopt;
}

void ChainOptions::declare(const Command& command)
{
    const auto profile =
        command.addOption("--profile", profile_, "Name of the profile, as given to backup")
            .showsDefault();
    command
        .addOption("--chain", chain_,
                   "Whose runs, when several share the machine's name: MACHINE.USER.PROFILE, as "
                   "\"stowline runs\" names it")
        .excludes(profile);
}

void ChainOptions::choose(backup::RunChoice& choice) const
{
    choice.identity = backup::identityOfThisUser();
    choice.identity->profile = profile_;
    choice.chain = chain_;
    choice.stateFolder = platform::stateFolder();
}

void RunOptions::declare(const Command& command, const std::string& machineOption)
{
    command.addOption(machineOption, machine_, "The machine whose runs are read")
        .defaultsTo(General::localHostName());
    chain_.declare(command);
    command
        .addOption("--retry-time", retrySeconds_,
                   "Seconds to try a question or a part again before giving up")
        .between(0.0, 86400.0)
        .showsDefault();
    session_.declare(command);
}

void declareAt(const Command& command, std::string& at)
{
    command.addOption(
        "--at", at,
        "As a run found it: its number, or a time such as \"2026-01-31 18:30\" for the "
        "last run that had begun by then");
}

void RunOptions::declareAt(const Command& command)
{
    command.addOption(
        "--at", at_,
        "Number of the run, or a time such as \"2026-01-31 18:30\": the last run that "
        "had begun by then; the last finished run when left out");
}

Result<backup::RunChoice> RunOptions::open() const
{
    if (!at_.empty() && !parseRunOrMoment(at_))
        return output().fail(
            ExitStatus::usage,
            "--at takes the number of a run or a time as \"2026-01-31 18:30\", not "
            "\"" +
                at_ + "\".");
    const auto session = session_.open(
        {"GetAccountSystems", "GetAccountFilesAndFolders", "GetFileVersions"}, retrySeconds_);
    if (!session)
        return session.status();
    auto choice = runChoiceFor(*session, machine_, at_, chain_);
    if (!choice)
        return choice.status();
    backup::RunChoice result = *choice;
    result.budgetPerStep = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(retrySeconds_));
    return result;
}

Result<backup::RunChoice> runChoiceFor(const Session& session, const std::string& machine,
                                       const std::string& at, const ChainOptions& chain)
{
    if (!WebServiceBroker::isRestoringConfigured())
        return output().fail(ExitStatus::settingsInvalid,
                             std::string(kRestoringNotConfiguredMessage));
    backup::RunChoice choice{.account = {.username = session.username,
                                         .password = session.password,
                                         .server = session.server,
                                         .systemName = machine},
                             .identity = std::nullopt,
                             .chain = {},
                             .stateFolder = std::nullopt,
                             .run = std::nullopt,
                             .at = std::nullopt};
    chain.choose(choice);
    if (at.empty())
        return choice;
    const auto chosen = parseRunOrMoment(at);
    if (!chosen)
        return output().fail(
            ExitStatus::usage,
            "--at takes the number of a run or a time as \"2026-01-31 18:30\", not "
            "\"" +
                at + "\".");
    if (const auto* run = std::get_if<std::uint64_t>(&*chosen))
        choice.run = *run;
    else
        choice.at = std::get<backup::Timestamp>(*chosen);
    return choice;
}

ExitStatus statusOf(ReadEnd end)
{
    switch (end) {
    case ReadEnd::done:
        return ExitStatus::done;
    case ReadEnd::someFailed:
        return ExitStatus::someItemsFailed;
    case ReadEnd::badContent:
    case ReadEnd::rolledBack:
        return ExitStatus::checksumMismatch;
    case ReadEnd::notFound:
        return ExitStatus::notFound;
    case ReadEnd::interrupted:
        return Interruptible::request().value_or(ExitStatus::interrupted);
    case ReadEnd::temporary:
        return ExitStatus::temporary;
    case ReadEnd::refused:
        return ExitStatus::refused;
    case ReadEnd::notConfigured:
        return ExitStatus::settingsInvalid;
    case ReadEnd::severalChains:
        return ExitStatus::usage;
    case ReadEnd::failed:
        break;
    }
    return ExitStatus::failed;
}

std::string sentenceFor(ReadEnd end, const std::string& sentence)
{
    if (end == ReadEnd::severalChains)
        return sentence + " (--chain MACHINE.USER.PROFILE)";
    return sentence;
}

void noteOrigin(const backup::RunOrigin& origin)
{
    for (const std::string& note : origin.notes)
        output().note(note);
}

Fields originFields(const backup::RunOrigin& origin)
{
    Fields fields{{"chain", origin.chain},
                  {"record", origin.digest},
                  {"trust", backup::nameOf(origin.trust)}};
    std::ranges::copy(lackFields(origin.lack), std::back_inserter(fields));
    return fields;
}

Fields lackFields(const backup::RunLack& lack, const std::string& prefix)
{
    return {{prefix + "run_failed", lack.failed},
            {prefix + "carried_forward", lack.carriedForward},
            {prefix + "never_stored", lack.neverStored},
            {prefix + "cut_off", lack.cutOff},
            {prefix + "left_out", lack.leftOut}};
}

std::string runText(const backup::RunOrigin& origin)
{
    constexpr std::size_t shownDigits = 12;
    std::string text = "Run " + std::to_string(origin.run);
    if (!origin.digest.empty())
        text += " (record " + origin.digest.substr(0, shownDigits) + ")";
    return text;
}

ExitStatus finishReading(ReadEnd end, const std::string& sentence, const backup::RunOrigin& origin)
{
    noteOrigin(origin);
    if (end == ReadEnd::done)
        return output().finish(ExitStatus::done,
                               output().isJson() && !origin.chain.empty()
                                   ? Fields{{"chain", origin.chain}, {"record", origin.digest}}
                                   : Fields());
    return output().fail(statusOf(end), sentenceFor(end, sentence));
}

std::string momentText(const backup::Timestamp& moment)
{
    return localTimeText(dateOf(moment));
}

std::string momentField(const backup::Timestamp& moment)
{
    return platform::internetTimeText(dateOf(moment));
}

std::string storedPathFor(const std::string& given)
{
    std::error_code unknown;
    std::string path = std::filesystem::absolute(given, unknown).lexically_normal().string();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

} // namespace stowline::cli
