#include "devserver/Parameters.h"

#include "stowline/platform/text/Numbers.h"

namespace stowline::devserver {

namespace {

template <class Number> Number parsed(const Dictionary& parameters, std::string_view name)
{
    const auto value = platform::wholeNumber<Number>(text(parameters, name));
    if (!value)
        throw ServiceFault("Client", "The parameter " + std::string(name) + " is not a number");
    return *value;
}

} // namespace

std::string text(const Dictionary& parameters, std::string_view name)
{
    const std::string* found = platform::findString(parameters, name);
    return found ? *found : std::string();
}

std::int64_t number(const Dictionary& parameters, std::string_view name)
{
    return parsed<std::int64_t>(parameters, name);
}

std::uint64_t unsignedNumber(const Dictionary& parameters, std::string_view name)
{
    return parsed<std::uint64_t>(parameters, name);
}

void requireSignIn(const AccountServiceContext& context, const Dictionary& parameters)
{
    if (!context.accounts.signIn(text(parameters, "userName"), text(parameters, "password")))
        throw ServiceFault("Client", "User name or password is wrong");
}

} // namespace stowline::devserver
