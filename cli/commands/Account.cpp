// stowline account
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/Progress.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline::cli {

namespace {

struct AccountOptions {
    SessionOptions session;
    bool showsKey = false;
};

bool isForPeople()
{
    return !output().isJson();
}

/// The service counts in units of 1024 bytes.
std::string usedText(std::int64_t kilobytes)
{
    return bytesText(static_cast<double>(kilobytes) * 1024);
}

/// What the service tells of the account; sizes for people in their units.
std::pair<std::string, FieldValue> detail(const std::string& name, const std::string& text)
{
    constexpr std::string_view kilobytes = "InKb";
    if (!isForPeople() || !name.ends_with(kilobytes))
        return {name, text};
    return {name.substr(0, name.size() - kilobytes.size()),
            usedText(platform::leadingInteger(text))};
}

ExitStatus account(const AccountOptions& options)
{
    const auto session =
        options.session.open({"GetAccountInfo", "GetAccountUsedSpace", "GetPhyPath", "getenckey"});
    if (!session)
        return session.status();
    const FailureWatch watch;
    const auto info =
        WebServiceBroker::getAccountInfoForUsername2(session->username, session->password);
    if (!info)
        return callFailure(watch.failure(), "The service gave no details of the account.");
    const auto used =
        WebServiceBroker::usedSpaceInKbForAccount(session->username, session->password);
    if (!used)
        return callFailure(watch.failure(), "The service did not say how much space is used.");
    const auto path = WebServiceBroker::getUploadServerPathForUsername(
        session->username, session->server, General::hardwareId().value_or("unknown"));
    if (!path)
        return callFailure(watch.failure(),
                           "The backup server " + session->server + " gives no upload path.");
    Fields fields = isForPeople() ? Fields{{"Account", session->username},
                                           {"Backup server", session->server},
                                           {"Space used", usedText(*used)},
                                           {"Upload path", *path}}
                                  : Fields{{"account", session->username},
                                           {"server", session->server},
                                           {"used_kb", *used},
                                           {"upload_path", *path}};
    if (const Dictionary* details = info->dictionary()) {
        for (const auto& [name, value] : *details)
            fields.push_back(detail(name, value.text()));
    }
    if (options.showsKey) {
        const auto key = WebServiceBroker::getEncKeyForUserName(session->username,
                                                                session->password, session->server);
        if (!key)
            return callFailure(watch.failure(), "The service gives no encryption key.");
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
