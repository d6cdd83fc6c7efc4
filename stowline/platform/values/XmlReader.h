// Streaming, namespace-aware reading of XML that comes from outside.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// An element or attribute name: namespace URI (empty for none) and the name without its prefix.
/// Views are valid during the handler call only.
struct XmlName {
    std::string_view namespaceUri;
    std::string_view local;
};

/// The attributes of one start tag; valid during the handler call only.
class XmlAttributes {
public:
    explicit XmlAttributes(const char** attributes) : attributes_(attributes) {}

    /// Value of the attribute; absent when the element has none of that name.
    [[nodiscard]] std::optional<std::string_view> value(std::string_view namespaceUri,
                                                        std::string_view local) const;
    [[nodiscard]] bool empty() const { return *attributes_ == nullptr; }

private:
    const char** attributes_; // name, value, name, value, …, null
};

class XmlReading;

/// What a document is told to, in document order. Text arrives in any number of pieces. A handler
/// that returns a sentence stops the reading with it.
class XmlHandler {
public:
    using Refusal = std::optional<std::string>;

    virtual ~XmlHandler() = default;
    virtual Refusal startElement(XmlName name, const XmlAttributes& attributes) = 0;
    /// The end of the element that was begun last and has not ended.
    virtual Refusal endElement() = 0;
    virtual void characters(std::string_view text) = 0;

protected:
    /// Line of the document at which the reader stands, counted from 1; 0 outside a handler call.
    /// Counted when asked, which takes as long as reading the text does.
    [[nodiscard]] int line() const;

private:
    friend class XmlReading;
    const XmlReading* reading_ = nullptr;
};

struct XmlReadOptions {
    std::size_t maximumDepth = 256; ///< elements inside each other
    /// Whether a DOCTYPE without an internal subset is passed over; any other is refused always,
    /// and nothing outside the document is ever read.
    bool allowBareDoctype = false;
};

struct XmlError {
    std::string message; ///< a sentence without line number and without full stop
    int line = 0;
};

/// Reads a whole document (XML 1.0 with namespaces; UTF-8, UTF-16, ISO-8859-1 or US-ASCII).
/// @return absent when the document was read to its end; else what is wrong with it. The handler
///         may have been told of the part before the error. Reentrant.
[[nodiscard]] std::optional<XmlError> readXml(std::string_view document, XmlHandler& handler,
                                              const XmlReadOptions& options = {});

} // namespace stowline::platform
