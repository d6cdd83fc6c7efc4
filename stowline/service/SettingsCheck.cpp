#include "stowline/service/SettingsCheck.h"

#include "stowline/call/WireNames.h"
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/network/HostFlags.h"
#include "stowline/platform/text/Credentials.h"
#include "stowline/platform/text/HostName.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/values/Format.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/SettingsRules.h"
#include "stowline/service/WebMethodCatalogue.h"
#include "stowline/service/WebRequestKeys.h"

#include <algorithm>
#include <array>
#include <span>

namespace stowline {

namespace {

std::string joined(const std::string& path, std::string_view key)
{
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

constexpr std::string_view kTicketMethod = "GetRestoreTicket";
constexpr std::string_view kPartRequest = "DownloadFilePart";
constexpr std::array<std::string_view, 2> kUndeleting{"GetDeletedFiles", "UndeleteFiles"};

bool hasEntry(const Dictionary& root, std::string_view table, std::string_view name)
{
    const Dictionary* entries = findDictionary(root, table);
    return entries && find(*entries, name);
}

class Checker {
public:
    std::vector<SettingsFault> check(std::string_view bytes)
    {
        const auto reading = platform::readPropertyList(bytes, &source_);
        if (!reading.value)
            return {{lineIn(reading.fault), "", reading.fault + "."}};
        for (const std::string& path : source_.repeatedKeys)
            add(path, "The key is there twice in its dictionary; remove one.");
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
        if (const Dictionary* requests = table(root, "WebRequests"))
            checkWebRequests(*requests);
        if (const Dictionary* templates = table(root, "Templates"))
            checkTemplates(*templates);
        checkRestoring(root);
        checkUndeleting(root);
    }

    /// The same of what was deleted.
    void checkUndeleting(const Dictionary& root)
    {
        const auto [list, undelete] = kUndeleting;
        const bool hasList = hasEntry(root, "WebServices", list);
        if (hasList != hasEntry(root, "WebServices", undelete))
            add("WebServices", "The web method " + quoted(hasList ? undelete : list) +
                                   " is missing, without which " +
                                   quoted(hasList ? list : undelete) +
                                   " is not used; add its entry.");
    }

    /// One entry without the other says that something was forgotten.
    void checkRestoring(const Dictionary& root)
    {
        const bool hasTicket = hasEntry(root, "WebServices", kTicketMethod);
        const bool hasPart = hasEntry(root, "WebRequests", kPartRequest);
        if (hasTicket && !hasPart)
            add("WebRequests", "The web request " + quoted(kPartRequest) +
                                   " is missing, without which the tickets of " +
                                   quoted(kTicketMethod) + " are useless; add its entry.");
        if (hasPart && !hasTicket)
            add("WebServices", "The web method " + quoted(kTicketMethod) +
                                   " is missing, whose tickets " + quoted(kPartRequest) +
                                   " needs; add its entry.");
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
            add("URLS.ReachabilityHost", quoted(*host) + " is not a host name; write it without "
                                                         "\"https://\", path and blanks.");
    }

    void checkWebServices(const Dictionary& methods)
    {
        for (const WebMethodNeeds& needs : webMethodCatalogue()) {
            if (!needs.isOptional && !find(methods, needs.name))
                add("WebServices",
                    "The web method " + quoted(needs.name) + " is missing; add its entry.");
        }
        for (const auto& [name, value] : methods) {
            const std::string path = joined("WebServices", name);
            if (const Dictionary* entry = checkEntry(value, path, kWebMethodKeys))
                checkWebMethod(name, *entry, path);
        }
    }

    void checkWebRequests(const Dictionary& requests)
    {
        for (const WebRequestNeeds& needs : webRequestCatalogue()) {
            if (!needs.isOptional && !find(requests, needs.name))
                add("WebRequests",
                    "The web request " + quoted(needs.name) + " is missing; add its entry.");
        }
        for (const auto& [name, value] : requests) {
            const std::string path = joined("WebRequests", name);
            const Dictionary* entry = checkEntry(value, path, kWebRequestKeys);
            if (!entry)
                continue;
            checkNamedTemplates(*entry, webRequestKey::requestHeaders, path, platform::isToken,
                                "header");
            checkResponseHeaderNames(*entry, path);
            const auto known = webRequestCatalogue();
            const auto needs = std::ranges::find(known, name, &WebRequestNeeds::name);
            checkUrl(needs == known.end() ? std::nullopt : std::optional(needs->urlArguments),
                     *entry, path);
            if (needs != known.end())
                checkRequestNeeds(*needs, *entry, path);
        }
    }

    void checkTemplates(const Dictionary& templates)
    {
        for (const TemplateNeeds& needs : templateCatalogue()) {
            if (!find(templates, needs.name))
                add("Templates",
                    "The template " + quoted(needs.name) + " is missing; add its entry.");
        }
        for (const auto& [name, value] : templates) {
            const std::string path = joined("Templates", name);
            const Dictionary* entry = checkEntry(value, path, kTemplateKeys);
            if (!entry)
                continue;
            checkHeaderNames(*entry, path);
            const auto known = templateCatalogue();
            const auto needs = std::ranges::find(known, name, &TemplateNeeds::name);
            checkUrl(needs == known.end() ? std::nullopt : std::optional(needs->urlArguments),
                     *entry, path);
            if (needs != known.end())
                checkTemplateNeeds(*needs, *entry, path);
        }
    }

    /// Whether an entry has the keys it must have, each of its kind, and no other.
    const Dictionary* checkEntry(const Value& value, const std::string& path,
                                 std::span<const KeyRule> rules)
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
                                                ", not " +
                                                (rule.kind == FieldKind::number && found->string()
                                                     ? quoted(*found->string())
                                                     : "a " + std::string(found->kindName())) +
                                                ".");
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
        checkUrl(needs == methods.end() ? std::nullopt : std::optional(needs->urlArguments), entry,
                 path);
        if (needs != methods.end())
            checkNeeds(*needs, entry, path);
    }

    void checkNeeds(const WebMethodNeeds& needs, const Dictionary& entry, const std::string& path)
    {
        checkPlaceholders(needs.placeholders, entry, path,
                          {methodKey::soapParameters, methodKey::soapHeaders});
        const bool hasPath = find(entry, methodKey::resultKeyPath) != nullptr;
        if (hasPath && needs.resultPath == ResultPath::mustBeAbsent)
            add(joined(path, methodKey::resultKeyPath),
                "This method needs the whole answer; remove \"resultKeyPath\".");
        if (!hasPath && needs.resultPath == ResultPath::isNeeded)
            add(path, "The key \"resultKeyPath\" is missing; it leads to the method's result.");
    }

    /// Whether a call can use an address once its places are filled.
    static bool isUsableAddress(const std::string& url)
    {
        const auto origin = platform::originOf(
            platform::addressForCalls(platform::replacingOccurrences(url, "%@", "filled")));
        return origin && platform::isHostName(origin->host) &&
               platform::percentEscaped(origin->host) == origin->host &&
               (origin->host.starts_with('[') || origin->host.find('%') == std::string::npos);
    }

    /// @param needed how many places the address has; absent when the host program says so alone
    void checkUrl(std::optional<std::size_t> needed, const Dictionary& entry,
                  const std::string& path)
    {
        const std::string* url = findString(entry, methodKey::url);
        const std::size_t count = url ? platform::formatArgumentCount(*url) : 0;
        if (url && needed && count != *needed)
            add(joined(path, methodKey::url),
                "The URL has " + std::to_string(count) + " places to fill (\"%@\"), but " +
                    std::to_string(*needed) +
                    " are filled; a literal percent sign is written \"%%\".");
        else if (url && !isUsableAddress(*url))
            add(joined(path, methodKey::url),
                quoted(platform::addressWithoutCredentials(*url)) +
                    " is not an address that a call can use; write it as https://HOST/PATH or "
                    "http://HOST:PORT/PATH.");
    }

    /// @param lists where templates stand; a missing one is reported at the first
    void checkPlaceholders(const std::vector<std::string_view>& placeholders,
                           const Dictionary& entry, const std::string& path,
                           std::initializer_list<std::string_view> lists)
    {
        for (const std::string_view placeholder : placeholders) {
            if (!usesPlaceholder(entry, lists, placeholder))
                add(joined(path, *lists.begin()), "No template uses " + std::string(placeholder) +
                                                      ", so its value would not be sent.");
        }
    }

    static bool usesPlaceholder(const Dictionary& entry,
                                std::initializer_list<std::string_view> lists,
                                std::string_view placeholder)
    {
        for (const auto list : lists) {
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

    void checkRequestNeeds(const WebRequestNeeds& needs, const Dictionary& entry,
                           const std::string& path)
    {
        checkPlaceholders(needs.placeholders, entry, path, {webRequestKey::requestHeaders});
        const Array* names = findArray(entry, webRequestKey::responseHeaderNames);
        for (const std::string_view header : needs.responseHeaders) {
            const bool isListed =
                names && std::find(names->begin(), names->end(), Value(header)) != names->end();
            if (!isListed)
                add(joined(path, webRequestKey::responseHeaderNames),
                    "The header " + quoted(header) + " is read by this request; add it here.");
        }
    }

    void checkTemplateNeeds(const TemplateNeeds& needs, const Dictionary& entry,
                            const std::string& path)
    {
        const std::string* body = findString(entry, "body");
        for (const std::string_view placeholder : needs.placeholders) {
            if (body && body->find(placeholder) == std::string::npos)
                add(joined(path, "body"), "The body does not use " + std::string(placeholder) +
                                              ", so its value would not be sent.");
        }
    }

    void checkResponseHeaderNames(const Dictionary& entry, const std::string& path)
    {
        const Array* names = findArray(entry, webRequestKey::responseHeaderNames);
        for (std::size_t i = 0; names && i < names->size(); ++i) {
            const std::string* name = (*names)[i].string();
            if (!name || !platform::isToken(*name))
                add(place(joined(path, webRequestKey::responseHeaderNames), i),
                    quoted((*names)[i].text()) + " is not a valid name for a header.");
        }
    }

    void checkHeaderNames(const Dictionary& entry, const std::string& path)
    {
        const Dictionary* headers = findDictionary(entry, methodKey::httpHeaders);
        for (const auto& [name, value] : headers ? *headers : Dictionary()) {
            const std::string headerPath = joined(joined(path, methodKey::httpHeaders), name);
            if (!platform::isToken(name))
                add(headerPath, quoted(name) + " is not a valid name for an HTTP header.");
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
                    quoted(*name) + " is not a valid name for a " + std::string(what) + ".");
            if (std::find(names.begin(), names.end(), *name) != names.end())
                add(joined(itemPath, methodKey::name),
                    "The name " + quoted(*name) + " appears twice; the later one counts.");
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

bool configuresUndeleting(std::string_view bytes)
{
    const auto reading = platform::readPropertyList(bytes);
    const Dictionary* root = reading.value ? reading.value->dictionary() : nullptr;
    return root && std::ranges::all_of(kUndeleting, [root](std::string_view name) {
               return hasEntry(*root, "WebServices", name);
           });
}

bool configuresRestoring(std::string_view bytes)
{
    const auto reading = platform::readPropertyList(bytes);
    const Dictionary* root = reading.value ? reading.value->dictionary() : nullptr;
    return root && hasEntry(*root, "WebServices", kTicketMethod) &&
           hasEntry(*root, "WebRequests", kPartRequest);
}

} // namespace stowline
