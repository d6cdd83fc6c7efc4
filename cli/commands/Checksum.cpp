// stowline checksum
#include "cli/commands/Commands.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/util/Crc32.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <filesystem>

namespace stowline::cli {

namespace {

constexpr const char* kStandardInput = "-";

struct ChecksumOptions {
    std::vector<std::string> files;
    std::string expected; ///< hexadecimal
};

Crc32::FileChecksum checksumOfStandardInput()
{
    Crc32::FileChecksum result;
    std::array<char, 65536> piece; // NOLINT: filled by fread
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), stdin)) {
        result.checksum = Crc32::updateCRC32(result.checksum, piece.data(), count);
        result.bytesRead += count;
    }
    if (std::ferror(stdin) != 0)
        result.fault = "Standard input cannot be read to its end";
    return result;
}

Crc32::FileChecksum checksumOf(const std::string& file, ProgressDisplay& progress)
{
    if (file == kStandardInput)
        return checksumOfStandardInput(); // nothing to put right: a request to end ends it at once
    const Interruptible interruptible;
    const auto showAndListen = [&](double fractionDone, std::uint64_t size, bool* stop) {
        progress.update(fractionDone, size);
        *stop = Interruptible::request().has_value();
    };
    return Crc32::checksumOfFile(file, showAndListen);
}

void show(const std::string& file, const Crc32::FileChecksum& result)
{
    const std::string hexadecimal = fmt::format("{:08x}", result.checksum);
    Fields fields;
    fields.emplace_back("path", file);
    fields.emplace_back("crc32", hexadecimal);
    fields.emplace_back("value", std::uint64_t{result.checksum});
    fields.emplace_back("bytes", result.bytesRead);
    output().item(hexadecimal + "  " + onOneLine(file), "checksum", fields);
}

ExitStatus tellMismatch(const ChecksumOptions& options, std::uint32_t found)
{
    return output().fail(ExitStatus::checksumMismatch,
                         fmt::format("The checksum of {} is {:08x}, not {}.", options.files.front(),
                                     found, options.expected));
}

/// What is left to say when some files could not be read.
ExitStatus end(const ChecksumOptions& options, const std::vector<std::string>& unread)
{
    if (unread.empty())
        return output().finish(ExitStatus::done);
    std::error_code unknown;
    if (options.files.size() > 1)
        return output().fail(
            ExitStatus::someItemsFailed,
            fmt::format("{} of {} files could not be read.", unread.size(), options.files.size()));
    const bool isMissing = !std::filesystem::exists(options.files.front(), unknown);
    return output().finish(isMissing ? ExitStatus::notFound : ExitStatus::failed,
                           {{"message", unread.front() + "."}});
}

ExitStatus checksum(const ChecksumOptions& options)
{
    constexpr int hexadecimal = 16;
    const auto expected = platform::wholeNumber<std::uint32_t>(options.expected, hexadecimal);
    if (!options.expected.empty() && (!expected || options.files.size() != 1))
        return output().fail(ExitStatus::usage, "--expect takes a checksum in hexadecimal, as "
                                                "cbf43926, and is for one file.");
    ProgressDisplay progress(progressStyle(), options.files.size());
    std::vector<std::string> unread;
    for (const std::string& file : options.files) {
        progress.beginPart();
        const auto result = checksumOf(file, progress);
        progress.clear();
        if (const auto status = Interruptible::request())
            return output().fail(*status, "Interrupted.");
        if (result.fault) {
            unread.push_back(*result.fault);
            output().complain(*result.fault + ".");
            continue;
        }
        show(file, result);
        if (expected && *expected != result.checksum)
            return tellMismatch(options, result.checksum);
    }
    return end(options, unread);
}

} // namespace

void declareChecksum(const Command& app)
{
    auto options = std::make_shared<ChecksumOptions>();
    const Command command = app.addCommand("checksum", "Print the CRC-32 of files");
    command.addOption("FILE", options->files, "Files; - for standard input").required();
    command.addOption("--expect", options->expected,
                      "Checksum that the file must have, in hexadecimal");
    command.runs([options] { return checksum(*options); });
}

} // namespace stowline::cli
