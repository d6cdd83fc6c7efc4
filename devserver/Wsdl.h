// The service described for ordinary SOAP clients.
#pragma once

#include "devserver/ServiceMethod.h"

#include <string>

namespace stowline::devserver {

/// A WSDL 1.1 document (document/literal over HTTP) for a service.
/// @param address the URL at which the service listens
[[nodiscard]] std::string wsdlFor(const Service& service, const std::string& address);

} // namespace stowline::devserver
