// What the service accepts from people.
#include "stowline/platform/text/RegularExpression.h"
#include "stowline/util/General.h"

namespace stowline {

bool General::string(std::string_view string, std::string_view matchesRegex)
{
    (void)launchTime();
    return platform::matchesWhole(string, matchesRegex);
}

bool General::isEmailValid(std::string_view string)
{
    return General::string(string, R"(^[a-zA-Z0-9_-]+(\.[a-zA-Z0-9_-]+)*@[a-zA-Z0-9-]+)"
                                   R"((\.[a-zA-Z0-9_-]+)*\.([a-zA-Z]{2,})$)");
}

bool General::isPasswordValid(std::string_view string)
{
    return General::string(string, R"(^[a-zA-Z0-9!@#$%^&*()]{6,20}$)");
}

bool General::isFullnameValid(std::string_view string)
{
    return General::string(string, R"(^[a-zA-Z]([a-zA-Z\.-]|\s){1,29}$)");
}

bool General::isSecretAnswerValid(std::string_view string)
{
    return General::string(string, R"(^[a-zA-Z0-9!@#$%^&*()][a-zA-Z0-9!@#$%^&*()\s]{2,19}$)");
}

} // namespace stowline
