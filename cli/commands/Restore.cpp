// stowline restore
#include "cli/commands/Commands.h"
#include "cli/shared/Confirmation.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Logging.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RunOptions.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/backup/RestoreRun.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

namespace stowline::cli {

namespace {

using backup::RestoredState;

struct Options {
    RunOptions run;
    std::vector<std::string> paths;
    std::string target;
    bool inPlace = false;
    std::vector<std::string> include;
    std::vector<std::string> exclude;
    std::string overwrite = "if-changed";
    bool devices = false;
    bool deletesOthers = false;
    Confirmation confirmation; ///< that something is deleted
    std::size_t jobs = 4;
    std::uint64_t bytesPerSecond = 0;
};

backup::Overwrite overwriteOf(const std::string& word)
{
    if (word == "always")
        return backup::Overwrite::always;
    if (word == "if-newer")
        return backup::Overwrite::ifNewer;
    return word == "never" ? backup::Overwrite::never : backup::Overwrite::ifChanged;
}

/// Says what happens to each item, and shows how far it is.
class Observer : public backup::RestoreObserver {
public:
    /// @param place where what is deleted stands, for people
    Observer(const Confirmation& confirmation, std::string place)
        : confirmation_(confirmation), place_(std::move(place))
    {
    }

    bool mayDelete(std::uint64_t items, const std::vector<std::string>& first) override
    {
        progress_.clear();
        const StopScope scope(Interruptible::stopRequest());
        return confirmation_.isGranted(
            fmt::format("Everything is put back. Delete {} {} that {} not in the run ({}{})?",
                        countText(items, "item", "items"), place_, items == 1 ? "was" : "were",
                        fmt::join(first, ", "), items > first.size() ? ", …" : ""));
    }

    void itemDone(const backup::RestoredItem& item) override
    {
        progress_.clear();
        for (const std::string& fault : item.faults)
            output().complain(fault);
        if (!isShown(item.state))
            return;
        std::string message;
        for (const std::string& fault : item.faults)
            message += (message.empty() ? "" : " ") + fault;
        for (const backup::Loss& loss : item.losses)
            message += (message.empty() ? "" : " ") + loss.sentence;
        output().item(wordsFor(item.state) + onOneLine(item.path), "item",
                      {{"path", item.path},
                       {"state", std::string(backup::nameOf(item.state))},
                       {"bytes", item.bytes},
                       {"message", message}});
    }

    void progress(const backup::RestoreProgress& state) override
    {
        if (!state.isWalkOver && state.foundBytes == 0)
            return;
        const double all = static_cast<double>(std::max<std::uint64_t>(state.foundBytes, 1));
        progress_.update(std::min(1.0, static_cast<double>(state.doneBytes) / all),
                         state.foundBytes);
    }

    void clear() { progress_.clear(); }

private:
    [[nodiscard]] static bool isShown(RestoredState state)
    {
        if (output().isJson())
            return state != RestoredState::unchanged;
        return state == RestoredState::wouldRestore || state == RestoredState::wouldDelete ||
               (state == RestoredState::deleted && namesItems());
    }

    [[nodiscard]] static std::string wordsFor(RestoredState state)
    {
        return state == RestoredState::deleted       ? "deleted "
               : state == RestoredState::wouldDelete ? "would delete "
                                                     : "would restore ";
    }

    const Confirmation& confirmation_;
    const std::string place_;
    ProgressDisplay progress_;
};

void tellDeletions(const backup::RestoreSummary& sum, bool isDryRun)
{
    const std::uint64_t count = isDryRun ? sum.wouldDelete : sum.deleted;
    const char* const word = isDryRun ? "would be" : count == 1 ? "was" : "were";
    if (count > 0)
        output().note(fmt::format("{} that {} not in the run {} deleted.",
                                  countText(count, "item", "items"), count == 1 ? "was" : "were",
                                  word));
    else if (sum.end == backup::ReadEnd::done)
        output().note("There was nothing to delete.");
}

ExitStatus finish(const backup::RestoreSummary& sum, const Options& options)
{
    const bool isDryRun = options.confirmation.isDryRun();
    const ExitStatus status = statusOf(sum.end);
    noteOrigin(sum.origin);
    if (sum.run == 0) // not even the run was read
        return output().fail(status, sentenceFor(sum.end, sum.sentence));
    for (const backup::LossCount& loss : sum.losses)
        loss.isNotAllowed ? output().note(loss.sentence) : output().complain(loss.sentence);
    for (const std::string& note : sum.notes)
        output().note(note);
    if (status != ExitStatus::done)
        output().complain(sum.sentence);
    output().note(fmt::format("{}: {} {}, {} unchanged, {} left as they are, {} failed; {} "
                              "of content in {}.",
                              runText(sum.origin), isDryRun ? sum.wouldRestore : sum.restored,
                              isDryRun ? "would be restored" : "restored", sum.unchanged,
                              sum.skipped, sum.failed, bytesText(static_cast<double>(sum.bytes)),
                              durationText(std::chrono::duration<double>(sum.seconds))));
    if (options.deletesOthers)
        tellDeletions(sum, isDryRun);
    Fields fields{{"run", sum.run},
                  {"found", sum.found},
                  {"restored", sum.restored},
                  {"unchanged", sum.unchanged},
                  {"skipped", sum.skipped},
                  {"failed", sum.failed},
                  {"seen_earlier", sum.seenEarlier},
                  {"incomplete", sum.incomplete},
                  {"withheld", sum.withheld},
                  {"deleted", sum.deleted},
                  {"not_deleted", sum.notDeleted},
                  {"damaged", sum.badContent},
                  {"bytes", sum.bytes},
                  {"fetched_bytes", sum.fetchedBytes},
                  {"seconds", sum.seconds}};
    std::ranges::copy(originFields(sum.origin), std::back_inserter(fields));
    if (isDryRun) {
        fields.emplace_back("would_restore", sum.wouldRestore);
        fields.emplace_back("would_delete", sum.wouldDelete);
    }
    if (!output().isJson())
        return output().finish(status);
    if (!sum.sentence.empty())
        fields.emplace_back("message", sum.sentence);
    return output().finish(status, fields);
}

ExitStatus restore(const Options& options)
{
    if (options.target.empty() == !options.inPlace)
        return output().fail(
            ExitStatus::usage,
            "Please say where to: either --to DIR, or --in-place for where it was.");
    if (const auto fault =
            backup::faultIn({.include = options.include, .exclude = options.exclude}))
        return output().fail(ExitStatus::usage, *fault);
    const std::string place = options.inPlace ? "from where it was" : "from " + options.target;
    if (options.deletesOthers) {
        if (const auto nobody =
                options.confirmation.wantOfAnybody("what the run did not hold " + place))
            return *nobody;
    }
    const auto choice = options.run.open();
    if (!choice)
        return choice.status();
    backup::RestoreRequest request{.choice = *choice,
                                   .paths = {},
                                   .target = std::nullopt,
                                   .include = options.include,
                                   .exclude = options.exclude,
                                   .overwrite = overwriteOf(options.overwrite),
                                   .restoresDevices = options.devices,
                                   .deletesOthers = options.deletesOthers,
                                   .isDryRun = options.confirmation.isDryRun(),
                                   .jobs = options.jobs,
                                   .bytesPerSecond = options.bytesPerSecond};
    for (const std::string& path : options.paths)
        request.paths.push_back(storedPathFor(path));
    if (!options.inPlace) {
        request.target = options.target;
        std::set<std::string> names;
        for (const std::string& path : request.paths) {
            if (!names.insert(std::filesystem::path(path).filename()).second)
                return output().fail(ExitStatus::usage,
                                     "Two of the paths would become the same one below " +
                                         options.target +
                                         ". Please restore them one after the other, each into a "
                                         "folder of its own.");
        }
    }
    const Interruptible interruptible;
    Observer observer(options.confirmation, place);
    const auto summary = backup::runRestore(request, observer, Interruptible::stopRequest());
    observer.clear();
    return finish(summary, options);
}

} // namespace

void declareRestore(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command =
        app.addCommand("restore", "Put stored files and folders back, as a run found them");
    command.addOption("PATH", options->paths, "Stored files and folders; / is the whole machine")
        .required();
    command.addOption("--to", options->target, "Folder to put them into: /a/b becomes DIR/b");
    command.addFlag("--in-place", options->inPlace, "Put them where they were");
    options->run.declareAt(command);
    command.addOption("--include", options->include,
                      "Only what matches a pattern as those of backup; with a slash it counts from "
                      "PATH on; may be given again");
    command.addOption("--exclude", options->exclude,
                      "Skip files and folders that match a pattern; may be given again");
    command
        .addOption("--overwrite", options->overwrite,
                   "What to do with files that exist already with different content")
        .oneOf({"if-changed", "always", "if-newer", "never"})
        .showsDefault();
    command.addFlag("--devices", options->devices, "Put devices back too");
    command.addOption("-j,--jobs", options->jobs, "Files to fetch at the same time")
        .between(1, 64)
        .showsDefault();
    command
        .addOption("--bwlimit", options->bytesPerSecond,
                   "Bytes a second to fetch at most, such as 500k")
        .asSize();
    command
        .addFlag("--delete", options->deletesOthers,
                 "Delete what stands in the folders that are put back and was not in the run, "
                 "but not what its rules left out; asks first")
        .notInFile();
    options->confirmation.declare(command);
    options->run.declare(command, "--machine");
    command.runs([options] { return restore(*options); });
}

} // namespace stowline::cli
