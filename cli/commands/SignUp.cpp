// stowline signup
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/Secret.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/Session.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline::cli {

namespace {

struct SignUpOptions {
    std::string username;
    std::string firstName;
    std::string email;
    std::string customerType;
    std::string secretQuestion;
    bool sealGuard = false;
    bool dryRun = false;
    SecretOptions password;
    SecretOptions answer;

    [[nodiscard]] bool isTrial() const { return !customerType.empty(); }
    [[nodiscard]] std::string webMethod() const
    {
        return isTrial() ? "CreateTrialAccount" : "CreateAccount";
    }
};

bool openAccount(const SignUpOptions& options, const std::string& password, ErrorSlot error)
{
    if (!options.isTrial())
        return WebServiceBroker::creatAccountWithFirstname(options.firstName, options.username,
                                                           password, options.email, error);
    return WebServiceBroker::createTrialWithFirstname(
        options.firstName, options.username, password, options.email, options.customerType,
        options.sealGuard, options.secretQuestion, options.answer.readIfGiven().value_or(""),
        error);
}

/// @param told the service's own words of a refusal, where it has some
/// @param failure what is known of the call
ExitStatus failed(const std::optional<Error>& told, const std::optional<Error>& failure)
{
    if (isRefusal(told))
        return output().fail(ExitStatus::refused, "The service did not open the account: " +
                                                      told->localizedDescription());
    return callFailure(failure,
                       "The service did not open the account. Is the user name taken, "
                       "or the e-mail address mistyped?",
                       "please try to sign in before you open the account again.");
}

ExitStatus signUp(const SignUpOptions& options)
{
    if (const auto failed = settingsFailure(options.webMethod()))
        return *failed;
    const auto password = options.password.readNew("New password for " + options.username + ": ");
    if (!password)
        return output().finish(ExitStatus::usage);
    if (options.dryRun) {
        output().note("The account " + options.username + " would be opened.");
        return output().finish(ExitStatus::done);
    }
    std::optional<Error> error;
    const FailureWatch watch;
    if (!openAccount(options, *password, &error))
        return failed(error, watch.failure());
    return output().finish(ExitStatus::done, {{"opened", options.username}});
}

} // namespace

void declareSignUp(const Command& app)
{
    auto options = std::make_shared<SignUpOptions>();
    const Command command = app.addCommand("signup", "Open an account");
    declareUsername(command, options->username);
    command.addOption("--first-name", options->firstName, "First name");
    command.addOption("--email", options->email, "E-mail address").required();
    command.addOption("--customer-type", options->customerType,
                      "Code of the customer type; opens a trial account of that type");
    command.addFlag("--seal-guard", options->sealGuard, "Trial account with seal guard");
    command.addOption("--secret-question", options->secretQuestion,
                      "Question for a forgotten password (trial accounts)");
    command.addFlag("-n,--dry-run", options->dryRun, "Change nothing");
    options->password.declare(command, "password", "STOWLINE_PASSWORD");
    options->answer.declare(command, "answer", "STOWLINE_ANSWER");
    command.runs([options] { return signUp(*options); });
}

} // namespace stowline::cli
