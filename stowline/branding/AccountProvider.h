// Who sells the product and where its users are sent: what the brand says in the information
// dictionary.
#pragma once

#include "stowline/platform/values/Value.h"

#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Reads the "TW_" keys of the main bundle's information dictionary and hands them out as small
/// dictionaries. Nothing is kept or written; every call reads anew what the bundle has.
///
/// Values are strings. All dictionaries but getSupportLinkDetails() end at the first missing value:
/// what comes after it is left out too, even when it is there. Missing keys are not errors.
///
/// Any thread, but for getForgotUnamePwdLinkDetails(). All but getSupportLinkDetails() log what
/// they found.
class AccountProvider {
public:
    AccountProvider() = default;

    /// "CompanyName", "CompanyShortName".
    [[nodiscard]] static Dictionary getCompanyDetails();

    /// The product's name under the key "Stowline".
    [[nodiscard]] static Dictionary getProductDetails();

    /// "com.<short name>.<product name>.ErrorDomain"; "(null)" stands for what is missing.
    [[nodiscard]] static std::string getRebrandedErrorDomain();

    /// "MyAccountName". Like all links below a link name, which the application turns into an
    /// address.
    [[nodiscard]] static Dictionary getMyAccountLinkDetails();

    /// "SignupLinkName".
    [[nodiscard]] static Dictionary getSignupLinkDetails();

    /// "ForgotUnamePwdURL" (a URL), then "ForgotUnamePwdLinkName". When no URL is configured, or a
    /// text that is none, a person is told at once by platform::showAlert(), which waits for them,
    /// and the dictionary is empty. Then on the main thread only.
    [[nodiscard]] static Dictionary getForgotUnamePwdLinkDetails();

    /// "GeneralSupportName", "ChatSupportName", "KnowledgebaseName", "CreateTicketName": each that
    /// is configured.
    [[nodiscard]] static Dictionary getSupportLinkDetails();
};

} // namespace stowline
#pragma GCC visibility pop
