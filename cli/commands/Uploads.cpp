// stowline uploads
#include "cli/commands/BackupFlags.h"
#include "cli/commands/BackupReport.h"
#include "cli/commands/Commands.h"
#include "cli/shared/Confirmation.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "stowline/backup/UnfinishedUploads.h"
#include "stowline/platform/files/Files.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::cli {

namespace {

std::filesystem::path state()
{
    return platform::stateFolder().value_or("");
}

ExitStatus listUploads()
{
    std::string fault;
    const auto uploads = backup::unfinishedUploads(state(), fault);
    if (!uploads)
        return output().fail(ExitStatus::failed, fault);
    const auto row = [](const std::string& id, const std::string& sent, const std::string& size,
                        const std::string& profile, const std::string& path) {
        return fmt::format("{:<36}  {:>10}  {:>10}  {:<10}  {}", id, sent, size, profile, path);
    };
    if (!uploads->empty())
        output().heading(row("ID", "SENT", "SIZE", "PROFILE", "PATH"));
    for (const backup::UnfinishedUpload& upload : *uploads) {
        Fields fields{{"id", upload.id}};
        fields.emplace_back("path", upload.path);
        fields.emplace_back("sent", upload.sentBytes);
        fields.emplace_back("size", upload.size);
        fields.emplace_back("parts", upload.parts);
        fields.emplace_back("account", upload.username);
        fields.emplace_back("profile", upload.profile);
        output().item(row(upload.id, bytesText(static_cast<double>(upload.sentBytes)),
                          bytesText(static_cast<double>(upload.size)), onOneLine(upload.profile),
                          onOneLine(upload.path)),
                      "upload", fields);
    }
    return output().finish(ExitStatus::done);
}

struct ResumeOptions {
    SessionOptions session;
    BackupFlags flags;
};

ExitStatus resumeUploads(ResumeOptions& options)
{
    return backUp(options.session, options.flags,
                  [](backup::BackupRequest& request) { request.resumesOnly = true; });
}

struct AbandonOptions {
    Confirmation confirmation;
    std::vector<std::string> ids;
    bool all = false;
};

ExitStatus abandonUploads(const AbandonOptions& options)
{
    std::vector<std::string> known;
    std::string fault;
    const auto uploads = backup::unfinishedUploads(state(), fault);
    if (!uploads)
        return output().fail(ExitStatus::failed, fault);
    for (const backup::UnfinishedUpload& upload : *uploads)
        known.push_back(upload.id);
    const std::vector<std::string>& ids = options.all ? known : options.ids;
    if (ids.empty()) {
        output().note("No upload is unfinished.");
        return output().finish(ExitStatus::done, {{"abandoned", 0}});
    }
    for (const std::string& id : ids) {
        if (std::ranges::find(known, id) == known.end())
            return output().fail(ExitStatus::notFound, "The upload " + id +
                                                           " was not found. \"stowline "
                                                           "uploads list\" shows those there are.");
    }
    if (const auto refused = options.confirmation.refusal(
            "the record of " + countText(ids.size(), "unfinished upload", "unfinished uploads")))
        return *refused;
    const auto abandoned = backup::abandonUploads(state(), ids);
    if (abandoned.end != backup::BackupEnd::done)
        return output().fail(statusOf(abandoned.end), abandoned.sentence);
    output().note("What was sent of them stays on the service until it discards it.");
    return output().finish(ExitStatus::done, {{"abandoned", abandoned.count}});
}

void declareResume(const Command& uploads)
{
    auto options = std::make_shared<ResumeOptions>();
    const Command command =
        uploads.addCommand("resume", "Go on with those of this account, machine name and profile");
    options->flags.declare(command);
    options->session.declare(command);
    command.runs([options] { return resumeUploads(*options); });
}

void declareAbandon(const Command& uploads)
{
    auto options = std::make_shared<AbandonOptions>();
    const Command command = uploads.addCommand("abandon", "Forget unfinished uploads");
    const Option ids =
        command.addOption("ID", options->ids, "Uploads as \"uploads list\" shows them");
    const Option all = command.addFlag("--all", options->all, "All of them");
    ids.excludes(all);
    options->confirmation.declare(command);
    command.runs([options] {
        if (options->ids.empty() && !options->all)
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
