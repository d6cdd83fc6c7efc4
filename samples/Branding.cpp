// What the brand says: the seller's names and the links of its pages. An invalid address is shown
// to the person at once, in a dialogue or on the terminal.
#include "stowline/branding/AccountProvider.h"

#include <iostream>

int main()
{
    using stowline::AccountProvider;
    using stowline::Value;
    std::cout << "company: " << Value(AccountProvider::getCompanyDetails()).text() << "\n"
              << "product: " << Value(AccountProvider::getProductDetails()).text() << "\n"
              << "errors:  " << AccountProvider::getRebrandedErrorDomain() << "\n"
              << "support: " << Value(AccountProvider::getSupportLinkDetails()).text() << "\n"
              << "forgot:  " << Value(AccountProvider::getForgotUnamePwdLinkDetails()).text()
              << "\n";
}
