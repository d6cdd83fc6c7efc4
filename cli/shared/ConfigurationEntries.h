// What the entries of a configuration file mean: options of commands, and profiles.
#pragma once

#include "cli/shared/ConfigurationFile.h"

#include <CLI/App.hpp>

#include <map>
#include <string>
#include <vector>

namespace stowline::cli {

/// Something that is wrong with an entry, and where.
struct ConfigurationProblem {
    FilePlace place;
    std::string sentence;
};

/// The entries of one file as options of the program and its commands. What comes later gives way:
/// the command line, the environment, the [profile.NAME] that "backup" runs with, the command's own
/// table, what stands above all tables. For one thread.
class ConfigurationEntries {
public:
    /// @param app as it stands after the reading of the command line; it must outlive this
    explicit ConfigurationEntries(CLI::App& app) : app_(app) {}

    /// Takes every entry. Those that are wrong are in problems() and not among the items.
    void take(const ConfigurationText& text);

    /// In the order of their places.
    [[nodiscard]] const std::vector<ConfigurationProblem>& problems() const { return problems_; }
    /// What the library that reads the command line adds to the options.
    [[nodiscard]] const std::vector<CLI::ConfigItem>& items() const { return items_; }
    /// Names of the profiles that have a table.
    [[nodiscard]] const std::vector<std::string>& profiles() const { return profiles_; }

private:
    /// How much an entry counts; a greater one comes before a lesser.
    enum class Rank { forAll, ofCommand, ofProfile };
    struct Meant { ///< one option of one command, as an entry sets it
        CLI::Option& option;
        const ConfigurationEntry& entry;
        std::vector<std::string> tables; ///< the command's words
        Rank rank;
    };

    [[nodiscard]] CLI::App* commandOf(const std::vector<std::string>& names) const;
    [[nodiscard]] std::vector<std::string> tablesBelow(CLI::App& command) const;
    void checkTable(const ConfigurationTable& table);
    void takeEntry(const ConfigurationEntry& entry);
    void takeOfProfile(const ConfigurationEntry& entry);
    void takePaths(const ConfigurationEntry& entry);
    bool addToAll(CLI::App& command, const ConfigurationEntry& entry,
                  const std::vector<std::string>& parents, std::vector<std::string>& known);
    void add(const Meant& meant);
    [[nodiscard]] bool isOfOtherProfile(const Meant& meant) const;
    [[nodiscard]] std::string faultIn(const Meant& meant) const;
    [[nodiscard]] bool givesWay(const Meant& meant) const;
    [[nodiscard]] bool isEarlierBeside(const ConfigurationEntry& entry,
                                       const std::string& name) const;
    void addProblem(FilePlace place, std::string sentence);
    [[nodiscard]] std::string chosenProfile(const ConfigurationText& text) const;
    [[nodiscard]] std::string scheduledProfile() const;
    [[nodiscard]] CLI::App& backup() const;
    [[nodiscard]] CLI::App& schedule() const;

    CLI::App& app_;
    const ConfigurationText* text_ = nullptr; ///< while entries are taken
    std::string profile_;                     ///< that "backup" runs with
    bool areSourcesOnLine_ = false;           ///< the command line says what to back up
    bool hasProfileSources_ = false;          ///< the profile does
    std::vector<CLI::ConfigItem> items_;      ///< the empty ones too, while entries are taken
    std::map<const CLI::Option*, Rank> ranks_;
    std::vector<ConfigurationProblem> problems_;
    std::vector<std::string> profiles_;
};

} // namespace stowline::cli
