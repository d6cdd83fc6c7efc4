// stowline restore-info
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

namespace stowline::cli {

namespace {

struct RestoreOptions {
    SessionOptions session;
    std::vector<std::int64_t> versions;
};

void show(const Dictionary& file)
{
    Fields fields;
    fields.emplace_back("path", localPath(platform::findText(file, "Path") + "/" +
                                          platform::findText(file, "Name")));
    std::string text;
    for (const auto& [name, value] : file) {
        fields.emplace_back(name, value.text());
        text +=
            fmt::format("{}{:<12}  {}", text.empty() ? "" : "\n", name, onOneLine(value.text()));
    }
    output().item(text, "restore", fields);
}

ExitStatus restoreInfo(const RestoreOptions& options)
{
    const auto session = options.session.open({"getMetaDataAboutFilesToRecover"});
    if (!session)
        return session.status();
    const FailureWatch watch;
    const auto result = WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
        fmt::format("{}", fmt::join(options.versions, ",")), session->username, session->server, "",
        nullptr);
    if (!result)
        return callFailure(watch.failure());
    const auto files = platform::valueAtKeyPath(*result, "files.FileMetaData");
    if (!files)
        return output().fail(ExitStatus::notFound,
                             "None of these versions was found on the service.");
    const Array list = files->array() ? *files->array() : Array{*files};
    for (const Value& file : list) {
        if (const Dictionary* fields = file.dictionary())
            show(*fields);
    }
    return output().finish(ExitStatus::done);
}

} // namespace

void declareRestoreInfo(const Command& app)
{
    auto options = std::make_shared<RestoreOptions>();
    const Command command =
        app.addCommand("restore-info", "Show what is needed to recover versions of files");
    command.addOption("VERSION", options->versions, "Numbers of versions").required();
    options->session.declare(command);
    command.runs([options] { return restoreInfo(*options); });
}

} // namespace stowline::cli
