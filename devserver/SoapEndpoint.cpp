#include "devserver/SoapEndpoint.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/XmlText.h"
#include "stowline/soap/SoapMessage.h"

namespace stowline::devserver {

namespace {

/// As the content of an element that arrives as it is.
std::string escaped(std::string_view text)
{
    return platform::replacingOccurrences(platform::escapedForXml(text), "\r", "&#13;");
}

std::string enveloped(const std::string& bodyContent)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\""
           " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"><soap:Body>" +
           bodyContent + "</soap:Body></soap:Envelope>";
}

std::string fieldXml(const Field& field, const Dictionary& values);

std::string contentXml(const Field& field, const Value& value)
{
    const Dictionary* parts = value.dictionary();
    if (!parts)
        return escaped(value.text());
    std::string xml;
    for (const Field& part : field.parts)
        xml += fieldXml(part, *parts);
    return xml;
}

std::string elementXml(const Field& field, const Value& value)
{
    return "<" + field.name + ">" + contentXml(field, value) + "</" + field.name + ">";
}

std::string fieldXml(const Field& field, const Dictionary& values)
{
    const Value* value = platform::find(values, field.name);
    if (!value)
        return field.nillable ? "<" + field.name + " xsi:nil=\"true\"/>" : std::string();
    const Array* list = value->array();
    if (!list)
        return elementXml(field, *value);
    std::string xml;
    for (const Value& item : *list)
        xml += elementXml(field, item);
    return xml;
}

std::string responseXml(const Service& service, const ServiceMethod& method,
                        const Dictionary& values)
{
    const std::string element = method.name + "Response";
    std::string xml = "<" + element + " xmlns=\"" + service.namespaceUri + "\">";
    for (const Field& field : method.results)
        xml += fieldXml(field, values);
    return xml + "</" + element + ">";
}

Answer answerMessage(const Service& service, const soap::Message& message)
{
    const ServiceMethod* method = service.find(message.element);
    if (!method)
        return faultAnswer("Client",
                           "The method " + message.element + " was not found at this address");
    if (message.namespaceUri != service.namespaceUri)
        return faultAnswer("Client", "The method " + message.element + " is of the namespace " +
                                         service.namespaceUri);
    const Dictionary* parameters = message.content.dictionary();
    const Dictionary values = method->answer(parameters ? *parameters : Dictionary());
    return {.body = enveloped(responseXml(service, *method, values))};
}

} // namespace

std::string calledMethod(std::string_view requestBody)
{
    const auto reading = soap::readMessage(requestBody);
    return reading.message ? reading.message->element : std::string();
}

Answer answerCall(const Service& service, std::string_view requestBody)
{
    const auto reading = soap::readMessage(requestBody);
    if (!reading.message)
        return faultAnswer("Client", "The request cannot be read: " + reading.failure);
    try {
        return answerMessage(service, *reading.message);
    } catch (const ServiceFault& fault) {
        return faultAnswer(fault.code, fault.what());
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("%@ cannot be carried out: %@", reading.message->element, fault.what());
        return faultAnswer("Server", "The service cannot read its data now. Its log says why.");
    }
}

Answer faultAnswer(std::string_view code, std::string_view reason)
{
    return {.status = 500,
            .body = enveloped("<soap:Fault><faultcode>soap:" + escaped(code) +
                              "</faultcode><faultstring>" + escaped(reason) +
                              "</faultstring></soap:Fault>")};
}

} // namespace stowline::devserver
