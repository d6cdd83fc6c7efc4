// stowline config check, and the profiles in the configuration file.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Environment;
using test::Words;

/// Commands that need no service.
class ConfigCheck : public testing::Test {
protected:
    [[nodiscard]] test::ProgramResult check(const std::string& text) const
    {
        return stowline_(Words{"config", "check", stowline_.home().write("x.toml", text).string()});
    }

    /// What is said of a text, without the file's name.
    [[nodiscard]] std::string faults(const std::string& text) const
    {
        auto result = check(text);
        EXPECT_EQ(result.status, 10) << text << result.errors;
        const std::string file = (stowline_.home().path() / "x.toml").string() + ":";
        for (auto at = result.output.find(file); at != std::string::npos;
             at = result.output.find(file))
            result.output.erase(at, file.size());
        return result.output;
    }

    test::Command stowline_{fs::path(test::builtPrograms())};
};

TEST_F(ConfigCheck, TakesNoRuleOfRunsThatKeepsOthersThanItSays)
{
    EXPECT_EQ(faults("[profile.a]\n"
                     "keep-last = -1\n"
                     "keep-daily = \"-18446744073709551615\"\n"
                     "keep-weekly = \"- 1\"\n"
                     "[forget]\n"
                     "keep-monthly = \"few\"\n"),
              "2:1: \"keep-last\": This must be a whole number of 0 or more, not \"-1\".\n"
              "3:1: \"keep-daily\": This must be a whole number of 0 or more, not "
              "\"-18446744073709551615\".\n"
              "4:1: \"keep-weekly\": This must be a whole number of 0 or more, not \"- 1\".\n"
              "6:1: \"keep-monthly\": This must be a whole number of 0 or more, not \"few\".\n");
}

TEST_F(ConfigCheck, ReadsAWholeNumberAsItIsWritten)
{
    EXPECT_EQ(check("[backup]\njobs = \"064\"\n").status, 0); // read as octal it is 52
    EXPECT_EQ(faults("[backup]\njobs = \"065\"\n"),
              "2:1: \"jobs\": Value 65 not in range 1 to 64.\n");
    EXPECT_EQ(faults("keep-last = \"99999999999999999999\"\n"),
              "1:1: \"keep-last\": This must be a whole number of 0 or more, not "
              "\"99999999999999999999\".\n");
}

TEST_F(ConfigCheck, FindsCommandsThatAreNone)
{
    EXPECT_EQ(faults("[profile.a]\n"
                     "before = \"'a\"\n"
                     "after = \"  \"\n"
                     "password-command = \"# pass show x\"\n"
                     "monitor-token-command = \"a\\\\\"\n"),
              "2:1: \"before\": The command 'a has an unmatched quotation mark.\n"
              "3:1: \"after\": This command names no program.\n"
              "4:1: \"password-command\": This command names no program.\n"
              "5:1: \"monitor-token-command\": The command a\\ ends with a backslash that "
              "stands before nothing.\n");
}

TEST_F(ConfigCheck, NamesEveryFaultInTheOrderOfTheFile)
{
    EXPECT_EQ(
        faults("jobs = \"many\"\n"
               "uzername = \"ann\"\n"
               "[backup]\n"
               "  exclud = [\"*.o\"]\n"
               "skip-hidden = \"yes\"\n"
               "jobs = true\n"
               "part-size = \"4q\"\n"
               "register-with = \"protect3\"\n"
               "[restor]\n"
               "[rm]\n"
               "yes = true\n"),
        "1:1: \"jobs\": This must be a whole number of 0 or more, not \"many\".\n"
        "2:1: \"uzername\" is not an option of any command. Did you mean \"username\"?\n"
        "4:3: \"exclud\" is not an option of \"stowline backup\". Did you mean "
        "\"exclude\"?\n"
        "5:1: \"skip-hidden\" takes true or false. Did you mean true?\n"
        "6:1: \"jobs\" takes a value, not true or false.\n"
        "7:1: \"part-size\": This must be a number of bytes, such as 500k or 4m, not \"4q\".\n"
        "8:1: \"register-with\": This must be one of protect2, ProtectFile, not "
        "\"protect3\". Did you mean \"protect2\"?\n"
        "9:2: [restor] is not a command. Did you mean \"restore\"?\n"
        "11:1: \"yes\" can be given on the command line only.\n");
}

TEST_F(ConfigCheck, NamesTheFaultsOfProfiles)
{
    EXPECT_EQ(faults("[profil.x]\n"
                     "[profile]\n"
                     "jobs = 1\n"
                     "[profile.a]\n"
                     "path = \"/x\"\n"
                     "paths = [\"/x\", \"y/z\"]\n"
                     "profile = \"b\"\n"
                     "jobs = 100\n"
                     "[profile.a.backup]\n"
                     "[profile.b]\n"
                     "paths = []\n"
                     "password-file = \"/x\"\n"
                     "password-command = \"y\"\n"),
              "1:2: [profil] is not a command. Did you mean \"profile\"?\n"
              "3:1: \"jobs\" stands in no profile. Please name it: [profile.NAME].\n"
              "5:1: \"path\" is not an option of \"stowline backup\" that a profile can set. Did "
              "you mean \"paths\"?\n"
              "6:1: \"y/z\" is not a whole path. Please begin it with \"/\" or \"~/\".\n"
              "7:1: \"profile\" is not an option of \"stowline backup\" that a profile can set.\n"
              "8:1: \"jobs\": Value 100 not in range 1 to 64.\n"
              "9:12: [profile.a.backup] is neither a command nor a profile. A profile is "
              "[profile.NAME], and holds options of \"stowline backup\" itself.\n"
              "11:1: \"paths\" is empty.\n"
              "13:1: \"password-file\" and \"password-command\" exclude each other. Please keep "
              "one of them.\n");
}

TEST_F(ConfigCheck, TakesTheUsersOwnFileAndTellsWhenThereIsNone)
{
    const auto none = stowline_(Words{"config", "check"});
    EXPECT_EQ(none.status, 4);
    EXPECT_NE(none.errors.find("The configuration file "), std::string::npos);
    const auto file = stowline_.home().write(".config/stowline/config.toml", "jbos = 1\n");
    const auto faulty = stowline_(Words{"--json", "config", "check"});
    EXPECT_EQ(faulty.status, 10);
    const auto lines = test::jsonLines(faulty.output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["file"], file.string());
    EXPECT_EQ(lines[0]["line"], 1);
    EXPECT_EQ(lines[0]["column"], 1);
    EXPECT_EQ(lines[1]["exit"], 10);
    // A faulty file of the user's own does not stand in the way of another.
    EXPECT_EQ(check("jobs = 1\n").status, 0);
    EXPECT_EQ(stowline_(Words{"config", "check", "/nonexistent"}).status, 4);
}

TEST_F(ConfigCheck, FindsTheExampleOfThePageInOrder)
{
    const std::string page = platform::readFile(test::sourceFile("docs/configuration.md")).value();
    const std::string fence = "```toml\n";
    const auto begin = page.find(fence) + fence.size();
    ASSERT_GT(begin, fence.size());
    const std::string example = page.substr(begin, page.find("```", begin) - begin);
    ASSERT_NE(example.find("[profile.work]"), std::string::npos);
    const auto result = check(example);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.errors.find(" is in order."), std::string::npos);
    EXPECT_EQ(check(example + "jbos = 1\n").status, 10);
}

/// A value that the help's words for an option allow.
std::string valueFor(const std::string& line)
{
    // Whose words the command reads itself.
    if (line.find("--alert-after ") != std::string::npos)
        return "\"36h\"";
    if (line.find("--daily ") != std::string::npos)
        return "\"02:30\"";
    if (line.find("--self-test ") != std::string::npos)
        return "\"1%,200M\"";
    std::smatch match;
    if (std::regex_search(line, match, std::regex("\\{([^,}]*)[,}]")))
        return "\"" + match[1].str() + "\"";
    if (line.find(":SIZE") != std::string::npos)
        return "\"4m\"";
    if (std::regex_search(line, std::regex("^  \\S+ (UINT|INT|FLOAT)")))
        return "1";
    return std::regex_search(line, std::regex("^  \\S+ TEXT")) ? "\"x\"" : "true";
}

/// The options and the commands below it that the help of a command names.
void readHelp(const std::string& help, std::map<std::string, std::string>& options,
              std::vector<std::string>& commands)
{
    std::istringstream lines(help);
    const std::regex option("^  (?:-.,)?--([a-z][a-z-]*).*");
    const std::regex command("^  ([a-z-]+) .*");
    bool inCommands = false;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        inCommands = line == "Subcommands:" || (inCommands && !line.empty());
        if (std::regex_match(line, match, option))
            options.emplace(match[1], valueFor(line));
        else if (inCommands && std::regex_match(line, match, command))
            commands.push_back(match[1]);
    }
}

TEST_F(ConfigCheck, EveryOptionOfEveryCommandHasItsKey)
{
    const std::set<std::string> asked{"help", "version", "config"};
    std::size_t count = 0;
    std::vector<Words> commands{{}};
    for (std::size_t next = 0; next < commands.size(); ++next) {
        const Words words = commands[next];
        Words question = words;
        question.emplace_back("--help");
        std::map<std::string, std::string> options;
        std::vector<std::string> below;
        readHelp(stowline_(question).output, options, below);
        for (const auto& name : below) {
            commands.push_back(words);
            commands.back().push_back(name);
        }
        std::string table;
        for (const auto& word : words)
            table += (table.empty() ? "[" : ".") + word;
        table += table.empty() ? "" : "]\n";
        for (const auto& [name, value] : options) {
            if (asked.contains(name))
                continue;
            table += name + " = " + value + "\n";
            ++count;
        }
        std::istringstream lines(check(table).output);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(line.ends_with("can be given on the command line only.") ||
                        line.ends_with("exclude each other. Please keep one of them."))
                << line;
    }
    EXPECT_GT(commands.size(), 30U);
    EXPECT_GT(count, 150U);
}

class ConfiguredProfiles : public testing::Test {
protected:
    void configure(const std::string& text) const
    {
        account_.command.home().write(".config/stowline/config.toml", text);
    }

    /// Names of the items that a dry run would store or leave out, with their states.
    [[nodiscard]] std::map<std::string, std::string> dryRun(Words more) const
    {
        Words words{"backup", "--json", "--system", "iMac", "--dry-run"};
        words.insert(words.end(), more.begin(), more.end());
        const auto result = account_.run(words);
        EXPECT_EQ(result.status, 0) << result.errors;
        std::map<std::string, std::string> states;
        for (const auto& line : test::jsonLines(result.output)) {
            if (line["type"] == "file" && line["kind"] == "file")
                states[fs::path(line["path"].get<std::string>()).filename()] = line["state"];
        }
        return states;
    }

    [[nodiscard]] test::ProgramResult backup(Words more) const
    {
        Words words{"backup", "--system", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    }

    test::BackedUp account_;
    using States = std::map<std::string, std::string>;
};

TEST_F(ConfiguredProfiles, GiveTheirPathsAndRulesToBackup)
{
    account_.write({{"work/a.c", "1"}, {"work/a.o", "2"}, {"other/b", "3"}});
    const std::string root = account_.folder.path().string();
    configure("exclude = [\"*.none\"]\n[backup]\nexclude = [\"*.c\"]\n[profile.work]\npaths = \"" +
              root + "/work\"\nexclude = [\"*.o\"]\n[profile.default]\npaths = [\"" + root +
              "/other\", \"" + root + "/work\"]\n");
    EXPECT_EQ(dryRun({"--profile", "work"}), (States{{"a.c", "would-store"}, {"a.o", "excluded"}}));
    EXPECT_EQ(dryRun({}),
              (States{{"a.c", "excluded"}, {"a.o", "would-store"}, {"b", "would-store"}}));
    // The command line comes first.
    EXPECT_EQ(dryRun({"--profile", "work", "--exclude", "b", root + "/other"}),
              (States{{"b", "excluded"}}));
    EXPECT_EQ(dryRun({"--profile", "work", "--exclude", "a.*"}),
              (States{{"a.c", "excluded"}, {"a.o", "excluded"}}));
    // The profile that the file chooses.
    configure("[backup]\nprofile = \"work\"\n[profile.work]\npaths = [\"" + root + "/work\"]\n");
    EXPECT_EQ(dryRun({}).size(), 2U);
}

TEST_F(ConfiguredProfiles, ChooseAmongSourcesAndGiveWayToTheEnvironment)
{
    account_.write({{"a", "1"}, {"b", "2"}});
    const std::string root = account_.folder.path().string();
    const auto list = account_.command.home().write("list", root + "/b\n").string();
    // A source of the profile comes before one that is said for all; another password's source too.
    configure("files-from = [\"" + list +
              "\"]\npassword-command = \"false\"\n[profile.p]\npaths = \"" + root +
              "/a\"\npassword-file = \"/nonexistent\"\nusername = \"nobody\"\n");
    EXPECT_EQ(dryRun({"--profile", "p"}), (States{{"a", "would-store"}}));
    EXPECT_EQ(dryRun({"--profile", "p", "--files-from", list}), (States{{"b", "would-store"}}));
}

TEST_F(ConfiguredProfiles, KeepChainsOfTheirOwn)
{
    account_.write({{"a", "1"}});
    configure("[profile.p]\npaths = \"" + account_.folder.path().string() + "\"\n");
    ASSERT_EQ(backup({"--profile", "p"}).status, 0);
    EXPECT_EQ(account_.stored(), (test::Files{{"a", "1"}}));
    const auto runs = [&](Words more) {
        Words words{"runs", "--json", "--machine", "iMac"};
        words.insert(words.end(), more.begin(), more.end());
        return account_.run(words);
    };
    EXPECT_EQ(runs({"--profile", "p"}).status, 0);
    EXPECT_EQ(test::jsonLines(runs({"--profile", "p"}).output).size(), 2U);
}

TEST_F(ConfiguredProfiles, ThatNameNothingAreAWrongCommandLine)
{
    configure("[profile.work]\njobs = 2\n[profile.home]\npaths = \"/\"\n");
    const auto absent = backup({"--profile", "wrok"});
    EXPECT_EQ(absent.status, 2);
    EXPECT_EQ(absent.errors, "stowline: There is no [profile.wrok] in the configuration file. Did "
                             "you mean \"work\"? Please add it with its paths, or name PATH, "
                             "--files-from or --stdin.\n");
    const auto empty = backup({"--profile", "work"});
    EXPECT_EQ(empty.status, 2);
    EXPECT_EQ(empty.errors, "stowline: [profile.work] in the configuration file has no paths. "
                            "Please add them, or name PATH, --files-from or --stdin.\n");
    EXPECT_EQ(backup({}).status, 2);
}

} // namespace
} // namespace stowline
