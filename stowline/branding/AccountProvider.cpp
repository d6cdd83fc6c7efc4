#include "stowline/branding/AccountProvider.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Alert.h"
#include "stowline/platform/desktop/Bundle.h"

#include <utility>
#include <vector>

namespace stowline {

namespace {

using platform::Bundle;
using platform::Url;

using Pairs = std::vector<std::pair<std::string, std::optional<Value>>>;

std::optional<Value> branded(std::string_view key)
{
    const auto text = Bundle::infoString(key);
    return text ? std::optional<Value>(*text) : std::nullopt;
}

Dictionary upToFirstMissing(const Pairs& pairs)
{
    Dictionary details;
    for (const auto& [key, value] : pairs) {
        if (!value)
            break;
        details.emplace(key, *value);
    }
    return details;
}

Dictionary withoutMissing(const Pairs& pairs)
{
    Dictionary details;
    for (const auto& [key, value] : pairs) {
        if (value)
            details.emplace(key, *value);
    }
    return details;
}

void tellOfInvalidUrl()
{
    // The key in the text is spelt otherwise than the real one; translations know it by this text.
    platform::showAlert({Bundle::localizedString("Invalid URL in configuration"),
                         Bundle::localizedString("Invalid URL stored in TW_ForgotUsrPwdURL"),
                         Bundle::localizedString("OK")});
}

} // namespace

Dictionary AccountProvider::getCompanyDetails()
{
    Dictionary details = upToFirstMissing({{"CompanyName", branded("TW_CompanyName")},
                                           {"CompanyShortName", branded("TW_CompanyShortName")}});
    STOWLINE_LOG_INFO("\n\nIn getCompanyDetails, retrieved details %@", Value(details));
    return details;
}

Dictionary AccountProvider::getProductDetails()
{
    const auto name = branded("TW_ProductName");
    STOWLINE_LOG_INFO("\n\nin getProductName, retrieved value: %@", name);
    return upToFirstMissing({{"Stowline", name}});
}

std::string AccountProvider::getRebrandedErrorDomain()
{
    const Dictionary company = getCompanyDetails();
    const Dictionary product = getProductDetails();
    return platform::formatText("com.%@.%@.ErrorDomain",
                                platform::find(company, "CompanyShortName"),
                                platform::find(product, "Stowline"));
}

Dictionary AccountProvider::getMyAccountLinkDetails()
{
    Dictionary details = upToFirstMissing({{"MyAccountName", branded("TW_MyAccountLinkName")}});
    STOWLINE_LOG_INFO("\n\nin getMyAccountLinkDetails. URL is %@", Value(details));
    return details;
}

Dictionary AccountProvider::getSignupLinkDetails()
{
    Dictionary details = upToFirstMissing({{"SignupLinkName", branded("TW_SignupLinkName")}});
    STOWLINE_LOG_INFO("\n\nin getSignupDetails. URL is %@", Value(details));
    return details;
}

Dictionary AccountProvider::getForgotUnamePwdLinkDetails()
{
    const auto text = Bundle::infoString("TW_ForgotUsrPwdUrl");
    const auto url = text ? Url::fromText(*text) : std::nullopt;
    if (!url)
        tellOfInvalidUrl();
    Dictionary details =
        upToFirstMissing({{"ForgotUnamePwdURL", url ? std::optional<Value>(*url) : std::nullopt},
                          {"ForgotUnamePwdLinkName", branded("TW_ForgotUnamePwdLinkName")}});
    STOWLINE_LOG_INFO("\n\nin getForgotUnamePwdLinkDetails. URL is %@", Value(details));
    return details;
}

Dictionary AccountProvider::getSupportLinkDetails()
{
    return withoutMissing({{"GeneralSupportName", branded("TW_SupportLinkName")},
                           {"ChatSupportName", branded("TW_SupportChatLinkName")},
                           {"KnowledgebaseName", branded("TW_SupportKbLinkName")},
                           {"CreateTicketName", branded("TW_SupportCreateTicketLinkName")}});
}

} // namespace stowline
