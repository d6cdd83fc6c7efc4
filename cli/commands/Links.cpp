// stowline links
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "stowline/branding/AccountProvider.h"
#include "stowline/platform/desktop/Alert.h"

#include <fmt/format.h>

#include <array>

namespace stowline::cli {

namespace {

/// The keys in the order in which the operations document them.
struct Details {
    Dictionary (*read)();
    std::vector<const char*> keys;
};

void show(const std::string& key, const std::string& value)
{
    output().item(fmt::format("{:<22}  {}", key, value), "link", {{"key", key}, {"value", value}});
}

ExitStatus links()
{
    std::optional<std::string> invalid;
    platform::setAlertPresenter([&](const platform::Alert& alert) {
        invalid = alert.message + ": " + alert.informativeText;
    });
    const std::vector<Details> everything{
        {AccountProvider::getCompanyDetails, {"CompanyName", "CompanyShortName"}},
        {AccountProvider::getProductDetails, {"Stowline"}},
        {AccountProvider::getMyAccountLinkDetails, {"MyAccountName"}},
        {AccountProvider::getSignupLinkDetails, {"SignupLinkName"}},
        {AccountProvider::getForgotUnamePwdLinkDetails,
         {"ForgotUnamePwdURL", "ForgotUnamePwdLinkName"}},
        {AccountProvider::getSupportLinkDetails,
         {"GeneralSupportName", "ChatSupportName", "KnowledgebaseName", "CreateTicketName"}}};
    for (const Details& details : everything) {
        const Dictionary found = details.read();
        for (const char* key : details.keys) {
            if (const Value* value = platform::find(found, key))
                show(key, value->text());
        }
    }
    show("error domain", AccountProvider::getRebrandedErrorDomain());
    platform::setAlertPresenter({});
    if (invalid)
        return output().fail(ExitStatus::settingsInvalid, *invalid + ".");
    return output().finish(ExitStatus::done);
}

} // namespace

void declareLinks(const Command& app)
{
    app.addCommand("links", "Show the links of the brand").runs(links);
}

} // namespace stowline::cli
