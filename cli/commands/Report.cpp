// stowline report, stowline email
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/ReportText.h"
#include "cli/shared/Reporting.h"
#include "cli/shared/ServiceFailure.h"
#include "stowline/platform/files/Files.h"

#include <filesystem>
#include <iostream>
#include <iterator>

namespace stowline::cli {

namespace {

ExitStatus noRun()
{
    return output().fail(ExitStatus::notFound,
                         "No backup has been run yet, so there is nothing to report. Please run "
                         "\"stowline backup\" first.");
}

/// The option --profile of what tells of the last run.
void declareProfile(const Command& command, std::string& profile)
{
    command.addOption("--profile", profile,
                      "Whose last backup is meant; the last one of any profile when left out");
}

/// @param profile empty: of any
std::optional<RunFigures> lastRunOf(const std::string& profile)
{
    return lastRun(profile.empty() ? std::nullopt : std::optional(profile));
}

ExitStatus report(const SessionOptions& options, const std::string& profile, bool isDryRun)
{
    const auto figures = lastRunOf(profile);
    if (!figures)
        return noRun();
    const auto session = options.open({"SendBackupSummaryReport"});
    if (!session)
        return session.status();
    if (isDryRun)
        return output().finish(ExitStatus::done);
    if (const Sending sending = sendSummary(session->username, session->password, *figures);
        !sending.isDone)
        return callFailure(sending.failure, "The service did not take the summary.");
    return output().finish(ExitStatus::done, {{"sent", "summary"}});
}

struct EmailOptions {
    std::string to;
    std::string from;
    std::string subject;
    std::string textFile;
    std::string saveTo;
    std::string profile; ///< empty: any
    bool isPlain = false;
    bool isDryRun = false;
};

ExitStatus noTemplate()
{
    return output().fail(ExitStatus::settingsInvalid,
                         "The resource backupReportEmailTemplate.html is missing. Please install "
                         "the program again.");
}

std::string senderOf(const EmailOptions& options)
{
    return options.from.empty() ? options.to : options.from;
}

/// The report in the form that the file's name asks for.
std::optional<std::string> contentFor(const EmailOptions& options, const RunFigures& figures)
{
    if (options.isPlain || options.saveTo.ends_with(".txt"))
        return reportText(figures);
    if (options.saveTo.ends_with(".eml"))
        return reportMessage(options.to, senderOf(options), figures);
    return reportHtml(figures);
}

/// Keeps the report as a file instead of sending it.
ExitStatus save(const EmailOptions& options, const RunFigures& figures)
{
    const auto content = contentFor(options, figures);
    if (!content)
        return noTemplate();
    std::error_code unknown;
    const auto there = std::filesystem::symlink_status(options.saveTo, unknown);
    if (std::filesystem::exists(there) && !std::filesystem::is_regular_file(there))
        return output().fail(ExitStatus::usage,
                             options.saveTo + " exists already and is not a file. Please name a "
                                              "file with --save.");
    if (!platform::writeFileAtomically(options.saveTo, *content))
        return output().fail(ExitStatus::failed, options.saveTo + " cannot be written.");
    return output().finish(ExitStatus::done, {{"saved", options.saveTo}});
}

ExitStatus sent(const Sending& sending, const EmailOptions& options)
{
    if (!sending.isDone)
        return callFailure(sending.failure, "The service did not send the e-mail to " + options.to +
                                                ". Is the address right?");
    return output().finish(ExitStatus::done, {{"sent", options.to}});
}

ExitStatus emailText(const EmailOptions& options, const std::string& from)
{
    const auto text = options.textFile == "-"
                          ? std::string(std::istreambuf_iterator<char>(std::cin), {})
                          : platform::readFile(options.textFile);
    if (!text)
        return output().fail(ExitStatus::notFound, options.textFile + " cannot be read.");
    if (options.isDryRun)
        return output().finish(ExitStatus::done);
    return sent(sendEmail(options.to, from, options.subject, *text, false), options);
}

ExitStatus email(const EmailOptions& options)
{
    const auto figures = lastRunOf(options.profile);
    if (!options.saveTo.empty())
        return figures ? save(options, *figures) : noRun();
    if (options.to.empty())
        return output().fail(ExitStatus::usage, "Please name the recipient, or give --save.");
    if (const auto failure = settingsFailure("sendEmail"))
        return *failure;
    const std::string from = senderOf(options);
    if (!options.textFile.empty())
        return emailText(options, from);
    if (!figures)
        return noRun();
    if (options.isDryRun)
        return output().finish(ExitStatus::done);
    if (!options.isPlain && !reportHtml(*figures))
        return noTemplate();
    return sent(sendReportEmail(options.to, from, *figures, options.isPlain), options);
}

} // namespace

void declareReport(const Command& app)
{
    auto options = std::make_shared<SessionOptions>();
    auto isDryRun = std::make_shared<bool>(false);
    auto profile = std::make_shared<std::string>();
    const Command command =
        app.addCommand("report", "Send the summary of the last backup to the service");
    command.addFlag("-n,--dry-run", *isDryRun, "Send nothing");
    declareProfile(command, *profile);
    options->declare(command);
    command.runs([options, profile, isDryRun] { return report(*options, *profile, *isDryRun); });
}

void declareEmail(const Command& app)
{
    auto options = std::make_shared<EmailOptions>();
    const Command command =
        app.addCommand("email", "Send the report of the last backup, or a text, by e-mail");
    command.addOption("TO", options->to, "Recipient");
    command.addOption("--from", options->from, "Sender; the recipient when left out");
    command.addOption("--subject", options->subject, "Subject of a text");
    command.addOption("--text", options->textFile,
                      "File with a text to send; - for standard input");
    command.addOption(
        "--save", options->saveTo,
        "Write the report to a file instead: as text to one whose name ends in .txt, as a "
        "message with text and HTML to one that ends in .eml, else as HTML");
    command.addFlag("--plain", options->isPlain, "The report as plain text");
    declareProfile(command, options->profile);
    command.addFlag("-n,--dry-run", options->isDryRun, "Send nothing");
    command.runs([options] { return email(*options); });
}

} // namespace stowline::cli
