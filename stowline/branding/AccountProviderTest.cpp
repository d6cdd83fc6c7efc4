#include "stowline/branding/AccountProvider.h"

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/Alert.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

using platform::Alert;
using platform::Url;

const Dictionary kEverything{{"TW_CompanyName", "Acme Incorporated"},
                             {"TW_CompanyShortName", "Acme"},
                             {"TW_ProductName", "Vault"},
                             {"TW_MyAccountLinkName", "account"},
                             {"TW_SignupLinkName", "join"},
                             {"TW_ForgotUsrPwdUrl", "https://acme.example/forgot?a=b"},
                             {"TW_ForgotUnamePwdLinkName", "Forgot?"},
                             {"TW_SupportLinkName", "help"},
                             {"TW_SupportChatLinkName", "chat"},
                             {"TW_SupportKbLinkName", "kb"},
                             {"TW_SupportCreateTicketLinkName", "ticket"}};

Dictionary everythingBut(const std::string& key)
{
    Dictionary info = kEverything;
    info.erase(key);
    return info;
}

/// Keeps the alerts instead of showing them.
class AlertCatcher {
public:
    AlertCatcher()
    {
        platform::setAlertPresenter([this](const Alert& alert) { alerts.push_back(alert); });
    }
    ~AlertCatcher() { platform::setAlertPresenter({}); }
    std::vector<Alert> alerts;
};

TEST(AccountProvider, HandsOutWhatTheBrandSays)
{
    const test::TestBundle bundle({}, kEverything);
    EXPECT_EQ(AccountProvider::getCompanyDetails(),
              (Dictionary{{"CompanyName", "Acme Incorporated"}, {"CompanyShortName", "Acme"}}));
    EXPECT_EQ(AccountProvider::getProductDetails(), (Dictionary{{"Stowline", "Vault"}}));
    EXPECT_EQ(AccountProvider::getMyAccountLinkDetails(),
              (Dictionary{{"MyAccountName", "account"}}));
    EXPECT_EQ(AccountProvider::getSignupLinkDetails(), (Dictionary{{"SignupLinkName", "join"}}));
    EXPECT_EQ(AccountProvider::getSupportLinkDetails(),
              (Dictionary{{"GeneralSupportName", "help"},
                          {"ChatSupportName", "chat"},
                          {"KnowledgebaseName", "kb"},
                          {"CreateTicketName", "ticket"}}));
    EXPECT_EQ(AccountProvider::getRebrandedErrorDomain(), "com.Acme.Vault.ErrorDomain");
}

TEST(AccountProvider, TheForgottenPasswordAddressIsAUrl)
{
    const test::TestBundle bundle({}, kEverything);
    const AlertCatcher catcher;
    const Dictionary details = AccountProvider::getForgotUnamePwdLinkDetails();
    ASSERT_EQ(details.size(), 2U);
    ASSERT_TRUE(details.at("ForgotUnamePwdURL").url());
    EXPECT_EQ(details.at("ForgotUnamePwdURL").url()->text(), "https://acme.example/forgot?a=b");
    EXPECT_EQ(details.at("ForgotUnamePwdLinkName"), "Forgot?");
    EXPECT_TRUE(catcher.alerts.empty());
}

TEST(AccountProvider, WithoutAnyKeyEverythingIsEmpty)
{
    const test::TestBundle bundle({});
    const AlertCatcher catcher;
    EXPECT_TRUE(AccountProvider::getCompanyDetails().empty());
    EXPECT_TRUE(AccountProvider::getProductDetails().empty());
    EXPECT_TRUE(AccountProvider::getMyAccountLinkDetails().empty());
    EXPECT_TRUE(AccountProvider::getSignupLinkDetails().empty());
    EXPECT_TRUE(AccountProvider::getForgotUnamePwdLinkDetails().empty());
    EXPECT_TRUE(AccountProvider::getSupportLinkDetails().empty());
    EXPECT_EQ(AccountProvider::getRebrandedErrorDomain(), "com.(null).(null).ErrorDomain");
    EXPECT_EQ(catcher.alerts.size(), 1U);
}

TEST(AccountProvider, ADictionaryEndsAtItsFirstMissingValue)
{
    const test::TestBundle bundle({}, everythingBut("TW_CompanyName"));
    EXPECT_TRUE(AccountProvider::getCompanyDetails().empty());
    EXPECT_EQ(AccountProvider::getRebrandedErrorDomain(), "com.(null).Vault.ErrorDomain");
}

TEST(AccountProvider, AMissingLastValueLeavesTheFirst)
{
    const test::TestBundle bundle({}, everythingBut("TW_CompanyShortName"));
    EXPECT_EQ(AccountProvider::getCompanyDetails(),
              (Dictionary{{"CompanyName", "Acme Incorporated"}}));
}

TEST(AccountProvider, SupportLinksAreTakenOneByOne)
{
    const test::TestBundle bundle({}, {{"TW_SupportKbLinkName", "kb"}});
    EXPECT_EQ(AccountProvider::getSupportLinkDetails(), (Dictionary{{"KnowledgebaseName", "kb"}}));
}

TEST(AccountProvider, AValueThatIsNoStringIsMissing)
{
    const test::TestBundle bundle({}, {{"TW_ProductName", 5}});
    EXPECT_TRUE(AccountProvider::getProductDetails().empty());
}

TEST(AccountProvider, TellsOfAnInvalidUrlOnEachCall)
{
    Dictionary info = kEverything;
    info["TW_ForgotUsrPwdUrl"] = "not an address";
    const test::TestBundle bundle({}, info);
    const AlertCatcher catcher;
    EXPECT_TRUE(AccountProvider::getForgotUnamePwdLinkDetails().empty());
    EXPECT_TRUE(AccountProvider::getForgotUnamePwdLinkDetails().empty());
    ASSERT_EQ(catcher.alerts.size(), 2U);
    EXPECT_EQ(catcher.alerts[0].message, "Invalid URL in configuration");
    EXPECT_EQ(catcher.alerts[0].informativeText, "Invalid URL stored in TW_ForgotUsrPwdURL");
    EXPECT_EQ(catcher.alerts[0].button, "OK");
}

TEST(AccountProvider, AMissingLinkNameKeepsTheUrl)
{
    const test::TestBundle bundle({}, everythingBut("TW_ForgotUnamePwdLinkName"));
    EXPECT_EQ(AccountProvider::getForgotUnamePwdLinkDetails().size(), 1U);
}

TEST(AccountProvider, TheAlertIsTranslated)
{
    const test::TestBundle bundle({});
    bundle.folder().write(
        "Resources/Localizable.strings",
        platform::writeXmlPropertyList(
            Dictionary{{"OK", "Gut"},
                       {"Invalid URL in configuration", "Ungültige Adresse"},
                       {"Invalid URL stored in TW_ForgotUsrPwdURL", "Siehe dort"}})
            .value());
    const AlertCatcher catcher;
    (void)AccountProvider::getForgotUnamePwdLinkDetails();
    ASSERT_EQ(catcher.alerts.size(), 1U);
    EXPECT_EQ(catcher.alerts[0].message, "Ungültige Adresse");
    EXPECT_EQ(catcher.alerts[0].informativeText, "Siehe dort");
    EXPECT_EQ(catcher.alerts[0].button, "Gut");
}

TEST(AccountProvider, LogsWhatItFound)
{
    const test::TestBundle bundle({}, kEverything);
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    (void)AccountProvider::getCompanyDetails();
    (void)AccountProvider::getProductDetails();
    (void)AccountProvider::getMyAccountLinkDetails();
    (void)AccountProvider::getSignupLinkDetails();
    (void)AccountProvider::getForgotUnamePwdLinkDetails();
    (void)AccountProvider::getSupportLinkDetails();
    DDLog::flushLog();
    EXPECT_EQ(logger->count(), 5U);
    EXPECT_TRUE(logger->hasLine("\n\nIn getCompanyDetails, retrieved details {CompanyName = Acme "
                                "Incorporated; CompanyShortName = Acme; }"));
    EXPECT_TRUE(logger->hasLine("\n\nin getProductName, retrieved value: Vault"));
    EXPECT_TRUE(
        logger->hasLine("\n\nin getMyAccountLinkDetails. URL is {MyAccountName = account; }"));
    EXPECT_TRUE(logger->hasLine("\n\nin getSignupDetails. URL is {SignupLinkName = join; }"));
    EXPECT_TRUE(logger->hasLine("\n\nin getForgotUnamePwdLinkDetails. URL is "
                                "{ForgotUnamePwdLinkName = Forgot?; ForgotUnamePwdURL = "
                                "https://acme.example/forgot?a=b; }"));
    EXPECT_EQ(logger->lines()[0].flag, kLogFlagInfo);

    (void)AccountProvider::getRebrandedErrorDomain();
    DDLog::flushLog();
    EXPECT_EQ(logger->count(), 7U);
}

TEST(AccountProvider, AMissingProductNameIsLoggedAsNull)
{
    const test::TestBundle bundle({});
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    (void)AccountProvider::getProductDetails();
    DDLog::flushLog();
    EXPECT_TRUE(logger->hasLine("\n\nin getProductName, retrieved value: (null)"));
}

} // namespace
} // namespace stowline
