// stowline undelete
#include "cli/commands/Commands.h"
#include "cli/shared/Grace.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

constexpr std::int64_t kPageSize = 10000; // each page costs the service a look at all

struct Options {
    SessionOptions session;
    std::string systemName;
    std::vector<std::string> paths;
    std::string since;
    bool isDryRun = false;
};

/// The beginning of a moment: of the day, when there is no time of day.
std::optional<std::int64_t> momentIn(std::string text)
{
    constexpr std::size_t day = std::string_view("2026-01-31").size();
    constexpr std::size_t minute = std::string_view("2026-01-31 18:30").size();
    if (text.size() == day)
        text += " 00:00";
    if (text.size() == minute)
        text += ":00";
    const auto moment = parseRunOrMoment(text);
    if (!moment || !std::holds_alternative<backup::Timestamp>(*moment))
        return std::nullopt;
    return std::get<backup::Timestamp>(*moment).seconds;
}

class Undeletion {
public:
    Undeletion(const Options& options, Session session, std::optional<std::int64_t> since)
        : options_(options), session_(std::move(session)), since_(since)
    {
        for (const std::string& path : options.paths)
            paths_.push_back(remotePathFor(path));
        if (paths_.empty())
            paths_.emplace_back(); // everything, the records of runs too
    }

    ExitStatus run()
    {
        const Interruptible interruptible;
        for (const std::string& path : paths_) {
            if (!(options_.isDryRun ? show(path) : bringBack(path)))
                return failure();
        }
        return end();
    }

private:
    /// @return false when the question was not answered
    bool show(const std::string& path)
    {
        std::uint64_t shown = 0;
        for (bool isMore = true; isMore;) {
            const auto page = WebServiceBroker::deletedFilesForUsername(
                session_.username, session_.password, options_.systemName, path, since_,
                static_cast<std::int64_t>(shown), kPageSize, session_.server, &error_);
            if (!page || Interruptible::request())
                return false;
            for (const DeletedFile& file : page->files)
                showOne(file);
            shown += page->files.size();
            isMore = !page->files.empty() && shown < page->totalCount;
            if (!isMore) {
                versions_ += page->totalCount;
                bytes_ += page->totalSize;
                left_ += page->left;
            }
        }
        return true;
    }

    void showOne(const DeletedFile& file)
    {
        if (file.folder.starts_with("/=stowline=")) {
            ++records_;
            return;
        }
        const std::string path = localPath(file.folder) + "/" + localPath(file.name);
        output().item(fmt::format("{:>8}  {:>8}  {:<24}  {}", onOneLine(file.versionId),
                                  sizeText(std::to_string(file.size)),
                                  onOneLine(localTimeText(file.keptUntil)), onOneLine(path)),
                      "deleted",
                      {{"path", path},
                       {"version", file.versionId},
                       {"size", file.size},
                       {"deleted", file.deletedAt},
                       {"kept_until", file.keptUntil},
                       {"system", file.systemName}});
    }

    bool bringBack(const std::string& path)
    {
        for (bool isMore = true; isMore;) {
            const auto done = WebServiceBroker::undeleteFilesForUsername(
                session_.username, session_.password, options_.systemName, path, since_,
                session_.server, &error_);
            if (!done)
                return false;
            versions_ += done->undeleted;
            bytes_ += done->size;
            isMore = done->remaining > 0;
            left_ += done->left;
            lost_ += done->lost;
            forgetting_ = done->forgetting; // of the machine, whichever path was meant
            if (isMore && done->undeleted == 0) {
                left_ += done->remaining;
                return true;
            }
            if (isMore && Interruptible::request())
                return false;
        }
        return true;
    }

    ExitStatus failure()
    {
        const std::string soFar =
            versions_ == 0 || options_.isDryRun
                ? ""
                : countText(versions_, "version was", "versions were") + " brought back before.";
        if (!soFar.empty())
            output().complain(soFar);
        if (const auto status = Interruptible::request())
            return output().fail(*status,
                                 "Interrupted. The same command goes on where this one stopped.");
        return callFailure(error_);
    }

    ExitStatus end()
    {
        const Fields fields{{options_.isDryRun ? "would_undelete" : "undeleted", versions_},
                            {"bytes", bytes_},
                            {"left", left_},
                            {"lost", lost_}};
        if (versions_ + left_ + lost_ == 0)
            return output().fail(ExitStatus::notFound, nothingSentence());
        const std::string what = countText(versions_, "version", "versions") + ", " +
                                 bytesText(static_cast<double>(bytes_));
        if (options_.isDryRun)
            output().note(fmt::format(
                "Would bring back {}{}.", what,
                records_ == 0 ? ""
                              : fmt::format("; {} of them are of the records of runs", records_)));
        else
            output().note("Brought back: " + what + ".");
        if (!options_.isDryRun && options_.paths.empty() && versions_ > 0 && forgetting_ == 0)
            output().note("If runs came back that a profile's rules had forgotten, the next good "
                          "run by these rules forgets them again. To keep them, give the profile "
                          "rules that keep as many (\"keep-last\"), or none, first.");
        if (left_ > 0)
            output().complain(countText(left_, "version", "versions") +
                              " cannot come back: other records of runs stand in the place of "
                              "theirs, or what they build on is gone.");
        if (lost_ > 0)
            output().complain(countText(lost_, "version", "versions") +
                              " cannot come back: the service has lost the content.");
        if (forgetting_ > 0)
            output().complain(countText(forgetting_, "run is", "runs are") +
                              " still forgotten: the next forgetting deletes again what only such "
                              "a run holds, unless everything is undeleted before.");
        const auto status = left_ + lost_ > 0 ? ExitStatus::someItemsFailed : ExitStatus::done;
        return output().isJson() ? output().finish(status, fields) : output().finish(status);
    }

    std::string nothingSentence() const
    {
        std::string sentence = "Nothing that was deleted of the machine " + options_.systemName +
                               (options_.paths.empty() ? "" : " there") +
                               (since_ ? " since then" : "") + " can be brought back.";
        if (const auto grace = graceOf(session_); grace && grace->seconds == 0)
            sentence += " This service keeps nothing of what is deleted.";
        return sentence;
    }

    const Options& options_;
    const Session session_;
    const std::optional<std::int64_t> since_;
    std::vector<std::string> paths_;
    std::optional<Error> error_;
    std::uint64_t versions_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t left_ = 0;
    std::uint64_t lost_ = 0;
    std::uint64_t forgetting_ = 0;
    std::uint64_t records_ = 0;
};

ExitStatus undelete(const Options& options)
{
    std::optional<std::int64_t> since;
    if (!options.since.empty()) {
        since = momentIn(options.since);
        if (!since)
            return output().fail(ExitStatus::usage,
                                 "--since takes a time as \"2026-01-31 18:30\", not \"" +
                                     options.since + "\".");
    }
    const auto session = options.session.open({"GetAccountSystems"});
    if (!session)
        return session.status();
    if (!WebServiceBroker::isUndeletingConfigured())
        return output().fail(ExitStatus::settingsInvalid,
                             std::string(kUndeletingNotConfiguredMessage));
    return Undeletion(options, *session, since).run();
}

} // namespace

void declareUndelete(const Command& app)
{
    auto options = std::make_shared<Options>();
    const Command command =
        app.addCommand("undelete", "Bring back what was deleted, while the service keeps it");
    command.addOption("PATH", options->paths,
                      "Files and folders of the machine; everything, with the records of its runs, "
                      "when left out");
    command.addOption("--system", options->systemName, "The machine")
        .defaultsTo(General::localHostName());
    command
        .addOption("--since", options->since,
                   "Only what was deleted since this time, as \"2026-01-31 18:30\"")
        .notInFile();
    command.addFlag("-n,--dry-run", options->isDryRun, "Say what would come back");
    options->session.declare(command);
    command.runs([options] { return undelete(*options); });
}

} // namespace stowline::cli
