// stowline uploads
#include "cli/BackupCommand.h"
#include "cli/Commands.h"
#include "cli/Confirmation.h"
#include "cli/Output.h"
#include "stowline/platform/Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace stowline::cli {

namespace {

UploadJournal journal()
{
    return UploadJournal(journalFolder().value_or(""));
}

ExitStatus listUploads()
{
    for (const JournalEntry& entry : journal().entries()) {
        nlohmann::ordered_json line{{"v", 1}, {"type", "upload"}, {"id", entry.guid}};
        addPath(line, entry.file.path);
        line["sent"] = entry.sentBytes;
        line["size"] = entry.file.size;
        line["parts"] = entry.parts;
        line["account"] = entry.username;
        output().item(fmt::format("{}  {:>14} of {:>14}  {}", entry.guid, entry.sentBytes,
                                  entry.file.size, platform::withoutControls(entry.file.path)),
                      line);
    }
    return output().finish(ExitStatus::done);
}

struct ResumeOptions {
    SessionOptions session;
    BackupFlags flags;
};

/// The files of the journal as they are now; those that are gone are told of and forgotten.
FileTree unfinishedFiles()
{
    FileTree tree;
    for (const JournalEntry& entry : journal().entries()) {
        if (auto file = localFile(entry.file.path)) {
            file->contentMark = entry.file.contentMark;
            tree.files.push_back(*file);
            continue;
        }
        tree.faults.push_back(entry.file.path + " is not there any more; its upload is given up");
        journal().remove(entry.guid);
    }
    return tree;
}

ExitStatus resumeUploads(ResumeOptions& options)
{
    const BackupGuard guard;
    if (!guard.isHeld())
        return guard.failure();
    return backUpTree(options.session, options.flags, unfinishedFiles);
}

struct AbandonOptions {
    Confirmation confirmation;
    std::vector<std::string> guids;
    bool all = false;
};

ExitStatus abandonUploads(const AbandonOptions& options)
{
    const BackupGuard guard;
    if (!guard.isHeld())
        return guard.failure();
    std::vector<std::string> guids = options.guids;
    for (const JournalEntry& entry : journal().entries()) {
        if (options.all)
            guids.push_back(entry.guid);
    }
    for (const std::string& guid : guids) {
        if (!journal().find(guid))
            return output().fail(ExitStatus::notFound, "There is no upload " + guid +
                                                           ". \"stowline uploads list\" shows "
                                                           "those that there are.");
    }
    if (const auto refused = options.confirmation.refusal(
            fmt::format("the record of {} unfinished uploads", guids.size())))
        return *refused;
    for (const std::string& guid : guids)
        journal().remove(guid);
    return output().finish(ExitStatus::done, {{"abandoned", std::to_string(guids.size())}});
}

void declareResume(CLI::App& uploads, Chosen& chosen)
{
    auto options = std::make_shared<ResumeOptions>();
    CLI::App* command = uploads.add_subcommand("resume", "Go on with all of them");
    options->flags.declare(*command);
    options->session.declare(*command);
    command->callback(
        [options, &chosen] { chosen = [options] { return resumeUploads(*options); }; });
}

void declareAbandon(CLI::App& uploads, Chosen& chosen)
{
    auto options = std::make_shared<AbandonOptions>();
    CLI::App* command = uploads.add_subcommand("abandon", "Forget unfinished uploads");
    auto* guids =
        command->add_option("ID", options->guids, "Uploads as \"uploads list\" shows them");
    auto* all = command->add_flag("--all", options->all, "All of them");
    guids->excludes(all);
    options->confirmation.declare(*command);
    command->callback([options, &chosen] {
        chosen = [options] {
            if (options->guids.empty() && !options->all)
                return output().fail(ExitStatus::usage, "Please name uploads, or give --all.");
            return abandonUploads(*options);
        };
    });
}

} // namespace

void declareUploads(CLI::App& app, Chosen& chosen)
{
    CLI::App* command =
        app.add_subcommand("uploads", "What is unfinished on this machine: list, resume, abandon");
    command->require_subcommand(1);
    command->add_subcommand("list", "List the unfinished uploads")->callback([&chosen] {
        chosen = listUploads;
    });
    declareResume(*command, chosen);
    declareAbandon(*command, chosen);
}

} // namespace stowline::cli
