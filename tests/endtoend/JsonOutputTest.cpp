// docs/formats/command-output.md says what the command prints.
#include "stowline/util/Base64.h"
#include "tests/endtoend/BackedUp.h"
#include "tests/support/TestPaths.h"

#include <regex>
#include <set>

namespace stowline {
namespace {

using test::BackedUp;
using test::Environment;
using test::Words;
using Names = std::set<std::string>;

/// A row of the page.
struct Row {
    std::string command; ///< as the page has it, "rm --version"
    std::string type;
    Names fields;
    bool hasMore = false; ///< that the service tells
};

std::vector<Row> rows()
{
    const auto page =
        platform::readFile(test::sourceFile("docs/formats/command-output.md")).value();
    std::vector<Row> found;
    std::istringstream lines(page);
    const std::regex row(R"(\| `([^`]+)` \| `(\w+)` \| (.*) \|)");
    const std::regex field("`([a-z0-9_]+)`(?! with)");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, row))
            continue;
        const std::string fields = match[3];
        Row read{.command = match[1],
                 .type = match[2],
                 .fields = {},
                 .hasMore = fields.find("the service tells") != std::string::npos};
        for (std::sregex_iterator at(fields.begin(), fields.end(), field), end; at != end; ++at)
            read.fields.insert((*at)[1]);
        found.push_back(read);
    }
    return found;
}

/// The names in a line, less those that are in every line or in every result.
Names fieldsOf(const nlohmann::json& line)
{
    Names names;
    for (const auto& [name, value] : line.items())
        names.insert(name.ends_with("_b64") ? name.substr(0, name.size() - 4) : name);
    for (const char* common : {"v", "type"})
        EXPECT_EQ(names.erase(common), 1U) << line;
    if (line["type"] == "result") {
        for (const char* common : {"command", "status", "exit"})
            EXPECT_EQ(names.erase(common), 1U) << line;
        for (const char* ofFailures : {"message", "cause"})
            names.erase(ofFailures);
    }
    return names;
}

class JsonOutput : public testing::Test {
protected:
    /// Runs a command and compares every line with the page.
    /// @param command which the page calls by this name, and which the words begin with
    void expectAsOnPage(const std::string& command, Words words, const std::string& input = {},
                        int status = 0)
    {
        SCOPED_TRACE(command);
        words.emplace_back("--json");
        Environment environment = account_.environment();
        environment.emplace("STOWLINE_MONITOR_TOKEN", "token-1");
        const auto result = account_.command(words, environment, input);
        EXPECT_EQ(result.status, status) << result.errors;
        const auto lines = test::jsonLines(result.output);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back()["command"], words.front());
        for (const auto& line : lines) {
            EXPECT_EQ(line["type"] == "result", &line == &lines.back());
            compare(command, line);
        }
    }

    void expectAllRowsWereSeen() const
    {
        for (const Row& row : page_)
            EXPECT_TRUE(seen_.contains({row.command, row.type})) << row.command << ": " << row.type;
    }

    const test::TemporaryFolder tokens_;
    BackedUp account_{{"--monitoring-tokens", tokens_.write("tokens", "token-1\n").string()}};

private:
    void compare(const std::string& command, const nlohmann::json& line)
    {
        const std::string type = line["type"];
        Names names = fieldsOf(line);
        const auto rowOf = [&](const std::string& name) {
            return std::ranges::find_if(page_, [&](const Row& candidate) {
                return candidate.command == name && candidate.type == type;
            });
        };
        auto row = rowOf(command);
        if (row == page_.end()) // what holds for "ls" holds for "ls --at"
            row = rowOf(command.substr(0, command.find(" --")));
        if (type == "result" && names.empty() && line["status"] == "settings-invalid")
            return; // nothing came of it
        if (row == page_.end()) {
            EXPECT_TRUE(type == "result" && names.empty()) << line << " is not on the page";
            return;
        }
        if (row->hasMore)
            std::erase_if(names, [&](const auto& name) { return !row->fields.contains(name); });
        EXPECT_EQ(names, row->fields) << line;
        seen_.emplace(row->command, type);
    }

    const std::vector<Row> page_ = rows();
    std::set<std::pair<std::string, std::string>> seen_;
};

TEST_F(JsonOutput, IsAsThePageSays)
{
    account_.write({{"sub/a", "1"}, {"b\xff", "22"}});
    const std::string folder = account_.folder.path().string();
    const std::string copy = account_.command.home().path().string() + "/copy";
    const auto broken = account_.command.home().write("broken.plist", "<plist><dict/></plist>");

    const std::string address = account_.server.address();
    expectAsOnPage("connect", {"connect", address});
    expectAsOnPage("connect", {"connect", address + "/AccountService.asmx?wsdl"}, "", 10);
    expectAsOnPage("signup", {"signup", "-u", "bob", "--email", "b@c.d"});
    expectAsOnPage("signin", {"signin"});
    expectAsOnPage("backup", {"backup", folder, "--system", "iMac"});
    expectAsOnPage("account", {"account", "--show-encryption-key"});
    int error = 0;
    ASSERT_TRUE(
        account_.journal().write({.guid = "7", .owner = {.username = "ann"}, .path = "/c"}, error));
    expectAsOnPage("uploads", {"uploads", "list"});
    expectAsOnPage("uploads abandon", {"uploads", "abandon", "--all", "--yes"});
    expectAsOnPage("systems", {"systems"});
    expectAsOnPage("ls", {"ls", folder, "--system", "iMac"});
    expectAsOnPage("search", {"search", "*", "--system", "iMac"});
    const auto found = account_.run({"search", "a", "--system", "iMac", "--json"});
    const std::string id = test::jsonLines(found.output).at(0)["id"].dump();
    expectAsOnPage("versions", {"versions", id});
    const auto versions = test::jsonLines(account_.run({"versions", id, "--json"}).output);
    expectAsOnPage("restore-info", {"restore-info", versions.at(0)["id"].dump()});
    account_.write({{"sub/a", "2"}});
    ASSERT_EQ(account_.backup().status, 0);
    expectAsOnPage("runs", {"runs", "--machine", "iMac"});
    expectAsOnPage("ls --at", {"ls", folder, "--system", "iMac", "--at", "1"});
    expectAsOnPage("search --at", {"search", "*", "--system", "iMac", "--at", "1"});
    expectAsOnPage("diff", {"diff", "1", "2", "--machine", "iMac"});
    expectAsOnPage("restore", {"restore", folder, "--to", copy + ".tree", "--machine", "iMac"});
    expectAsOnPage("rm --version", {"rm", "--version", versions.at(0)["list"], "--yes"});
    expectAsOnPage("rm PATH", {"rm", folder, "--system", "iMac", "--yes", "--poll", "0.05"});
    expectAsOnPage("verify", {"verify", "--machine", "iMac"}, "", 7);
    expectAsOnPage("backup", {"backup", folder, "--system", "iMac", "--self-test", "100%,1g"}, "",
                   7);
    expectAsOnPage("forget --dry-run",
                   {"forget", "--keep-last", "1", "--dry-run", "--system", "iMac"});
    expectAsOnPage("forget", {"forget", "--keep-last", "1", "--yes", "--system", "iMac"});
    expectAsOnPage("undelete --dry-run", {"undelete", "--system", "iMac", "--dry-run"});
    expectAsOnPage("undelete", {"undelete", "--system", "iMac"});
    expectAsOnPage("monitor settings", {"monitor", "settings"});
    expectAsOnPage("monitor event", {"monitor", "event", "BackupStarted"});
    expectAsOnPage("report", {"report"});
    expectAsOnPage("email", {"email", "a@b.c"});
    expectAsOnPage("email --save", {"email", "--save", copy + ".html"});
    expectAsOnPage("encrypt", {"encrypt"}, "text");
    expectAsOnPage(
        "decrypt", {"decrypt"},
        test::field(account_.command(Words{"encrypt", "--json"}, Environment{}, "text"), "text"));
    expectAsOnPage("checksum", {"checksum", folder + "/b\xff"});
    expectAsOnPage("copy", {"copy", folder + "/b\xff", copy});
    expectAsOnPage("paths", {"paths"});
    expectAsOnPage("paths", {"paths", folder});
    expectAsOnPage("links", {"links"});
    expectAsOnPage("settings", {"settings", "check", broken.string()}, "", 10);
    expectAsOnPage("doctor", {"doctor"});
    const auto faulty = account_.command.home().write("faulty.toml", "jbos = 1\n");
    expectAsOnPage("config", {"config", "check", faulty.string()}, {}, 10);
    expectAsOnPage("schedule", {"schedule", "install", "--dry-run", "--daily", "02:30",
                                "--password-file", "/p", "/home/ann"});
    expectAllRowsWereSeen();
}

TEST_F(JsonOutput, PathsThatAreNoUtf8AreInBase64)
{
    account_.write({{"b\xff", "22"}});
    const std::string file = account_.folder.path().string() + "/b\xff";
    const auto copied = account_.run({"copy", file, file + "2", "--json"});
    EXPECT_EQ(test::field(copied, "to_b64"), Base64::base64EncodingWithLineLength(file + "2", 0));
    const auto again = account_.run({"copy", file, file + "2", "--json"});
    EXPECT_NE(test::field(again, "message").get<std::string>().find("/b\ufffd2 exists already."),
              std::string::npos);
}

} // namespace
} // namespace stowline
