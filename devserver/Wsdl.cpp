#include "devserver/Wsdl.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

std::string sequenceXml(const std::vector<Field>& fields);

std::string fieldXml(const Field& field)
{
    const std::string start = fmt::format("<xsd:element minOccurs=\"0\"{} name=\"{}\"{}",
                                          field.isList ? " maxOccurs=\"unbounded\"" : "",
                                          field.name, field.nillable ? " nillable=\"true\"" : "");
    if (field.parts.empty())
        return fmt::format("{} type=\"xsd:{}\"/>", start, field.schemaType);
    return fmt::format("{}>{}</xsd:element>", start, sequenceXml(field.parts));
}

std::string sequenceXml(const std::vector<Field>& fields)
{
    std::string xml = "<xsd:complexType><xsd:sequence>";
    for (const Field& field : fields)
        xml += fieldXml(field);
    return xml + "</xsd:sequence></xsd:complexType>";
}

std::string schemaXml(const ServiceMethod& method)
{
    return fmt::format("<xsd:element name=\"{0}\">{1}</xsd:element>"
                       "<xsd:element name=\"{0}Response\">{2}</xsd:element>\n",
                       method.name, sequenceXml(method.parameters), sequenceXml(method.results));
}

std::string messagesXml(const ServiceMethod& method)
{
    return fmt::format(
        "<message name=\"{0}In\"><part name=\"parameters\" element=\"tns:{0}\"/></message>"
        "<message name=\"{0}Out\"><part name=\"parameters\" element=\"tns:{0}Response\"/>"
        "</message>\n",
        method.name);
}

std::string portXml(const ServiceMethod& method)
{
    return fmt::format("<operation name=\"{0}\"><documentation>{1}</documentation>"
                       "<input message=\"tns:{0}In\"/><output message=\"tns:{0}Out\"/>"
                       "</operation>\n",
                       method.name, method.documentation);
}

std::string bindingXml(const Service& service, const ServiceMethod& method)
{
    return fmt::format("<operation name=\"{0}\"><soap:operation soapAction=\"{1}/{0}\"/>"
                       "<input><soap:body use=\"literal\"/></input>"
                       "<output><soap:body use=\"literal\"/></output></operation>\n",
                       method.name, service.namespaceUri);
}

template <class Writer> std::string eachMethod(const Service& service, Writer writer)
{
    std::string xml;
    for (const ServiceMethod& method : service.methods)
        xml += writer(method);
    return xml;
}

} // namespace

std::string wsdlFor(const Service& service, const std::string& address)
{
    return fmt::format(
        R"xml(<?xml version="1.0" encoding="utf-8"?>
<definitions xmlns="http://schemas.xmlsoap.org/wsdl/" xmlns:soap="http://schemas.xmlsoap.org/wsdl/soap/" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:tns="{ns}" targetNamespace="{ns}" name="{name}">
<types><xsd:schema targetNamespace="{ns}" elementFormDefault="qualified">
{schema}</xsd:schema></types>
{messages}<portType name="{name}Port">
{port}</portType>
<binding name="{name}Binding" type="tns:{name}Port"><soap:binding style="document" transport="http://schemas.xmlsoap.org/soap/http"/>
{binding}</binding>
<service name="{name}"><port name="{name}Port" binding="tns:{name}Binding"><soap:address location="{address}"/></port></service>
</definitions>
)xml",
        fmt::arg("ns", service.namespaceUri), fmt::arg("name", service.name),
        fmt::arg("schema", eachMethod(service, schemaXml)),
        fmt::arg("messages", eachMethod(service, messagesXml)),
        fmt::arg("port", eachMethod(service, portXml)),
        fmt::arg(
            "binding",
            eachMethod(service, [&](const auto& method) { return bindingXml(service, method); })),
        fmt::arg("address", address));
}

} // namespace stowline::devserver
