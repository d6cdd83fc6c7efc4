#include "stowline/service/SettingsCheck.h"

#include "stowline/call/WireNames.h"
#include "stowline/platform/Format.h"
#include "stowline/platform/HostFlags.h"
#include "stowline/platform/PropertyList.h"
#include "stowline/service/WebMethodCatalogue.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

enum class Kind { string, number, list, dictionary };

/// A key that an entry may have.
struct KeyRule {
    std::string_view key;
    Kind kind;
    bool required;
};

constexpr std::array kWebMethodKeys{
    KeyRule{methodKey::url, Kind::string, true},
    KeyRule{methodKey::namespaceUri, Kind::string, true},
    KeyRule{methodKey::httpHeaders, Kind::dictionary, false},
    KeyRule{methodKey::soapHeaders, Kind::list, false},
    KeyRule{methodKey::soapParameters, Kind::list, false},
    KeyRule{methodKey::resultKeyPath, Kind::string, false},
};
constexpr std::array kWebRequestKeys{
    KeyRule{"URL", Kind::string, true},
    KeyRule{"httpMethod", Kind::string, false},
    KeyRule{"httpVersion", Kind::string, false},
    KeyRule{"requestHeaders", Kind::list, false},
    KeyRule{"requestTimeout", Kind::number, false},
    KeyRule{"responseHeaderNames", Kind::list, false},
};
constexpr std::array kTemplateKeys{
    KeyRule{"URL", Kind::string, true},
    KeyRule{"body", Kind::string, true},
    KeyRule{"httpHeaders", Kind::dictionary, false},
};
constexpr std::array kNamedTemplateKeys{
    KeyRule{methodKey::name, Kind::string, true},
    KeyRule{methodKey::templateText, Kind::string, true},
};
constexpr std::array kBareTemplateKeys{
    KeyRule{methodKey::templateText, Kind::string, true},
};

bool isOfKind(const Value& value, Kind kind)
{
    switch (kind) {
    case Kind::string:
        return value.string() != nullptr;
    case Kind::number:
        return value.kindName() == "number";
    case Kind::list:
        return value.array() != nullptr;
    case Kind::dictionary:
        return value.dictionary() != nullptr;
    }
    return false;
}

std::string_view nameOf(Kind kind)
{
    constexpr std::array<std::string_view, 4> names{"a string", "a number", "a list",
                                                    "a dictionary"};
    return names.at(static_cast<std::size_t>(kind));
}

/// A field name as HTTP knows it (RFC 9110 section 5.6.2).
bool isHeaderName(std::string_view name)
{
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               marks.find(c) != std::string_view::npos;
    });
}

/// A name without a colon as XML knows it, with ASCII's part of the rule.
bool isElementName(std::string_view name)
{
    const auto starts = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               static_cast<unsigned char>(c) >= 0x80;
    };
    const auto goesOn = [&](char c) {
        return starts(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    };
    return !name.empty() && starts(name.front()) && std::all_of(name.begin(), name.end(), goesOn);
}

std::string joined(const std::string& path, std::string_view key)
{
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

class Checker {
public:
    std::vector<SettingsFault> check(std::string_view bytes)
    {
        const auto reading = platform::readPropertyList(bytes, &source_);
        if (!reading.value)
            return {{lineIn(reading.fault), "", reading.fault + "."}};
        for (const std::string& path : source_.repeatedKeys)
            add(path, "The key stands twice in its dictionary; remove one.");
        if (const Dictionary* root = reading.value->dictionary())
            checkRoot(*root);
        else
            add("", "The file must hold a dictionary.");
        std::stable_sort(faults_.begin(), faults_.end(),
                         [](const auto& a, const auto& b) { return a.line < b.line; });
        return std::move(faults_);
    }

private:
    static int lineIn(const std::string& fault)
    {
        constexpr std::string_view start = "line ";
        return fault.starts_with(start) ? std::atoi(fault.c_str() + start.size()) : 0; // NOLINT
    }

    /// Notes a fault at the line of the path, or of the nearest thing around it that is there.
    void add(const std::string& path, std::string sentence)
    {
        std::string place = path;
        auto line = source_.lines.find(place);
        while (line == source_.lines.end() && !place.empty()) {
            const auto end = place.find_last_of(".[");
            place = end == std::string::npos ? "" : place.substr(0, end);
            line = source_.lines.find(place);
        }
        faults_.push_back(
            {line == source_.lines.end() ? 0 : line->second, path, std::move(sentence)});
    }

    const Dictionary* table(const Dictionary& root, std::string_view name)
    {
        const Value* value = find(root, name);
        if (!value)
            add("", "The table " + quoted(name) + " is missing; add a dictionary of that name.");
        else if (!value->dictionary())
            add(std::string(name),
                "This must be a dictionary, not a " + std::string(value->kindName()) + ".");
        return value ? value->dictionary() : nullptr;
    }

    void checkRoot(const Dictionary& root)
    {
        if (const Dictionary* links = table(root, "URLS"))
            checkLinks(*links);
        if (const Dictionary* methods = table(root, "WebServices"))
            checkWebServices(*methods);
        checkOtherTable(root, "WebRequests", kWebRequestKeys);
        checkOtherTable(root, "Templates", kTemplateKeys);
    }

    void checkLinks(const Dictionary& links)
    {
        for (const auto& [key, value] : links) {
            if (!value.string())
                add(joined("URLS", key), "This must be a string.");
        }
        const std::string* host = findString(links, "ReachabilityHost");
        if (!find(links, "ReachabilityHost"))
            add("URLS", "\"ReachabilityHost\" is missing; no call is made without it.");
        else if (host && (!platform::isHostName(*host) || host->find("://") != std::string::npos))
            add("URLS.ReachabilityHost", quoted(*host) + " is no host name; write it without "
                                                         "\"https://\", path and blanks.");
    }

    void checkWebServices(const Dictionary& methods)
    {
        for (const WebMethodNeeds& needs : webMethodCatalogue()) {
            if (!find(methods, needs.name))
                add("WebServices",
                    "The web method " + quoted(needs.name) + " is missing; add its entry.");
        }
        for (const auto& [name, value] : methods) {
            const std::string path = joined("WebServices", name);
            if (const Dictionary* entry = checkEntry(value, path, kWebMethodKeys))
                checkWebMethod(name, *entry, path);
        }
    }

    template <std::size_t Count>
    void checkOtherTable(const Dictionary& root, std::string_view name,
                         const std::array<KeyRule, Count>& rules)
    {
        const Dictionary* entries = table(root, name);
        for (const auto& [key, value] : entries ? *entries : Dictionary()) {
            const std::string path = joined(std::string(name), key);
            const Dictionary* entry = checkEntry(value, path, rules);
            if (!entry)
                continue;
            checkHeaderNames(*entry, path);
            checkNamedTemplates(*entry, "requestHeaders", path, isHeaderName, "header");
        }
    }

    /// Whether an entry has the keys it must have, each of its kind, and no other.
    template <std::size_t Count>
    const Dictionary* checkEntry(const Value& value, const std::string& path,
                                 const std::array<KeyRule, Count>& rules)
    {
        const Dictionary* entry = value.dictionary();
        if (!entry) {
            add(path, "This must be a dictionary, not a " + std::string(value.kindName()) + ".");
            return nullptr;
        }
        for (const KeyRule& rule : rules) {
            const Value* found = find(*entry, rule.key);
            if (!found && rule.required)
                add(path, "The key " + quoted(rule.key) + " is missing.");
            if (found && !isOfKind(*found, rule.kind))
                add(joined(path, rule.key), "This must be " + std::string(nameOf(rule.kind)) +
                                                ", not a " + std::string(found->kindName()) + ".");
        }
        for (const auto& field : *entry) {
            const std::string& key = field.first;
            const bool known = std::any_of(rules.begin(), rules.end(),
                                           [&key](const KeyRule& rule) { return rule.key == key; });
            if (!known)
                add(joined(path, key),
                    "The key " + quoted(key) + " is not known here; is it misspelt?");
        }
        return entry;
    }

    void checkWebMethod(const std::string& name, const Dictionary& entry, const std::string& path)
    {
        checkHeaderNames(entry, path);
        checkNamedTemplates(entry, methodKey::soapParameters, path, isElementName, "parameter");
        if (const Array* headers = findArray(entry, methodKey::soapHeaders)) {
            for (std::size_t i = 0; i < headers->size(); ++i)
                checkEntry((*headers)[i], place(joined(path, methodKey::soapHeaders), i),
                           kBareTemplateKeys);
        }
        const auto methods = webMethodCatalogue();
        const auto needs = std::find_if(methods.begin(), methods.end(),
                                        [&](const auto& known) { return known.name == name; });
        if (needs != methods.end())
            checkNeeds(*needs, entry, path);
    }

    void checkNeeds(const WebMethodNeeds& needs, const Dictionary& entry, const std::string& path)
    {
        if (const std::string* url = findString(entry, methodKey::url)) {
            const std::size_t count = platform::formatArgumentCount(*url);
            if (count != needs.urlArguments)
                add(joined(path, methodKey::url),
                    "The URL has " + std::to_string(count) + " places to fill (\"%@\"), but " +
                        std::to_string(needs.urlArguments) +
                        " are filled; a literal percent sign is written \"%%\".");
        }
        for (const std::string_view placeholder : needs.placeholders) {
            if (!usesPlaceholder(entry, placeholder))
                add(joined(path, methodKey::soapParameters),
                    "No template uses " + std::string(placeholder) +
                        ", so its value would not be sent.");
        }
        const bool hasPath = find(entry, methodKey::resultKeyPath) != nullptr;
        if (hasPath && !needs.needsResultKeyPath)
            add(joined(path, methodKey::resultKeyPath),
                "This method needs the whole answer; remove \"resultKeyPath\".");
        if (!hasPath && needs.needsResultKeyPath)
            add(path, "The key \"resultKeyPath\" is missing; it leads to the method's result.");
    }

    static bool usesPlaceholder(const Dictionary& entry, std::string_view placeholder)
    {
        for (const auto list : {methodKey::soapParameters, methodKey::soapHeaders}) {
            const Array* items = findArray(entry, list);
            for (const Value& item : items ? *items : Array()) {
                const Dictionary* fields = item.dictionary();
                const std::string* text =
                    fields ? findString(*fields, methodKey::templateText) : nullptr;
                if (text && text->find(placeholder) != std::string::npos)
                    return true;
            }
        }
        return false;
    }

    void checkHeaderNames(const Dictionary& entry, const std::string& path)
    {
        const Dictionary* headers = findDictionary(entry, methodKey::httpHeaders);
        for (const auto& [name, value] : headers ? *headers : Dictionary()) {
            const std::string headerPath = joined(joined(path, methodKey::httpHeaders), name);
            if (!isHeaderName(name))
                add(headerPath, quoted(name) + " is no name of a HTTP header.");
            if (value.text().find_first_of("\r\n") != std::string::npos)
                add(headerPath, "The value of a header must not have line breaks.");
        }
    }

    void checkNamedTemplates(const Dictionary& entry, std::string_view list,
                             const std::string& path, bool (*isName)(std::string_view),
                             std::string_view what)
    {
        const Array* items = findArray(entry, list);
        std::vector<std::string> names;
        for (std::size_t i = 0; items && i < items->size(); ++i) {
            const std::string itemPath = place(joined(path, list), i);
            const Dictionary* fields = checkEntry((*items)[i], itemPath, kNamedTemplateKeys);
            const std::string* name = fields ? findString(*fields, methodKey::name) : nullptr;
            if (!name)
                continue;
            if (!isName(*name))
                add(joined(itemPath, methodKey::name),
                    quoted(*name) + " is no name of a " + std::string(what) + ".");
            if (std::find(names.begin(), names.end(), *name) != names.end())
                add(joined(itemPath, methodKey::name),
                    "The name " + quoted(*name) + " stands twice; the later one counts.");
            names.push_back(*name);
        }
    }

    static std::string place(const std::string& list, std::size_t index)
    {
        return list + "[" + std::to_string(index) + "]";
    }

    platform::PropertyListSource source_;
    std::vector<SettingsFault> faults_;
};

} // namespace

std::vector<SettingsFault> checkSettings(std::string_view bytes)
{
    return Checker().check(bytes);
}

} // namespace stowline
