// stowline signin
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/Secret.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"

namespace stowline::cli {

namespace {

struct SignInOptions {
    std::string username;
    SecretOptions password;
};

ExitStatus showAccount(const SignInOptions& options)
{
    if (const auto failure = settingsFailure("Authenticate"))
        return *failure;
    const auto password = options.password.read("Password for " + options.username + ": ");
    if (!password)
        return output().finish(ExitStatus::usage);
    const auto result = cli::signIn(options.username, *password);
    if (!result)
        return result.status();
    return output().finish(ExitStatus::done,
                           {{"account", options.username},
                            {"state", platform::findText(*result, "accountStatus")},
                            {"server", platform::findText(*result, "backupServerName")}});
}

} // namespace

void declareSignIn(const Command& app)
{
    auto options = std::make_shared<SignInOptions>();
    const Command command =
        app.addCommand("signin", "Sign in; print the account's state and backup server");
    declareUsername(command, options->username);
    options->password.declare(command, "password", "STOWLINE_PASSWORD");
    command.runs([options] { return showAccount(*options); });
}

} // namespace stowline::cli
