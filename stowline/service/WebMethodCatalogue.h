// The web methods, web requests and templates that the broker uses, as data.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace stowline {

/// Whether the settings must name the place of the result in the answer.
enum class ResultPath { mustBeAbsent, isNeeded, mayBe };

/// What the settings must say about a method for the broker to use it.
struct WebMethodNeeds {
    std::string_view name;
    std::vector<std::string_view> placeholders; ///< those that the broker fills
    std::size_t urlArguments = 0;               ///< how many "%@" its "URL" has
    ResultPath resultPath = ResultPath::mustBeAbsent;
    bool isOptional = false; ///< the settings may lack it
};

/// What the settings must say about a plain HTTP request.
struct WebRequestNeeds {
    std::string_view name;
    std::vector<std::string_view> placeholders;
    std::size_t urlArguments = 0;
    std::vector<std::string_view> responseHeaders; ///< those that the broker reads
    bool isOptional = false;
};

/// What the settings must say about a posted template.
struct TemplateNeeds {
    std::string_view name;
    std::vector<std::string_view> placeholders; ///< of its body
    std::size_t urlArguments = 0;
};

/// Every method, request and template that an operation of WebServiceBroker uses.
[[nodiscard]] std::span<const WebMethodNeeds> webMethodCatalogue();
[[nodiscard]] std::span<const WebRequestNeeds> webRequestCatalogue();
[[nodiscard]] std::span<const TemplateNeeds> templateCatalogue();

} // namespace stowline
