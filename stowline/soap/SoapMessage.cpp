#include "stowline/soap/SoapMessage.h"

#include "stowline/platform/values/XmlReader.h"
#include "stowline/soap/Envelope.h"

#include <utility>
#include <vector>

namespace stowline::soap {

namespace {

using platform::XmlAttributes;
using platform::XmlName;

bool isBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// Adds a child under its name; a second child of one name makes a list of both. The content is a
/// text or a dictionary and becomes a value in its place in the tree, because moving it there
/// through values would take longer than the rest of building.
template <class Content> void addChild(Dictionary& children, std::string& name, Content& content)
{
    const auto [place, isNew] = children.try_emplace(std::move(name), std::move(content));
    if (isNew)
        return;
    if (Array* list = place->second.array()) {
        list->emplace_back(std::move(content));
        return;
    }
    Array list;
    list.push_back(std::move(place->second));
    list.emplace_back(std::move(content));
    place->second = std::move(list);
}

/// Follows the structure Envelope / (Header) / Body / element and builds the element's value.
class MessageBuilder : public platform::XmlHandler {
public:
    explicit MessageBuilder(const MessageLimits& limits) : limits_(limits) {}

    Refusal startElement(XmlName name, const XmlAttributes& attributes) override
    {
        ++depth_;
        if (depth_ == 1)
            return beginEnvelope(name);
        if (depth_ == 2) {
            inBody_ = isSoap(name, "Body") && !sawBody_;
            sawBody_ = sawBody_ || inBody_;
            return std::nullopt;
        }
        if (!inBody_ || done_)
            return std::nullopt;
        if (depth_ == 3)
            beginContent(name);
        const bool isNil =
            !attributes.empty() && isTrue(attributes.value(kSchemaInstanceNamespace, "nil"));
        open(name.local, isNil);
        return beyondLimit();
    }

    Refusal endElement() override
    {
        if (used_ > 0)
            close();
        --depth_;
        return std::nullopt;
    }

    void characters(std::string_view text) override
    {
        if (used_ > 0)
            frames_[used_ - 1].text.append(text);
    }

    [[nodiscard]] bool sawBody() const { return sawBody_; }
    Message take() { return std::move(message_); }

private:
    /// An element that is open. Frames are used again, so that their texts keep their memory.
    struct Frame {
        std::string name;
        std::string text;
        Dictionary children;
        bool hasChildElement = false;
        bool isNil = false;
    };

    static bool isSoap(XmlName name, std::string_view local)
    {
        return name.local == local && name.namespaceUri == kEnvelopeNamespace;
    }

    static bool isTrue(std::optional<std::string_view> text)
    {
        return text == "true" || text == "1";
    }

    /// Counts one more element. @return which limit it is beyond
    Refusal beyondLimit()
    {
        constexpr std::size_t betweenLooks = 4096; // at the clock
        if (++elements_ > limits_.maximumElements)
            return "The answer holds more than " + std::to_string(limits_.maximumElements) +
                   " elements";
        if (elements_ % betweenLooks == 0 && std::chrono::steady_clock::now() > limits_.deadline)
            return "The answer could not be read within the time of the call";
        return std::nullopt;
    }

    static Refusal beginEnvelope(XmlName name)
    {
        if (isSoap(name, "Envelope"))
            return std::nullopt;
        return "The answer is not a SOAP 1.1 envelope: it starts with <" + std::string(name.local) +
               ">";
    }

    void beginContent(XmlName name)
    {
        message_.element = name.local;
        message_.namespaceUri = name.namespaceUri;
        isFault_ = isSoap(name, "Fault");
    }

    void open(std::string_view name, bool isNil)
    {
        if (used_ > 0)
            frames_[used_ - 1].hasChildElement = true;
        if (used_ == frames_.size())
            frames_.emplace_back();
        Frame& frame = frames_[used_++];
        frame.name.assign(name);
        frame.text.clear();
        frame.children.clear();
        frame.hasChildElement = false;
        frame.isNil = isNil;
    }

    void close()
    {
        Frame& frame = frames_[--used_];
        if (used_ == 0) {
            finish(frame);
            return;
        }
        if (frame.isNil)
            return;
        Dictionary& siblings = frames_[used_ - 1].children;
        if (frame.hasChildElement)
            addChild(siblings, frame.name, frame.children);
        else
            addChild(siblings, frame.name, frame.text);
    }

    void finish(Frame& frame)
    {
        done_ = true;
        if (isFault_)
            message_.fault = faultFrom(frame.children);
        if (frame.hasChildElement || isBlank(frame.text))
            message_.content = std::move(frame.children);
        else
            message_.content = std::move(frame.text);
    }

    static Fault faultFrom(const Dictionary& children)
    {
        const Value* detail = find(children, "detail");
        return {platform::findText(children, "faultcode"),
                platform::findText(children, "faultstring"),
                detail ? std::optional(*detail) : std::nullopt};
    }

    const MessageLimits& limits_;
    std::size_t elements_ = 0;
    std::size_t depth_ = 0;
    bool inBody_ = false;
    bool sawBody_ = false;
    bool isFault_ = false;
    bool done_ = false;
    std::vector<Frame> frames_;
    std::size_t used_ = 0;
    Message message_{.element = {}, .namespaceUri = {}, .content = Dictionary(), .fault = {}};
};

} // namespace

MessageReading readMessage(std::string_view document, const MessageLimits& limits)
{
    if (document.empty())
        return {std::nullopt, "The answer is empty."};
    MessageBuilder builder(limits);
    if (const auto error = platform::readXml(document, builder))
        return {std::nullopt, error->message + " (line " + std::to_string(error->line) + ")."};
    if (!builder.sawBody())
        return {std::nullopt, "The SOAP envelope of the answer has no body."};
    return {builder.take(), ""};
}

} // namespace stowline::soap
