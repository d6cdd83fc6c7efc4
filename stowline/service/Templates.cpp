#include "stowline/service/Operation.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline {

std::string WebServiceBroker::expandTemplate(std::string_view templateText,
                                             const SubstitutionMap& substitutions,
                                             bool escapeXmlEntities)
{
    return orEmpty(
        [&] { return soap::expandTemplate(templateText, substitutions, escapeXmlEntities); });
}

std::optional<std::vector<std::string>>
WebServiceBroker::expandTemplates(const std::optional<std::vector<std::string>>& templates,
                                  const SubstitutionMap& substitutions, bool escapeXmlEntities)
{
    return orEmpty(
        [&] { return soap::expandTemplates(templates, substitutions, escapeXmlEntities); });
}

} // namespace stowline
