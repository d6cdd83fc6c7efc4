#include "stowline/platform/values/XmlReader.h"

#include <expat.h>

#include <algorithm>
#include <memory>
#include <new>

namespace stowline::platform {

namespace {

/// Stands between namespace and name in what expat hands over; no XML document can hold it.
constexpr char kNameSeparator = '\x1f';

XmlName splitName(const char* joined)
{
    const std::string_view name(joined);
    const auto separator = name.rfind(kNameSeparator);
    if (separator == std::string_view::npos)
        return {{}, name};
    return {name.substr(0, separator), name.substr(separator + 1)};
}

struct ParserDeleter {
    void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};

} // namespace

std::optional<std::string_view> XmlAttributes::value(std::string_view namespaceUri,
                                                     std::string_view local) const
{
    for (const char** at = attributes_; *at; at += 2) {
        const XmlName name = splitName(at[0]);
        if (name.local == local && name.namespaceUri == namespaceUri)
            return at[1];
    }
    return std::nullopt;
}

/// One document being read: ties expat's callbacks to a handler.
class XmlReading {
public:
    XmlReading(XmlHandler& handler, const XmlReadOptions& options)
        : parser_(XML_ParserCreateNS(nullptr, kNameSeparator)), handler_(handler), options_(options)
    {
        handler_.reading_ = this;
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), onStart, onEnd);
        XML_SetCharacterDataHandler(parser_.get(), onText);
        XML_SetStartDoctypeDeclHandler(parser_.get(), onDoctype);
    }

    XmlReading(const XmlReading&) = delete;
    XmlReading& operator=(const XmlReading&) = delete;
    ~XmlReading() { handler_.reading_ = nullptr; }

    [[nodiscard]] int line() const
    {
        return static_cast<int>(XML_GetCurrentLineNumber(parser_.get()));
    }

    std::optional<XmlError> read(std::string_view document)
    {
        // expat counts in int; pieces keep every size in range.
        constexpr std::size_t piece = std::size_t(1) << 24;
        std::size_t position = 0;
        do {
            const std::size_t length = std::min(piece, document.size() - position);
            const bool last = position + length == document.size();
            const auto status = XML_Parse(parser_.get(), document.data() + position,
                                          static_cast<int>(length), last);
            if (isOutOfMemory_)
                throw std::bad_alloc();
            if (status != XML_STATUS_OK)
                return currentError();
            position += length;
        } while (position < document.size());
        return std::nullopt;
    }

private:
    static void onStart(void* self, const char* name, const char** attributes)
    {
        auto& reading = *static_cast<XmlReading*>(self);
        reading.whileMemoryLasts([&] {
            if (++reading.depth_ > reading.options_.maximumDepth)
                reading.stop("The elements are nested deeper than " +
                             std::to_string(reading.options_.maximumDepth));
            else
                reading.stopIfRefused(
                    reading.handler_.startElement(splitName(name), XmlAttributes(attributes)));
        });
    }

    static void onEnd(void* self, const char*)
    {
        auto& reading = *static_cast<XmlReading*>(self);
        --reading.depth_;
        if (!reading.isStopped())
            reading.whileMemoryLasts([&] { reading.stopIfRefused(reading.handler_.endElement()); });
    }

    static void onText(void* self, const char* text, int length)
    {
        auto& reading = *static_cast<XmlReading*>(self);
        if (!reading.isStopped())
            reading.whileMemoryLasts([&] {
                reading.handler_.characters({text, static_cast<std::size_t>(length)});
            });
    }

    static void onDoctype(void* self, const char*, const char*, const char*, int hasInternalSubset)
    {
        auto& reading = *static_cast<XmlReading*>(self);
        if (!reading.options_.allowBareDoctype || hasInternalSubset)
            reading.whileMemoryLasts(
                [&] { reading.stop("The document has a DOCTYPE, which is not accepted"); });
    }

    /// Nothing may be thrown through expat: a lack of memory is thrown again when it has returned.
    template <class Work> void whileMemoryLasts(Work work) noexcept
    {
        try {
            work();
        } catch (const std::bad_alloc&) {
            isOutOfMemory_ = true;
            XML_StopParser(parser_.get(), XML_FALSE);
        }
    }

    [[nodiscard]] bool isStopped() const { return stopped_ || isOutOfMemory_; }

    void stopIfRefused(const std::optional<std::string>& refusal)
    {
        if (refusal)
            stop(*refusal);
    }

    void stop(std::string message)
    {
        stopped_ = {std::move(message), line()};
        XML_StopParser(parser_.get(), XML_FALSE);
    }

    XmlError currentError()
    {
        if (stopped_)
            return *stopped_;
        return {std::string("The document is not well-formed XML: ") +
                    XML_ErrorString(XML_GetErrorCode(parser_.get())),
                line()};
    }

    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser_;
    XmlHandler& handler_;
    const XmlReadOptions& options_;
    std::size_t depth_ = 0;
    std::optional<XmlError> stopped_;
    bool isOutOfMemory_ = false;
};

int XmlHandler::line() const
{
    return reading_ ? reading_->line() : 0;
}

std::optional<XmlError> readXml(std::string_view document, XmlHandler& handler,
                                const XmlReadOptions& options)
{
    return XmlReading(handler, options).read(document);
}

} // namespace stowline::platform
