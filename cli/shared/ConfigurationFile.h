// The text of the configuration file: TOML, every name and value with its place.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::cli {

/// Where something stands; both count from 1, columns in characters.
struct FilePlace {
    std::size_t line = 1;
    std::size_t column = 1;

    bool operator==(const FilePlace&) const = default;
};

/// One "name = value".
struct ConfigurationEntry {
    std::vector<std::string> tables; ///< "uploads", "resume" for [uploads.resume]
    std::string name;
    std::vector<std::string> values; ///< several for a list
    bool isBoolean = false;
    bool isList = false;
    FilePlace place;
};

/// A [table], empty ones too.
struct ConfigurationTable {
    std::vector<std::string> names;
    FilePlace place;
};

struct ConfigurationText {
    std::vector<ConfigurationTable> tables;
    std::vector<ConfigurationEntry> entries;
};

/// What is wrong with the text, and where.
class ConfigurationFault : public std::runtime_error {
public:
    ConfigurationFault(FilePlace where, const std::string& sentence)
        : std::runtime_error(sentence), place(where)
    {
    }
    FilePlace place;
};

/// Reads TOML 1.0. Values are texts, numbers, true and false, and lists of these.
/// @throws ConfigurationFault for the first thing that is wrong
[[nodiscard]] ConfigurationText readConfiguration(std::string_view text);

} // namespace stowline::cli
