// A web method as data: what it takes, what it answers, and the function that does it.
#pragma once

#include "stowline/platform/values/Value.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace stowline::devserver {

/// One element of a request or an answer.
struct Field {
    std::string name;
    std::string schemaType = "string"; ///< of XML Schema; ignored when there are parts
    bool nillable = false;             ///< written as an explicit nil when it has no value
    bool isList = false;               ///< may come any number of times
    std::vector<Field> parts = {};     ///< elements inside this one
};

/// What the caller did wrong or the service cannot do; becomes a SOAP fault.
struct ServiceFault : std::runtime_error {
    ServiceFault(std::string faultCode, const std::string& reason)
        : std::runtime_error(reason), code(std::move(faultCode))
    {
    }
    std::string code; ///< "Client" or "Server" (SOAP 1.1 section 4.4.1)
};

/// What a handler answers: elements by their names, or the content of the only one there is.
using HandledCall = std::variant<Dictionary, Value>;

/// A method of the service. Handlers may run on several threads at once.
struct ServiceMethod {
    std::string name;
    std::string documentation;
    std::vector<Field> parameters;
    std::vector<Field> results;
    /// From the request's parameters (absent ones are left out) to the answer.
    std::function<HandledCall(const Dictionary&)> handle;

    /// The elements of the answer by their names. Throws ServiceFault.
    [[nodiscard]] Dictionary answer(const Dictionary& request) const
    {
        const HandledCall handled = handle(request);
        if (const auto* only = std::get_if<Value>(&handled))
            return {{results.at(0).name, *only}};
        return std::get<Dictionary>(handled);
    }
};

/// Methods that share an address and a namespace.
struct Service {
    std::string name;
    std::string path;
    std::string namespaceUri;
    std::vector<ServiceMethod> methods;

    [[nodiscard]] const ServiceMethod* find(std::string_view method) const
    {
        for (const ServiceMethod& candidate : methods) {
            if (candidate.name == method)
                return &candidate;
        }
        return nullptr;
    }
};

} // namespace stowline::devserver
