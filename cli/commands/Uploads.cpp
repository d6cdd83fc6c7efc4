// stowline uploads
#include "cli/commands/BackupCommand.h"
#include "cli/commands/Commands.h"
#include "cli/shared/Confirmation.h"
#include "cli/shared/Output.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

UploadJournal journal()
{
    return UploadJournal(journalFolder().value_or(""));
}

ExitStatus listUploads()
{
    for (const JournalEntry& entry : journal().entries()) {
        Fields fields{{"id", entry.guid}};
        fields.emplace_back("path", entry.file.path);
        fields.emplace_back("sent", entry.sentBytes);
        fields.emplace_back("size", entry.file.size);
        fields.emplace_back("parts", entry.parts);
        fields.emplace_back("account", entry.username);
        output().item(fmt::format("{}  {:>14} of {:>14}  {}", entry.guid, entry.sentBytes,
                                  entry.file.size, onOneLine(entry.file.path)),
                      "upload", fields);
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
    return output().finish(ExitStatus::done, {{"abandoned", guids.size()}});
}

void declareResume(const Command& uploads)
{
    auto options = std::make_shared<ResumeOptions>();
    const Command command = uploads.addCommand("resume", "Go on with all of them");
    options->flags.declare(command);
    options->session.declare(command);
    command.runs([options] { return resumeUploads(*options); });
}

void declareAbandon(const Command& uploads)
{
    auto options = std::make_shared<AbandonOptions>();
    const Command command = uploads.addCommand("abandon", "Forget unfinished uploads");
    const Option guids =
        command.addOption("ID", options->guids, "Uploads as \"uploads list\" shows them");
    const Option all = command.addFlag("--all", options->all, "All of them");
    guids.excludes(all);
    options->confirmation.declare(command);
    command.runs([options] {
        if (options->guids.empty() && !options->all)
            return output().fail(ExitStatus::usage, "Please name uploads, or give --all.");
        return abandonUploads(*options);
    });
}

} // namespace

void declareUploads(const Command& app)
{
    const Command command =
        app.addCommand("uploads", "What is unfinished on this machine: list, resume, abandon");
    command.needsSubcommand();
    command.addCommand("list", "List the unfinished uploads").runs(listUploads);
    declareResume(command);
    declareAbandon(command);
}

} // namespace stowline::cli
