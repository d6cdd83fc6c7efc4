// The XML form, read with line numbers.
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/platform/values/PropertyListParts.h"
#include "stowline/platform/values/XmlReader.h"

#include <cstdlib>

namespace stowline::platform {

namespace {

/// Elements that hold text, and how the text becomes a value.
using ScalarReader = std::optional<Value> (*)(const std::string& text);

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::optional<Value> readInteger(const std::string& text)
{
    std::string_view digits = trimmed(text);
    if (digits.starts_with('+'))
        digits.remove_prefix(1);
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
        base = 16;
    }
    if (const auto number = wholeNumber<std::int64_t>(digits, base))
        return *number;
    if (const auto number = wholeNumber<std::uint64_t>(digits, base))
        return *number;
    return std::nullopt;
}

std::optional<Value> readReal(const std::string& text)
{
    if (const auto number = realNumber(trimmed(text)))
        return *number;
    return std::nullopt;
}

std::optional<Value> readDate(const std::string& text)
{
    if (auto moment = dateFromInternetTimeText(trimmed(text)))
        return *moment;
    return std::nullopt;
}

std::optional<Value> readData(const std::string& text)
{
    const bool clean = text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                              "0123456789+/= \t\r\n") == std::string::npos;
    auto bytes = clean ? decodePropertyListData(text) : std::nullopt;
    if (!bytes)
        return std::nullopt;
    return std::move(*bytes);
}

ScalarReader scalarReader(std::string_view element)
{
    if (element == "string")
        return [](const std::string& text) -> std::optional<Value> { return text; };
    if (element == "integer")
        return readInteger;
    if (element == "real")
        return readReal;
    if (element == "date")
        return readDate;
    if (element == "data")
        return readData;
    return nullptr;
}

class PropertyListBuilder : public XmlHandler {
public:
    explicit PropertyListBuilder(PropertyListSource* source) : source_(source) {}

    Refusal startElement(XmlName name, const XmlAttributes&) override
    {
        const std::string element(name.local);
        text_.clear();
        if (open_.empty())
            return openRoot(element);
        if (inText_)
            return "<" + element + "> stands inside <" + open_.back().element + ">";
        Frame& parent = open_.back();
        if (parent.element == "dict" && element != "key" && !parent.key)
            return "<" + element + "> stands in a <dict> without a <key> before it";
        if (parent.element == "plist" && root_)
            return std::string("<plist> holds more than one value");
        if (element == "key")
            return openKey(parent);
        if (element == "true" || element == "false" || scalarReader(element)) {
            inText_ = true;
        } else if (element != "dict" && element != "array") {
            return "<" + element + "> is not an element of a property list";
        }
        Frame frame{element, pathOfNext(parent), {}, {}, line(), {}};
        open_.push_back(std::move(frame));
        return std::nullopt;
    }

    Refusal endElement() override
    {
        Frame frame = std::move(open_.back());
        open_.pop_back();
        inText_ = false;
        if (frame.element == "plist")
            return root_ ? std::nullopt : Refusal("<plist> holds no value");
        if (frame.element == "key") {
            open_.back().key = text_;
            return std::nullopt;
        }
        if (frame.key)
            return "The key \"" + *frame.key + "\" has no value";
        auto value = finished(frame);
        if (!value)
            return "\"" + std::string(trimmed(text_)) + "\" is not a value for <" + frame.element +
                   ">";
        return store(std::move(*value), frame);
    }

    void characters(std::string_view text) override
    {
        if (inText_)
            text_.append(text);
    }

    std::optional<Value> takeRoot() { return std::move(root_); }

private:
    struct Frame {
        std::string element;
        std::string path;
        Array items;
        Dictionary entries;
        int line = 0;
        std::optional<std::string> key; ///< the <key> that waits for its value
    };

    Refusal openRoot(const std::string& element)
    {
        if (element != "plist")
            return "The document is not a property list: it starts with <" + element + ">";
        open_.push_back({element, "", {}, {}, line(), {}});
        return std::nullopt;
    }

    Refusal openKey(const Frame& parent)
    {
        if (parent.element != "dict")
            return std::string("<key> stands outside a <dict>");
        if (parent.key)
            return "The key \"" + *parent.key + "\" has no value";
        inText_ = true;
        open_.push_back({"key", "", {}, {}, line(), {}});
        return std::nullopt;
    }

    static std::string pathOfNext(const Frame& parent)
    {
        if (parent.element == "array")
            return parent.path + "[" + std::to_string(parent.items.size()) + "]";
        if (parent.element == "dict")
            return parent.path.empty() ? *parent.key : parent.path + "." + *parent.key;
        return "";
    }

    std::optional<Value> finished(Frame& frame)
    {
        if (frame.element == "dict")
            return std::move(frame.entries);
        if (frame.element == "array")
            return std::move(frame.items);
        if (frame.element == "true" || frame.element == "false")
            return frame.element == "true";
        return scalarReader(frame.element)(text_);
    }

    Refusal store(Value value, const Frame& frame)
    {
        if (source_)
            source_->lines.insert_or_assign(frame.path, frame.line);
        Frame& parent = open_.back();
        if (parent.element == "plist") {
            root_ = std::move(value);
        } else if (parent.element == "array") {
            parent.items.push_back(std::move(value));
        } else {
            if (source_ && parent.entries.contains(*parent.key))
                source_->repeatedKeys.push_back(frame.path);
            parent.entries.insert_or_assign(*parent.key, std::move(value));
            parent.key.reset();
        }
        return std::nullopt;
    }

    PropertyListSource* source_;
    std::vector<Frame> open_;
    std::string text_;
    bool inText_ = false;
    std::optional<Value> root_;
};

} // namespace

PropertyListReading readXmlPropertyList(std::string_view text, PropertyListSource* source)
{
    PropertyListBuilder builder(source);
    if (const auto error = readXml(text, builder, {.maximumDepth = 512, .allowBareDoctype = true}))
        return {std::nullopt, "line " + std::to_string(error->line) + ": " + error->message};
    return {builder.takeRoot(), ""};
}

PropertyListReading readPropertyList(std::string_view bytes, PropertyListSource* source)
{
    if (bytes.starts_with("bplist"))
        return readBinaryPropertyList(bytes);
    return readXmlPropertyList(bytes, source);
}

} // namespace stowline::platform
