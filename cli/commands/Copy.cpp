// stowline copy
#include "cli/commands/Commands.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <filesystem>

namespace stowline::cli {

namespace {

namespace fs = std::filesystem;

struct CopyOptions {
    std::string source;
    std::string destination;
    bool verify = false;
    bool dryRun = false;
};

/// Why the copy cannot begin; absent when it can.
std::optional<ExitStatus> refusal(const fs::path& source, const fs::path& destination)
{
    std::error_code unknown;
    if (!fs::exists(source, unknown))
        return output().fail(ExitStatus::notFound, source.string() + " was not found.");
    if (fs::is_directory(source, unknown))
        return output().fail(ExitStatus::failed,
                             source.string() + " is a folder. Please name a file in it.");
    if (fs::exists(fs::symlink_status(destination, unknown)))
        return output().fail(ExitStatus::failed,
                             destination.string() +
                                 " exists already. Please choose another name or remove it.");
    return std::nullopt;
}

ExitStatus failure(const std::string& reason)
{
    if (const auto status = Interruptible::request())
        return output().fail(*status, "Interrupted. Nothing is left of the copy.");
    return output().fail(ExitStatus::failed, reason.empty()
                                                 ? "The copy failed."
                                                 : reason + ". Nothing is left of the copy.");
}

/// Whether both files have the same checksum.
bool isSame(const std::string& source, const std::string& copy)
{
    const auto first = Crc32::checksumOfFile(source);
    const auto second = Crc32::checksumOfFile(copy);
    return !first.fault && !second.fault && first.checksum == second.checksum &&
           first.bytesRead == second.bytesRead;
}

ExitStatus runCopy(const CopyOptions& options, const std::string& destination)
{
    const Interruptible interruptible;
    ProgressDisplay progress;
    progress.beginPart();
    std::string reason;
    const bool isCopied = General::copyFileAt(
        options.source, destination,
        [&](double fractionDone, std::uint64_t size, bool* stop) {
            progress.update(fractionDone, size);
            *stop = Interruptible::request().has_value();
        },
        &reason);
    progress.clear();
    if (!isCopied)
        return failure(reason);
    if (options.verify && !isSame(options.source, destination))
        return output().fail(ExitStatus::checksumMismatch,
                             "The copy " + destination + " is not the same as " + options.source +
                                 ". Please copy it again; it has been left for you to look at.");
    std::error_code unknown;
    return output().finish(ExitStatus::done, {{"copied", options.source},
                                              {"to", destination},
                                              {"bytes", fs::file_size(destination, unknown)}});
}

ExitStatus copy(const CopyOptions& options)
{
    std::error_code unknown;
    const fs::path source = options.source;
    const fs::path named = options.destination;
    const fs::path destination =
        fs::is_directory(named, unknown) ? named / source.filename() : named;
    if (const auto status = refusal(source, destination))
        return *status;
    if (!options.dryRun)
        return runCopy(options, destination.string());
    output().note("Would copy " + source.string() + " to " + destination.string() + ".");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareCopy(const Command& app)
{
    auto options = std::make_shared<CopyOptions>();
    const Command command = app.addCommand("copy", "Copy a file, never over another");
    command.addOption("SRC", options->source, "File to copy").required();
    command.addOption("DST", options->destination, "New name, or a folder").required();
    command.addFlag("--verify", options->verify, "Compare the checksums afterwards");
    command.addFlag("-n,--dry-run", options->dryRun, "Say what would be done");
    command.runs([options] { return copy(*options); });
}

} // namespace stowline::cli
