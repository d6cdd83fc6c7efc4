#include "stowline/util/SOAPSerializer.h"

#include "stowline/util/StringMethods.h"

namespace stowline::SOAPSerializer {

std::string TW_xmlString(const Dictionary& dictionary)
{
    std::string xml;
    for (const auto& [key, value] : dictionary) {
        const Dictionary* nested = value.dictionary();
        const std::string content =
            nested ? TW_xmlString(*nested) : StringMethods::TW_escapeXMLEntities(value.text());
        xml.append("<").append(key).append(">").append(content);
        xml.append("</").append(key).append(">");
    }
    return xml;
}

} // namespace stowline::SOAPSerializer
