// Deletions, monitoring, reports and e-mail.
#include "devserver/BackupService.h"
#include "devserver/ReportServices.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <thread>

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;

class Reporting : public testing::Test {
protected:
    void store(const std::string& guid, const std::string& folder, const std::string& name)
    {
        const UploadPlace place{"ann", storage_.uploadPath("ann", 1, "G"), guid};
        ASSERT_TRUE(storage_.addPart(place, {.fileName = name, .bytes = "x"}));
        ASSERT_EQ(storage_.registerFile({.place = place,
                                         .systemName = "iMac",
                                         .folder = folder,
                                         .name = name,
                                         .size = 1,
                                         .uploadedSize = 1}),
                  RegistrationOutcome::success);
    }

    static DeletionState awaitEnd(Deletions& deletions, const std::string& guid)
    {
        for (;;) {
            const auto state = deletions.state("ann", guid);
            if (!state || state->isCompleted || state->isCancelled)
                return state.value_or(DeletionState{});
            std::this_thread::sleep_for(1ms);
        }
    }

    test::TemporaryFolder folder_;
    Storage storage_{folder_.path()};
    Journal journal_{folder_.path()};
};

TEST_F(Reporting, ADeletionTakesAFolderAndNothingElse)
{
    store("g1", "/a/b", "f");
    store("g2", "/a/b/c", "g");
    store("g3", "/a", "h");
    store("g4", "/a/bc", "i");
    Deletions deletions(storage_, 0ms);
    EXPECT_EQ(deletions.begin("ann", "iMac", "/nowhere"), std::nullopt);
    EXPECT_EQ(deletions.begin("bob", "iMac", "/a/b"), std::nullopt);
    const auto guid = deletions.begin("ann", "iMac", "/a/b/");
    ASSERT_TRUE(guid);
    EXPECT_FALSE(deletions.state("bob", *guid));
    const DeletionState end = awaitEnd(deletions, *guid);
    EXPECT_TRUE(end.isCompleted);
    EXPECT_EQ(end.deleted, 2);
    const auto left = storage_.search({.userName = "ann", .pageSize = 9}, "*", "").value();
    ASSERT_EQ(left.items.size(), 2U);
    EXPECT_EQ(left.items[0].name, "h");
    EXPECT_EQ(left.items[1].name, "i");
}

TEST_F(Reporting, ADeletionCanBeCancelledHalfWay)
{
    for (int i = 0; i < 5; ++i)
        store("g" + std::to_string(i), "/a", "f" + std::to_string(i));
    Deletions deletions(storage_, 1h);
    const auto guid = deletions.begin("ann", "iMac", "/a");
    ASSERT_TRUE(guid);
    while (deletions.state("ann", *guid)->deleted == 0)
        std::this_thread::sleep_for(1ms);
    deletions.cancel("bob", *guid); // not his
    deletions.cancel("ann", *guid);
    const DeletionState end = awaitEnd(deletions, *guid);
    EXPECT_TRUE(end.isCancelled);
    EXPECT_FALSE(end.isCompleted);
    EXPECT_EQ(end.deleted, 1);
    EXPECT_EQ(storage_.search({.userName = "ann", .pageSize = 9}, "*", "")->items.size(), 4U);
}

TEST(MonitoringTokens, AreGoodForTheirTimeFromTheFirstUse)
{
    MonitoringTokens::Clock::time_point now{};
    MonitoringTokens tokens([&now] { return now; });
    tokens.add("T", 10s);
    EXPECT_FALSE(tokens.isGood("other"));
    now += 1h;
    EXPECT_TRUE(tokens.isGood("T"));
    now += 9s;
    EXPECT_TRUE(tokens.isGood("T"));
    now += 1s;
    EXPECT_FALSE(tokens.isGood("T"));
}

TEST_F(Reporting, EventsAreKeptWithoutTheirToken)
{
    MonitoringTokens tokens;
    tokens.add("secret-token", 1h);
    const Service service = monitoringService(journal_, tokens);
    const auto logEvent = [&service](const std::string& token) {
        return service.find("LogEvent")
            ->answer({{"authToken", token}, {"eventType", "BackupEnded"}, {"systemName", "iMac"}});
    };
    EXPECT_EQ(logEvent("secret-token").at("LogEventResult"), Value("Success"));
    try {
        (void)logEvent("wrong");
        FAIL() << "a wrong token was taken";
    } catch (const ServiceFault& fault) {
        EXPECT_STREQ(fault.what(), "InvalidAuthenticationTokenFault");
    }
    const auto events = journal_.events(9);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(platform::findText(events[0].fields, "eventType"), "BackupEnded");
    EXPECT_EQ(platform::find(events[0].fields, "authToken"), nullptr);
    EXPECT_TRUE(service.find("GetSettings")
                    ->answer({{"authToken", "secret-token"}})
                    .at("GetSettingsResult")
                    .dictionary());
}

TEST_F(Reporting, MailIsKeptAsAMailReaderTakesIt)
{
    const std::string subject = "Sicherung für Zoë – " + std::string(60, 'x') + "ü";
    ASSERT_TRUE(journal_.keep({.to = "a@b.example",
                               .from = "c@d.example",
                               .subject = subject,
                               .body = "<p>Grüße</p>\n" + std::string(300, 'y'),
                               .isHtml = true}));
    std::filesystem::path mail;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path() / "mail"))
        mail = file.path();
    const auto read =
        test::runProgram({{"/usr/bin/python3", "-c",
                           "import email, email.policy, sys\n"
                           "m = email.message_from_binary_file(open(sys.argv[1], 'rb'), "
                           "policy=email.policy.default)\n"
                           "assert not m.defects, m.defects\n"
                           "print(m['subject']); print(m['to'], m['from'], m.get_content_type())\n"
                           "print(m['date'].datetime.tzinfo); print(m.get_content(), end='')\n",
                           mail.string()}});
    EXPECT_EQ(read.errors, "");
    EXPECT_EQ(read.output, subject + "\na@b.example c@d.example text/html\nUTC\n<p>Grüße</p>\n" +
                               std::string(300, 'y'));
    const std::string text = platform::readFile(mail).value();
    for (std::size_t start = 0; start < text.size();) {
        const auto end = text.find("\r\n", start);
        ASSERT_NE(end, std::string::npos);
        EXPECT_LE(end - start, 78U);
        start = end + 2;
    }
}

TEST_F(Reporting, AddressesCannotWriteHeaders)
{
    for (const char* bad : {"", "nobody", "a@b\r\nBcc: x@y", "a b@c", "@", "é@b"}) {
        EXPECT_FALSE(journal_.keep({.to = bad, .from = "c@d"})) << bad;
        EXPECT_FALSE(journal_.keep({.to = "c@d", .from = bad})) << bad;
    }
    ASSERT_TRUE(journal_.keep({.to = "a@b", .from = "c@d", .subject = "x\r\nBcc: evil@x"}));
    for (const auto& file : std::filesystem::directory_iterator(folder_.path() / "mail"))
        EXPECT_EQ(platform::readFile(file.path())->find("Bcc"), std::string::npos);
}

TEST_F(Reporting, LinesAreToldToTheAccountThatTheyName)
{
    journal_.addEvent({{"userName", "ann"}, {"eventType", "first"}});
    journal_.addEvent({{"userName", "bob"}, {"eventType", "second"}});
    journal_.addEvent({{"eventType", "nobody's"}});
    const std::string ann = "ann";
    const auto events = journal_.events(9, &ann);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(platform::findText(events[0].fields, "eventType"), "first");
    EXPECT_EQ(journal_.events(9).size(), 3U);
    const std::string nobody;
    EXPECT_EQ(journal_.reports(9, &nobody).size(), 0U);
}

TEST_F(Reporting, LinesOfAnEarlierVersionAreToldToTheirAccountsToo)
{
    journal_.addReport({{"userName", "ann"}, {"machineName", "iMac"}});
    SQLite::Database((folder_.path() / "journal.sqlite").string(), SQLite::OPEN_READWRITE, 5000)
        .exec("DROP INDEX journal_of_user; ALTER TABLE journal DROP COLUMN user_name");
    Journal later(folder_.path());
    const std::string ann = "ann";
    ASSERT_EQ(later.reports(9, &ann).size(), 1U);
    EXPECT_EQ(platform::findText(later.reports(9, &ann)[0].fields, "machineName"), "iMac");
}

} // namespace
} // namespace stowline::devserver
