#include "stowline/service/WebMethodCatalogue.h"

namespace stowline {

std::span<const WebMethodNeeds> webMethodCatalogue()
{
    static const std::vector<WebMethodNeeds> methods{
        {"Authenticate", {"<<USERNAME>>", "<<PASSWORD>>"}, 0, false},
        {"CreateAccount",
         {"<<FIRSTNAME>>", "<<USERNAME>>", "<<PASSWORD>>", "<<EMAILID>>"},
         0,
         true},
        {"CreateTrialAccount",
         {"<<FIRSTNAME>>", "<<USERNAME>>", "<<PASSWORD>>", "<<EMAIL>>", "<<CUSTOMERTYPECODE>>",
          "<<ISSEALGUARD>>", "<<SECRETQUESTION>>", "<<ANSWER>>", "<<REFERALCODE>>"},
         0,
         true},
        {"EncryptString", {"<<SOURCESTRING>>"}, 0, true},
        {"DecryptString", {"<<SOURCESTRING>>"}, 0, true},
    };
    return methods;
}

} // namespace stowline
