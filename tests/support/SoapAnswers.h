// SOAP answers and method entries as tests of web methods need them.
#pragma once

#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

namespace stowline::test {

/// An HTTP answer with an envelope around the content of a response element.
[[nodiscard]] inline std::string soapAnswer(const std::string& content, int status = 200)
{
    return httpAnswer("<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                      "<e:Body><R>" +
                          content + "</R></e:Body></e:Envelope>",
                      status);
}

/// A method's entry with a parameter for each placeholder, named as the placeholder without its
/// delimiters, in the order given.
[[nodiscard]] inline Dictionary methodEntry(const std::string& url,
                                            const std::vector<std::string>& placeholders,
                                            const char* resultKeyPath = nullptr)
{
    Array parameters;
    for (const std::string& name : placeholders)
        parameters.push_back(named(name, "<<" + name + ">>"));
    Dictionary entry{{"URL", url}, {"namespace", "urn:t"}, {"soapParams", std::move(parameters)}};
    if (resultKeyPath)
        entry.emplace("resultKeyPath", resultKeyPath);
    return entry;
}

/// The method's element in a request, from its opening tag (without namespace) to its end.
[[nodiscard]] inline std::string parametersIn(const std::string& request)
{
    const auto body = request.find(":Body>");
    const auto start = request.find('>', body + 6);
    const auto end = request.rfind("</soap:Body>");
    const auto close = request.rfind("</", end - 1);
    return body == std::string::npos || start > close
               ? ""
               : request.substr(start + 1, close - start - 1);
}

} // namespace stowline::test
