// What the broker asks the helper program to do.
#pragma once

#include "stowline/soap/TemplateExpansion.h"

#include <optional>
#include <string>

namespace stowline {

/// One SOAP call: the address, the method's entry of the settings, and the values to fill in. Each
/// part may be absent; its key is then missing from the dictionary.
struct WebServiceCallRequest {
    std::optional<std::string> url;
    std::optional<Dictionary> methodInfo;
    std::optional<std::string> methodName;
    std::optional<SubstitutionMap> soapParamSubstitutions;
    std::optional<SubstitutionMap> soapHeaderSubstitutions;
    std::optional<std::string> proxy = {}; ///< of the desktop, where the environment names none

    [[nodiscard]] Dictionary dictionary() const;

    /// Reads what is there; a part of another type than it should have counts as absent.
    [[nodiscard]] static WebServiceCallRequest fromDictionary(const Dictionary& dictionary);
};

} // namespace stowline
