// stowline account
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline::cli {

namespace {

struct AccountOptions {
    SessionOptions session;
    bool showsKey = false;
};

ExitStatus account(const AccountOptions& options)
{
    const auto session =
        options.session.open({"GetAccountInfo", "GetAccountUsedSpace", "GetPhyPath", "getenckey"});
    if (!session)
        return session.status();
    const auto info =
        WebServiceBroker::getAccountInfoForUsername2(session->username, session->password);
    const auto used =
        WebServiceBroker::usedSpaceInKbForAccount(session->username, session->password);
    if (!info || !used)
        return callFailure(std::nullopt);
    const auto path = WebServiceBroker::getUploadServerPathForUsername(
        session->username, session->server, General::hardwareId().value_or("unknown"));
    if (!path)
        return output().fail(ExitStatus::temporary,
                             "The backup server " + session->server +
                                 " gave no upload path. Please try again later.");
    Fields fields{{"account", session->username},
                  {"server", session->server},
                  {"used_kb", *used},
                  {"upload_path", *path}};
    if (const Dictionary* details = info->dictionary()) {
        for (const auto& [name, value] : *details)
            fields.emplace_back(name, value.text());
    }
    if (options.showsKey) {
        const auto key = WebServiceBroker::getEncKeyForUserName(session->username,
                                                                session->password, session->server);
        if (!key)
            return callFailure(std::nullopt);
        fields.emplace_back("encryption_key", *key);
    }
    return output().finish(ExitStatus::done, fields);
}

} // namespace

void declareAccount(const Command& app)
{
    auto options = std::make_shared<AccountOptions>();
    const Command command =
        app.addCommand("account", "Show the account's details, used space and upload path");
    options->session.declare(command);
    command.addFlag("--show-encryption-key", options->showsKey,
                    "Show the account's encryption key too, which is a secret");
    command.runs([options] { return account(*options); });
}

} // namespace stowline::cli
