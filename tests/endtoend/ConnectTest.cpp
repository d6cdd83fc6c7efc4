// From a provider's address to a backup, with nothing that names a bundle.
#include "stowline/platform/files/Files.h"
#include "tests/endtoend/Command.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/RawServer.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::Words;

/// Somebody who has the programs and an address, and nothing else.
class Connect : public testing::Test {
protected:
    [[nodiscard]] test::ProgramResult run(Words words) const
    {
        words.insert(words.begin(), test::builtProgram("stowline"));
        return test::runProgram({std::move(words),
                                 {{"HOME", home_.path().string()},
                                  {"STOWLINE_USERNAME", "ann"},
                                  {"STOWLINE_PASSWORD", "a password"}},
                                 {}});
    }
    [[nodiscard]] fs::path kept() const { return home_.path() / ".config/stowline/provider.plist"; }

    test::TemporaryFolder home_;
};

TEST_F(Connect, LeadsFromAnAddressToARestoredFile)
{
    const test::DevServerProcess server;
    const auto connected = run({"connect", server.address()});
    EXPECT_EQ(connected.status, 0) << connected.errors;
    EXPECT_NE(connected.errors.find(server.address()), std::string::npos) << connected.errors;
    EXPECT_EQ(fs::status(kept()).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    EXPECT_EQ(run({"signup", "--email", "ann@example.com"}).status, 0);
    const auto file = home_.write("letters/one", "Dear reader");
    const auto stored = run({"backup", file.parent_path().string()});
    EXPECT_EQ(stored.status, 0) << stored.errors;
    const auto place = home_.path() / "restored";
    const auto restored = run({"restore", file.parent_path().string(), "--to", place.string()});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_EQ(platform::readFile(place / "letters/one"), "Dear reader");
}

TEST_F(Connect, KeepsWhatItHadWhenTheNewSettingsAreNotTaken)
{
    const test::DevServerProcess server;
    ASSERT_EQ(run({"connect", server.address()}).status, 0);
    const auto before = platform::readFile(kept());
    EXPECT_EQ(run({"connect", server.address() + "/none.plist"}).status, 4);
    EXPECT_EQ(run({"connect", "http://backup.example.com"}).status, 2);
    EXPECT_EQ(run({"connect", server.address() + "/AccountService.asmx?wsdl"}).status, 10);
    EXPECT_EQ(platform::readFile(kept()), before);
}

TEST_F(Connect, ASettingsFileThatIsNamedComesFirst)
{
    const test::DevServerProcess kept;
    const test::DevServerProcess named;
    ASSERT_EQ(run({"connect", kept.address()}).status, 0);
    ASSERT_EQ(run({"signup", "--email", "ann@example.com"}).status, 0);
    EXPECT_EQ(run({"signin"}).status, 0);
    EXPECT_EQ(run({"--bundle", named.bundle().string(), "signin"}).status, 12);
}

TEST_F(Connect, SaysThatANamedBundleComesFirst)
{
    const test::DevServerProcess server;
    const test::DevServerProcess named;
    for (const Words& words : {Words{"connect", server.address()}, {"disconnect"}}) {
        Words all{"--bundle", named.bundle().string()};
        all.insert(all.end(), words.begin(), words.end());
        const auto result = run(all);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_NE(result.errors.find("The bundle " + named.bundle().string() + " is named"),
                  std::string::npos)
            << result.errors;
        EXPECT_EQ(result.errors.find("from now on"), std::string::npos) << result.errors;
    }
}

TEST_F(Connect, WaitsForNoPipeInThePlaceOfTheSettings)
{
    fs::create_directories(kept().parent_path());
    ASSERT_EQ(::mkfifo(kept().c_str(), 0600), 0);
    EXPECT_EQ(run({"signin"}).status, 8); // by the settings that came with the program
    const test::DevServerProcess server;
    EXPECT_EQ(run({"connect", server.address()}).status, 0);
    EXPECT_TRUE(fs::is_regular_file(kept()));
}

TEST_F(Connect, GoesThroughNoProxyToThisMachine)
{
    const test::DevServerProcess server;
    const test::RawServer proxy(test::httpAnswer("not a settings file"));
    const std::string place = proxy.url();
    auto words = Words{test::builtProgram("stowline"), "connect", server.address()};
    const auto result = test::runProgram(
        {words,
         {{"HOME", home_.path().string()}, {"http_proxy", place}, {"all_proxy", place}},
         {}});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(proxy.requests().empty());
}

TEST_F(Connect, EndsWithTheStatusOfWhatWentWrong)
{
    const auto statusOf = [this](const std::string& address) {
        return run({"connect", address}).status;
    };
    const test::RawServer broken(test::httpAnswer("sorry", 500));
    EXPECT_EQ(statusOf(broken.url()), 5);
    const test::RawServer closed(test::httpAnswer("no", 403));
    EXPECT_EQ(statusOf(closed.url()), 6);
    const test::RawServer absent(test::httpAnswer("no", 404));
    EXPECT_EQ(statusOf(absent.url()), 4);
    const test::RawServer endless([](const std::string&, const test::RawConnection& connection) {
        bool isOpen = connection.send("HTTP/1.1 200 OK\r\n\r\n");
        while (isOpen)
            isOpen = connection.send(std::string(65536, 'x'));
    });
    EXPECT_EQ(statusOf(endless.url()), 5);
    EXPECT_EQ(statusOf("http://127.0.0.1:" + std::to_string(test::closedPort())), 8);
    EXPECT_FALSE(fs::exists(kept()));
}

TEST_F(Connect, IsAllThatDoctorAsksForBeforeIt)
{
    const auto before = run({"doctor", "-u", "ann"});
    EXPECT_EQ(before.status, 1);
    EXPECT_NE(before.output.find("FAULT network       The settings in use name no service: "),
              std::string::npos)
        << before.output;
    EXPECT_NE(before.errors.find("1 fault was found"), std::string::npos)
        << before.output << before.errors;
    for (const char* subject : {"tls", "account"})
        EXPECT_EQ(before.output.find(std::string(" ") + subject + " "), std::string::npos)
            << before.output;
    EXPECT_NE(before.output.find("ok    last-run"), std::string::npos) << before.output;
}

TEST_F(Connect, IsTakenBack)
{
    const test::DevServerProcess server;
    ASSERT_EQ(run({"connect", server.address()}).status, 0);
    EXPECT_NE(run({"doctor"}).output.find(kept().string()), std::string::npos);
    EXPECT_EQ(run({"disconnect"}).status, 0);
    EXPECT_FALSE(fs::exists(kept()));
    EXPECT_EQ(run({"disconnect"}).status, 4);
}

TEST_F(Connect, TheSettingsThatComeWithTheProgramSayThatTheyNameNoService)
{
    const auto result = run({"signin"});
    EXPECT_EQ(result.status, 8) << result.errors;
    EXPECT_NE(result.errors.find("stowline connect ADDRESS"), std::string::npos) << result.errors;
}

} // namespace
} // namespace stowline
