#include "stowline/soap/Envelope.h"

#include "stowline/platform/text/Text.h"
#include "stowline/util/StringMethods.h"

namespace stowline::soap {

namespace {

constexpr std::string_view kSchemaNamespace = "http://www.w3.org/2001/XMLSchema";

std::string attributeText(std::string_view text)
{
    return platform::replacingOccurrences(StringMethods::TW_escapeXMLEntities(text), "\"",
                                          "&quot;");
}

std::string element(std::string_view name, std::string_view content)
{
    std::string xml = "<";
    xml.append(name).append(">").append(content).append("</").append(name).append(">");
    return xml;
}

bool isUnfilled(std::string_view expansion)
{
    return expansion.starts_with("<<") && expansion.ends_with(">>");
}

} // namespace

std::string parameterElement(std::string_view name, std::string_view templateText,
                             const SubstitutionMap& substitutions)
{
    const std::string expansion = expandTemplate(templateText, substitutions, true);
    if (isUnfilled(expansion))
        return "<" + std::string(name) + " xsi:nil=\"true\" />";
    return element(name, platform::replacingOccurrences(expansion, "\r", "&#13;"));
}

std::string envelopeFor(const Invocation& invocation)
{
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope xmlns:soap=\"";
    xml.append(kEnvelopeNamespace).append("\" xmlns:xsi=\"").append(kSchemaInstanceNamespace);
    xml.append("\" xmlns:xsd=\"").append(kSchemaNamespace).append("\">");
    if (invocation.headers) {
        xml += "<soap:Header>";
        for (const std::string& fragment : *invocation.headers)
            xml += fragment;
        xml += "</soap:Header>";
    }
    xml.append("<soap:Body><").append(invocation.methodName).append(" xmlns=\"");
    xml.append(attributeText(invocation.namespaceUri)).append("\">");
    for (const auto& [name, templateText] : invocation.parameters)
        xml += parameterElement(name, templateText, invocation.substitutions);
    xml.append("</").append(invocation.methodName).append("></soap:Body></soap:Envelope>");
    return xml;
}

std::string defaultSoapAction(std::string_view namespaceUri, std::string_view methodName)
{
    if (namespaceUri.ends_with('/'))
        namespaceUri.remove_suffix(1);
    std::string action = "\"";
    action.append(namespaceUri).append("/").append(methodName).append("\"");
    return action;
}

} // namespace stowline::soap
