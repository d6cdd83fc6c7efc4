// Reading the parameters of a call.
#pragma once

#include "devserver/AccountService.h"
#include "devserver/ServiceMethod.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace stowline::devserver {

/// A parameter's text; empty when it is missing or nil.
[[nodiscard]] std::string text(const Dictionary& parameters, std::string_view name);

/// The number that a parameter is.
/// @throws ServiceFault when it is none
[[nodiscard]] std::int64_t number(const Dictionary& parameters, std::string_view name);
[[nodiscard]] std::uint64_t unsignedNumber(const Dictionary& parameters, std::string_view name);

/// @throws ServiceFault unless "userName" and "password" are those of an account
void requireSignIn(const AccountServiceContext& context, const Dictionary& parameters);

/// A method on a context as the handler of a call.
template <class Method> auto with(const AccountServiceContext& context, Method method)
{
    return [&context, method](const Dictionary& parameters) { return method(context, parameters); };
}

} // namespace stowline::devserver
