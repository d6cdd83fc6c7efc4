// stowline versions
#include "cli/commands/Commands.h"
#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

struct VersionOptions {
    SessionOptions session;
    std::int64_t fileId = 0;
};

constexpr const char* kRow = "{:>8}  {:>8}  {:<24}  {:<8}  {}";

void show(const Dictionary& version)
{
    const auto text = [&version](const char* name) { return platform::findText(version, name); };
    output().item(fmt::format(kRow, onOneLine(text("VersionID")), onOneLine(sizeText(text("Size"))),
                              onOneLine(localTimeText(text("Date"))), onOneLine(text("Checksum")),
                              onOneLine(text("FileListID"))),
                  "version",
                  {{"id", platform::leadingInteger(text("VersionID"))},
                   {"size", platform::leadingInteger(text("Size"))},
                   {"date", text("Date")},
                   {"crc32", text("Checksum")},
                   {"delta", text("IsDelta") == "true"},
                   {"list", text("FileListID")}});
}

ExitStatus versions(const VersionOptions& options)
{
    const auto session = options.session.open({"GetFileVersions"});
    if (!session)
        return session.status();
    const FailureWatch watch;
    const auto found = WebServiceBroker::getFileVersionsForUsername(
        session->username, session->password, session->server, options.fileId, nullptr);
    if (isRefusalWith(watch.failure(), "NoSuchFile"))
        return output().fail(
            ExitStatus::notFound,
            fmt::format("The file {} was not found on the service.", options.fileId));
    if (!found)
        return refusal(fmt::format("The versions of file {} cannot be listed", options.fileId),
                       watch.failure());
    if (!found->empty())
        output().heading(fmt::format(kRow, "VERSION", "SIZE", "DATE", "CRC-32", "LIST"));
    for (const Value& version : *found) {
        if (const Dictionary* fields = version.dictionary())
            show(*fields);
    }
    return output().finish(ExitStatus::done);
}

} // namespace

void declareVersions(const Command& app)
{
    auto options = std::make_shared<VersionOptions>();
    const Command command = app.addCommand("versions", "List the stored versions of a file");
    command.addOption("FILE-ID", options->fileId, "Number of the file, as ls and search show it")
        .required();
    options->session.declare(command);
    command.runs([options] { return versions(*options); });
}

} // namespace stowline::cli
