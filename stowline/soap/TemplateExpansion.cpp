#include "stowline/soap/TemplateExpansion.h"

#include "stowline/platform/text/Text.h"
#include "stowline/util/StringMethods.h"

namespace stowline::soap {

std::string expandTemplate(std::string_view templateText, const SubstitutionMap& substitutions,
                           bool escapeXmlEntities)
{
    std::string result(templateText);
    for (const auto& [key, value] : substitutions) {
        if (key.empty() || result.find(key) == std::string::npos)
            continue;
        const std::string text = value.text();
        result = platform::replacingOccurrences(
            result, key, escapeXmlEntities ? StringMethods::TW_escapeXMLEntities(text) : text);
    }
    return result;
}

std::optional<std::vector<std::string>>
expandTemplates(const std::optional<std::vector<std::string>>& templates,
                const SubstitutionMap& substitutions, bool escapeXmlEntities)
{
    if (!templates)
        return std::nullopt;
    std::vector<std::string> expanded;
    expanded.reserve(templates->size());
    for (const std::string& templateText : *templates)
        expanded.push_back(expandTemplate(templateText, substitutions, escapeXmlEntities));
    return expanded;
}

} // namespace stowline::soap
