// Where options come from: the command line, the environment, the configuration file.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Environment;
using test::Words;

class ConfiguredCommand : public testing::Test {
protected:
    std::string configure(const std::string& text)
    {
        return stowline_.home().write(".config/stowline/config.toml", text).string();
    }

    test::DevServerProcess server_;
    test::Command stowline_{server_.bundle()};
    const Environment password_{{"STOWLINE_PASSWORD", "pw"}};
};

class ConfiguredAccount : public ConfiguredCommand {
protected:
    void SetUp() override
    {
        ASSERT_EQ(stowline_(Words{"signup", "-u", "ann", "--email", "a@b.c"}, password_).status, 0);
    }
};

TEST_F(ConfiguredAccount, AnEmptyListIsNone)
{
    const test::TemporaryFolder folder;
    folder.write("a.o", "1");
    folder.write("b", "2");
    const auto excludedWith = [&](const std::string& text) {
        configure(text);
        const auto result = stowline_(
            Words{"backup", "-u", "ann", "--system", "iMac", "--dry-run", "--json", folder.path()},
            password_);
        EXPECT_EQ(result.status, 0) << result.errors;
        return test::field(result, "excluded").get<int>();
    };
    EXPECT_EQ(excludedWith("exclude = [\"*.o\"]\n"), 1);
    EXPECT_EQ(excludedWith("exclude = []\n"), 0);
    EXPECT_EQ(excludedWith("exclude = [\"*.o\"]\n[backup]\nexclude = []\n"), 0); // against it
}

TEST_F(ConfiguredCommand, AFileWithAFaultIsToldWithItsPlaceAndNeverPassedOver)
{
    const std::map<std::string, std::string> faults{
        {"[backup]\njbos = 2\n",
         "2:1: \"jbos\" is not an option of \"stowline backup\". Did you mean \"jobs\"?"},
        {"\nuzername = \"ann\"\n",
         "2:1: \"uzername\" is not an option of any command. Did you mean \"username\"?"},
        {"[bakcup]\n", "1:2: [bakcup] is not a command. Did you mean \"backup\"?"},
        {"[uploads.zzz]\n", "1:10: [uploads.zzz] is not a command."},
        {"[versions]\nFILE-ID = 1\n",
         "2:1: \"FILE-ID\" is not an option of \"stowline versions\"."},
        {"quiet = 1\n", "1:1: \"quiet\" takes true or false. Did you mean true?"},
        {"bundle = true\n", "1:1: \"bundle\" takes a value, not true or false."},
        {"username = [\"a\", \"b\"]\n", "1:1: \"username\" takes one value."},
        {"[rm]\nyes = true\n", "2:1: \"yes\" can be given on the command line only."},
        {"config = \"x\"\n", "1:1: \"config\" is not an option of any command."},
    };
    for (const auto& [text, sentence] : faults) {
        const std::string file = configure(text);
        // The faulty part is of another command than the one that runs.
        const auto result = stowline_(Words{"checksum", "-"});
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_EQ(result.errors, "stowline: " + file + ":" + sentence + "\n");
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(ConfiguredCommand, ATextThatIsNotTomlIsTold)
{
    const std::string file = configure("[backup]\njobs = \n");
    const auto result = stowline_(Words{"--json", "checksum", "-"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(result.errors.starts_with("stowline: " + file + ":2:8: This is not TOML: "))
        << result.errors;
    EXPECT_EQ(test::jsonLines(result.output).back()["exit"], 2);
}

TEST_F(ConfiguredCommand, AFileThatCannotBeReadIsTold)
{
    const fs::path file = stowline_.home().path() / ".config/stowline/config.toml";
    fs::create_directories(file);
    const auto result = stowline_(Words{"checksum", "-"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(
        result.errors,
        "stowline: The configuration file " + file.string() +
            " cannot be read. Please check that it is a file, and check its owner and mode.\n");
    fs::remove(file);
    EXPECT_EQ(stowline_(Words{"checksum", "-"}).status, 0);
    EXPECT_EQ(stowline_(Words{"--config", file.string(), "checksum", "-"}).status, 2);
}

TEST_F(ConfiguredCommand, APipeInItsPlaceIsNotWaitedFor)
{
    const fs::path file = stowline_.home().path() / ".config/stowline/config.toml";
    fs::create_directories(file.parent_path());
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const auto result = stowline_(Words{"checksum", "-"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find(file.string() + " cannot be read. Please check"),
              std::string::npos)
        << result.errors;
}

TEST_F(ConfiguredCommand, AFileThatOthersMayWriteIsNotObeyed)
{
    const fs::path file = configure("[backup]\njobs = 2\n");
    const std::string sentence = "Other users may change the configuration file " + file.string() +
                                 ". Please make it and its folder your own, writable by nobody "
                                 "else.";
    for (const fs::path& place : {file, file.parent_path()}) {
        const auto was = fs::status(place).permissions();
        fs::permissions(place, fs::perms::others_write, fs::perm_options::add);
        const auto result = stowline_(Words{"checksum", "-"});
        EXPECT_EQ(result.status, 2) << place;
        EXPECT_EQ(result.errors, "stowline: " + sentence + "\n");
        const auto checked = stowline_(Words{"config", "check"});
        EXPECT_EQ(checked.status, 10);
        EXPECT_NE(checked.output.find(":1:1: " + sentence), std::string::npos) << checked.output;
        fs::permissions(place, was);
        EXPECT_EQ(stowline_(Words{"checksum", "-"}).status, 0);
    }
}

TEST_F(ConfiguredCommand, OneThatTheCommandLineNamesWasChosen)
{
    const fs::path file = stowline_.home().write("own.toml", "[backup]\njobs = 2\n");
    fs::permissions(file, fs::perms::others_write, fs::perm_options::add);
    EXPECT_EQ(stowline_(Words{"--config", file.string(), "checksum", "-"}).status, 0);
}

TEST_F(ConfiguredCommand, OneThatAnotherUserOwnsIsNotObeyed)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Only root can give a file to another user.";
    const fs::path file = configure("[backup]\njobs = 2\n");
    ASSERT_EQ(::chown(file.c_str(), 12345, 12345), 0);
    const auto result = stowline_(Words{"checksum", "-"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("Other users may change"), std::string::npos) << result.errors;
}

TEST_F(ConfiguredCommand, AFolderThatCannotBeSearchedIsTold)
{
    const fs::path folder = fs::path(configure("[backup]\njobs = 2\n")).parent_path();
    auto run = stowline_.run({"checksum", "-"});
    if (::geteuid() == 0)
        run.words.insert(run.words.begin(),
                         {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    fs::permissions(folder, fs::perms::none);
    const auto result = test::runProgram(run);
    fs::permissions(folder, fs::perms::owner_all);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("cannot be read. Please check"), std::string::npos)
        << result.errors;
}

TEST_F(ConfiguredAccount, ANameAboveAllTablesIsForEveryCommandThatHasIt)
{
    configure("username = \"ann\"\n");
    EXPECT_EQ(stowline_(Words{"signin"}, password_).status, 0);
    EXPECT_EQ(stowline_(Words{"systems"}, password_).status, 0);
    configure("username = \"nobody\"\n[signin]\nusername = \"ann\"\n");
    EXPECT_EQ(stowline_(Words{"signin"}, password_).status, 0);
    EXPECT_EQ(stowline_(Words{"systems"}, password_).status, 12);
}

TEST_F(ConfiguredAccount, ASourceOfThePasswordInTheFileGivesWayToVariableAndFlag)
{
    const std::string wrong = stowline_.home().write("wrong", "no").string();
    configure("[signin]\nusername = \"ann\"\npassword-file = \"" + wrong + "\"\n");
    EXPECT_EQ(stowline_(Words{"signin"}).status, 12);
    EXPECT_EQ(stowline_(Words{"signin"}, password_).status, 0);
    EXPECT_EQ(stowline_(Words{"signin", "--password-stdin"}, Environment{}, "pw\n").status, 0);
}

/// Every variable that the command's own help names, with the commands it is named for.
std::map<std::string, std::vector<Words>> variablesInHelp(const test::Command& stowline)
{
    std::map<std::string, std::vector<Words>> variables;
    std::vector<Words> commands{{}};
    for (std::size_t next = 0; next < commands.size(); ++next) {
        Words words = commands[next];
        words.emplace_back("--help");
        const std::string help = stowline(words).output;
        std::istringstream lines(help);
        bool inCommands = false;
        const std::regex variable("\\(Env:([A-Z_]+)\\)");
        const std::regex subcommand("^  ([a-z-]+) .*");
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (std::regex_search(line, match, variable))
                variables[match[1]].push_back(commands[next]);
            inCommands = line == "Subcommands:" || (inCommands && !line.empty());
            if (inCommands && std::regex_match(line, match, subcommand)) {
                Words deeper = commands[next];
                deeper.push_back(match[1]);
                commands.push_back(deeper);
            }
        }
    }
    return variables;
}

TEST_F(ConfiguredAccount, EveryVariableThatTheHelpNamesCounts)
{
    // What shows that a variable counts: a value that no option takes, or one that changes a run.
    const std::map<std::string, std::pair<std::string, int>> refused{
        {"STOWLINE_JSON", {"nonsense", 2}},       {"STOWLINE_QUIET", {"nonsense", 2}},
        {"STOWLINE_VERBOSE", {"nonsense", 2}},    {"STOWLINE_LOG_FILE", {"nonsense", 2}},
        {"STOWLINE_LOG_LEVEL", {"nonsense", 2}},  {"STOWLINE_NO_PROGRESS", {"nonsense", 2}},
        {"STOWLINE_NO_NURSERY", {"nonsense", 2}}, {"STOWLINE_BUNDLE", {"/nonexistent", 10}},
        {"STOWLINE_USERNAME", {"nobody", 12}}};
    const auto named = variablesInHelp(stowline_);
    ASSERT_GT(named.at("STOWLINE_USERNAME").size(), 8U);
    for (const auto& [variable, commands] : named) {
        ASSERT_TRUE(refused.contains(variable)) << variable;
        const auto& [value, status] = refused.at(variable);
        Environment environment = password_;
        environment.emplace("STOWLINE_USERNAME", "ann");
        EXPECT_EQ(stowline_(Words{"signin"}, environment).status, 0);
        environment.insert_or_assign(variable, value);
        EXPECT_EQ(stowline_(Words{"signin"}, environment).status, status) << variable;
    }
}

TEST_F(ConfiguredCommand, ThePagesPromiseNoOtherVariables)
{
    std::set<std::string> known{"STOWLINE_PASSWORD", "STOWLINE_MONITOR_TOKEN", "STOWLINE_ANSWER",
                                "STOWLINE_TOOLS_DIR"};
    for (const auto& [variable, commands] : variablesInHelp(stowline_))
        known.insert(variable);
    for (const char* page : {"README.md", "docs/man/stowline.1.in"}) {
        std::ifstream stream(test::sourceFile(page));
        const std::string text(std::istreambuf_iterator<char>(stream), {});
        const std::regex variable("STOWLINE_[A-Z_]+");
        for (std::sregex_iterator found(text.begin(), text.end(), variable), end; found != end;
             ++found)
            EXPECT_TRUE(known.contains(found->str())) << page << ": " << found->str();
    }
}

} // namespace
} // namespace stowline
