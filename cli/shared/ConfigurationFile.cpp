#include "cli/shared/ConfigurationFile.h"

#include <fmt/format.h>
#include <toml++/toml.h>

namespace stowline::cli {

namespace {

FilePlace placeOf(const toml::source_region& region)
{
    return {region.begin.line, region.begin.column};
}

/// A value in the words of the command line.
std::string wordFor(const toml::node& node, const toml::key& key)
{
    if (const auto* text = node.as_string())
        return text->get();
    if (const auto* number = node.as_integer())
        return fmt::format("{}", number->get());
    if (const auto* number = node.as_floating_point())
        return fmt::format("{}", number->get());
    if (const auto* flag = node.as_boolean())
        return flag->get() ? "true" : "false";
    throw ConfigurationFault(placeOf(node.source()),
                             fmt::format("The value of \"{}\" is not a text, a number, true or "
                                         "false.",
                                         key.str()));
}

ConfigurationEntry entryFor(const toml::key& key, const toml::node& node,
                            const std::vector<std::string>& tables)
{
    ConfigurationEntry entry{.tables = tables,
                             .name = std::string(key.str()),
                             .isBoolean = node.is_boolean(),
                             .isList = node.is_array(),
                             .place = placeOf(key.source())};
    if (const auto* list = node.as_array()) {
        for (const toml::node& element : *list)
            entry.values.push_back(wordFor(element, key));
    } else {
        entry.values.push_back(wordFor(node, key));
    }
    return entry;
}

void collect(const toml::table& table, const std::vector<std::string>& names,
             ConfigurationText& text)
{
    for (const auto& [key, node] : table) {
        if (const auto* inner = node.as_table()) {
            std::vector<std::string> longer = names;
            longer.emplace_back(key.str());
            text.tables.push_back({longer, placeOf(key.source())});
            collect(*inner, longer, text);
        } else {
            text.entries.push_back(entryFor(key, node, names));
        }
    }
}

} // namespace

ConfigurationText readConfiguration(std::string_view text)
{
    try {
        ConfigurationText result;
        collect(toml::parse(text), {}, result);
        return result;
    } catch (const toml::parse_error& fault) {
        throw ConfigurationFault(placeOf(fault.source()),
                                 fmt::format("This is not TOML: {}.", fault.description()));
    }
}

} // namespace stowline::cli
