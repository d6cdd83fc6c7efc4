// What one file's upload sends, part by part, and which answers it does not go along with.
#include "stowline/backup/transfer/FileUploader.h"

#include "stowline/util/Crc32.h"
#include "tests/support/SoapAnswers.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>

namespace stowline::backup {
namespace {

using test::named;
using test::RawServer;

constexpr const char* kContent = "0123456789";
constexpr std::uint64_t kPartBytes = 4;

/// Uploads a file of ten bytes, four at a time, to a service that says of each part in turn how
/// much it holds now, and in the end always the last of these. Nothing can be registered with it.
/// @param more lines of each answer's head
class Upload {
public:
    explicit Upload(std::deque<int> held, const std::string& more = {})
        : held_(std::move(held)), server_([this, more](const std::string&, const auto& connection) {
              const std::lock_guard lock(mutex_);
              connection.send(fmt::format("HTTP/1.1 200 OK\r\nStatus: true\r\nX-ReceivedBytes: "
                                          "{}\r\n{}Content-Length: 0\r\n\r\n",
                                          held_.front(), more));
              if (held_.size() > 1)
                  held_.pop_front();
          })
    {
        const test::TestBundle bundle(
            {{"WebRequests",
              Dictionary{
                  {"UploadFilePart",
                   Dictionary{{"URL", "http://%@/UploadFilePart"},
                              {"httpMethod", "POST"},
                              {"requestHeaders", Array{named("X-Guid", "<<GUID>>")}},
                              {"responseHeaderNames", Array{"Status", "X-ReceivedBytes",
                                                            "X-Registered", "X-VersionID"}}}}}}});
        const UploadJournal journal(folder_.path() / "journal");
        BandwidthLimit unlimited(0, std::chrono::steady_clock::now);
        Tries tries(Duration::zero(), StopRequest());
        UploadContext context(journal, unlimited, tries);
        context.account = {"ann", "pw", "127.0.0.1:" + std::to_string(server_.port()), "iMac"};
        context.serverPath = "/vol1/";
        context.partBytes = kPartBytes;
        const auto file = folder_.write("file", kContent);
        UploadSubject subject{.path = file,
                              .remoteFolder = "/",
                              .remoteName = "file",
                              .open =
                                  [file](int& error) {
                                      return platform::SourceFile::open(
                                          platform::SourceFile::kNoFolder, file, error);
                                  },
                              .isJournaled = false};
        outcome_ = FileUploader(context, std::move(subject)).upload();
    }

    [[nodiscard]] const UploadOutcome& outcome() const { return outcome_; }

    /// What each part said of itself behind the file's identifier, and its bytes.
    [[nodiscard]] std::vector<std::string> parts() const
    {
        std::vector<std::string> parts;
        for (const std::string& request : server_.requests()) {
            const auto identifier = request.find("X-Guid: ");
            const auto from = request.find(';', identifier);
            parts.push_back(request.substr(from, request.find("\r\n", from) - from) + " " +
                            request.substr(request.find("\r\n\r\n") + 4));
        }
        return parts;
    }

private:
    std::mutex mutex_;
    std::deque<int> held_;
    RawServer server_;
    test::TemporaryFolder folder_;
    UploadOutcome outcome_;
};

std::string part(std::size_t offset, std::size_t size)
{
    const std::string bytes = std::string(kContent).substr(offset, size);
    return fmt::format(";offset={};crc32={:08x} {}", offset,
                       Crc32::updateCRC32(0, bytes.data(), bytes.size()), bytes);
}

TEST(FileUploader, APartCarriesItsPlaceAndItsChecksum)
{
    const Upload upload({4, 8, 10});
    EXPECT_EQ(upload.parts(), (std::vector{part(0, 4), part(4, 4), part(8, 2)}));
}

TEST(FileUploader, GoesBackToWhatTheServiceHoldsOfIt)
{
    const Upload upload({4, 3, 7, 10});
    EXPECT_EQ(upload.parts(), (std::vector{part(0, 4), part(4, 4), part(3, 4), part(7, 3)}));
}

TEST(FileUploader, GoesForwardToWhatTheServiceHoldsOfIt)
{
    const Upload upload({9, 10});
    EXPECT_EQ(upload.parts(), (std::vector{part(0, 4), part(9, 1)}));
}

TEST(FileUploader, DoesNotFeedAServiceThatLosesItAllForEver)
{
    const Upload upload({0});
    EXPECT_EQ(upload.outcome().kind, UploadOutcome::Kind::refused);
    EXPECT_NE(upload.outcome().sentence.find("the service loses what it is sent."),
              std::string::npos)
        << upload.outcome().sentence;
    EXPECT_EQ(upload.parts(), (std::vector{part(0, 4), part(0, 4), part(0, 4)}));
}

TEST(FileUploader, DoesNotBelieveThatMoreIsHeldThanThereIs)
{
    const Upload upload({11});
    EXPECT_EQ(upload.outcome().kind, UploadOutcome::Kind::refused);
    EXPECT_NE(upload.outcome().sentence.find("holds more bytes of it than it has"),
              std::string::npos)
        << upload.outcome().sentence;
    EXPECT_EQ(upload.parts().size(), 1U);
}

TEST(FileUploader, DoesNotBelieveThatHalfOfItIsRegistered)
{
    const Upload upload({4}, "X-Registered: true\r\n");
    EXPECT_EQ(upload.outcome().kind, UploadOutcome::Kind::temporary);
    EXPECT_NE(upload.outcome().sentence.find("registered, but not that it holds all of it"),
              std::string::npos)
        << upload.outcome().sentence;
}

TEST(FileUploader, BelievesThatAllOfItIsRegistered)
{
    const Upload upload({10}, "X-Registered: true\r\nX-VersionID: 7\r\n");
    EXPECT_EQ(upload.outcome().kind, UploadOutcome::Kind::stored) << upload.outcome().sentence;
}

/// Uploads small files to a service that says yes to every registration, and to the questions after
/// them in turn these headers, in the end always the last; none: a no, "cut": nothing at all.
class Registering {
public:
    explicit Registering(std::deque<std::string> answers)
        : answers_(std::move(answers)),
          server_([this](const std::string& request, const auto& connection) {
              if (request.starts_with("GET /GetServerPartInfo"))
                  answer(connection);
              else if (request.starts_with("POST /protect2"))
                  connection.send(test::soapAnswer("<r>Success</r>"));
              else
                  connection.send("HTTP/1.1 200 OK\r\nStatus: true\r\nX-ReceivedBytes: 10\r\n"
                                  "Content-Length: 0\r\n\r\n");
          }),
          bundle_(settings()), journal_(folder_.path() / "journal"),
          context_(journal_, unlimited_, tries_)
    {
        context_.account = {"ann", "pw", "127.0.0.1:" + std::to_string(server_.port()), "iMac"};
        context_.serverPath = "/vol1/";
    }

    UploadOutcome upload()
    {
        const auto file = folder_.write("file", kContent);
        UploadSubject subject{.path = file,
                              .remoteFolder = "/",
                              .remoteName = "file",
                              .open =
                                  [file](int& error) {
                                      return platform::SourceFile::open(
                                          platform::SourceFile::kNoFolder, file, error);
                                  },
                              .isJournaled = false};
        return FileUploader(context_, std::move(subject)).upload();
    }

    /// The content that the last registration named.
    [[nodiscard]] std::string registeredKey() const
    {
        std::string key;
        for (const std::string& request : server_.requests()) {
            constexpr std::string_view open = "<UNIQUEKEY>";
            const auto at = request.find(open);
            if (at != std::string::npos)
                key = request.substr(at + open.size(),
                                     request.find('<', at + open.size()) - at - open.size());
        }
        return key;
    }

    [[nodiscard]] long requests(const std::string& start) const
    {
        return std::ranges::count_if(server_.requests(), [&start](const std::string& request) {
            return request.starts_with(start);
        });
    }

private:
    static Dictionary settings()
    {
        Dictionary settings =
            test::settingsWith("protect2", test::methodEntry("http://%@/protect2",
                                                             {"ACTUALFILENAME", "UNIQUEKEY"}, "r"));
        settings.emplace(
            "WebRequests",
            Dictionary{
                {"UploadFilePart",
                 Dictionary{{"URL", "http://%@/UploadFilePart"},
                            {"httpMethod", "POST"},
                            {"responseHeaderNames", Array{"Status", "X-ReceivedBytes"}}}},
                {"GetServerPartInfo",
                 Dictionary{{"URL", "http://%@/GetServerPartInfo"},
                            {"httpMethod", "GET"},
                            {"responseHeaderNames", Array{"Status", "X-Registered", "X-VersionID",
                                                          "X-ListID", "X-ServerPath"}}}}});
        return settings;
    }

    void answer(const test::RawConnection& connection)
    {
        const std::lock_guard lock(mutex_);
        const std::string headers = answers_.front();
        if (answers_.size() > 1)
            answers_.pop_front();
        if (headers == "cut")
            return connection.reset();
        connection.send("HTTP/1.1 200 OK\r\n" +
                        (headers.empty() ? "Status: false\r\n" : "Status: true\r\n" + headers) +
                        "Content-Length: 0\r\n\r\n");
    }

    std::mutex mutex_;
    std::deque<std::string> answers_;
    RawServer server_;
    const test::TestBundle bundle_;
    test::TemporaryFolder folder_;
    const UploadJournal journal_;
    BandwidthLimit unlimited_{0, std::chrono::steady_clock::now};
    Tries tries_{std::chrono::minutes(5), StopRequest()};
    UploadContext context_;
};

constexpr const char* kRegistered = "X-Registered: true\r\n";
constexpr const char* kNotRegistered = "X-Registered: false\r\n";
constexpr const char* kVersion7 = "X-Registered: true\r\nX-VersionID: 7\r\nX-ListID: seven\r\n";

TEST(FileUploader, AYesThatIsDeniedWhenAskedIsNone)
{
    Registering service({kNotRegistered});
    const auto outcome = service.upload();
    EXPECT_EQ(outcome.kind, UploadOutcome::Kind::refused);
    EXPECT_NE(outcome.sentence.find("the service does not register it."), std::string::npos)
        << outcome.sentence;
    EXPECT_EQ(service.requests("POST /protect2"), 3);
}

TEST(FileUploader, RegistersAgainWhatIsNotRegistered)
{
    Registering service({kNotRegistered, kVersion7});
    const auto outcome = service.upload();
    EXPECT_EQ(outcome.kind, UploadOutcome::Kind::stored) << outcome.sentence;
    EXPECT_EQ(outcome.content.version, "7");
    EXPECT_EQ(outcome.content.list, "seven");
    EXPECT_EQ(service.requests("POST /protect2"), 2);
}

TEST(FileUploader, BelievesNoAnswerAboutAnotherFile)
{
    const std::string ofAnother = "X-Registered: true\r\nX-VersionID: 9\r\nX-ListID: nine\r\n"
                                  "X-ServerPath: /vol1/0A0A0A0A-1B1B-2C2C-3D3D-4E4E4E4E4E4E\r\n";
    Registering service({ofAnother, kVersion7});
    const auto outcome = service.upload();
    EXPECT_EQ(outcome.kind, UploadOutcome::Kind::stored) << outcome.sentence;
    EXPECT_EQ(outcome.content.version, "7");
    EXPECT_EQ(service.requests("POST /protect2"), 1);
    // A place that names no upload says nothing about the file.
    Registering plain({std::string(kVersion7) + "X-ServerPath: /vol1/\r\n"});
    EXPECT_EQ(plain.upload().content.version, "7");
}

TEST(FileUploader, RegistersTheContentUnderItsIdentifierAndItsChecksum)
{
    Registering service({kVersion7});
    EXPECT_EQ(service.upload().kind, UploadOutcome::Kind::stored);
    const std::string key = service.registeredKey();
    const std::string content(kContent);
    EXPECT_EQ(key.substr(std::min(key.find(';'), key.size())),
              fmt::format(";crc32={:08x}", Crc32::updateCRC32(0, content.data(), content.size())));
    EXPECT_GT(key.find(';'), 0U);
}

TEST(FileUploader, AsksAgainWhenAQuestionFailed)
{
    Registering service({"cut", kVersion7});
    const auto outcome = service.upload();
    EXPECT_EQ(outcome.kind, UploadOutcome::Kind::stored) << outcome.sentence;
    EXPECT_EQ(outcome.content.version, "7");
    EXPECT_EQ(service.requests("POST /protect2"), 1);
}

TEST(FileUploader, AnAnswerWithoutAVersionConcernsItsFileAlone)
{
    Registering service({kRegistered, kVersion7});
    EXPECT_EQ(service.upload().content.version, "");
    EXPECT_EQ(service.upload().content.version, "7");
}

TEST(FileUploader, AVersionThatIsNoNumberIsNone)
{
    for (const char* text : {"-7", "0", "7,8", "seven", "99999999999999999999"}) {
        Registering service(
            {std::string(kRegistered) + "X-VersionID: " + text + "\r\nX-ListID: seven\r\n"});
        const auto outcome = service.upload();
        EXPECT_EQ(outcome.kind, UploadOutcome::Kind::stored) << outcome.sentence;
        EXPECT_EQ(outcome.content.version, "") << text;
        EXPECT_EQ(outcome.content.list, "") << text;
    }
}

TEST(FileUploader, AServiceThatAnswersNoQuestionsIsBelievedAndAskedNoMore)
{
    Registering service({""});
    EXPECT_EQ(service.upload().kind, UploadOutcome::Kind::stored);
    EXPECT_EQ(service.requests("GET /GetServerPartInfo"), 3);
    EXPECT_EQ(service.upload().kind, UploadOutcome::Kind::stored);
    EXPECT_EQ(service.requests("GET /GetServerPartInfo"), 3);
}

TEST(FileUploader, AServiceThatHasToldVersionsMustAnswer)
{
    Registering service({kVersion7, ""});
    EXPECT_EQ(service.upload().kind, UploadOutcome::Kind::stored);
    const auto outcome = service.upload();
    EXPECT_EQ(outcome.kind, UploadOutcome::Kind::refused);
    EXPECT_NE(outcome.sentence.find("the service does not say that it is registered."),
              std::string::npos)
        << outcome.sentence;
}

/// What this process has read with system calls so far.
std::uint64_t bytesRead()
{
    std::ifstream counts("/proc/self/io");
    std::string name;
    std::uint64_t value = 0;
    while (counts >> name >> value) {
        if (name == "rchar:")
            return value;
    }
    return 0;
}

TEST(ReadContent, ReadsNoHoles)
{
    const test::TemporaryFolder folder;
    constexpr std::uint64_t size = 128U << 20;
    const auto path = folder.write("sparse", "begins");
    std::filesystem::resize_file(path, size);
    std::ofstream(path, std::ios::in | std::ios::out | std::ios::ate) << "ends";
    int error = 0;
    const auto file =
        platform::SourceFile::open(platform::SourceFile::kNoFolder, path.string(), error);
    ASSERT_TRUE(file);
    const std::uint64_t before = bytesRead();
    if (before == 0)
        GTEST_SKIP() << "no /proc/self/io here";
    const auto reading = readContent(*file, StopRequest());
    EXPECT_LT(bytesRead() - before, 16U << 20);
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->state.size, size + 4);
    std::string whole = "begins" + std::string(size - 6, '\0') + "ends";
    EXPECT_EQ(reading->checksum, Crc32::updateCRC32(0, whole.data(), whole.size()));
}

TEST(ReadContent, EndsWithAFileThatHasMoreThanItsSize)
{
    // As one that grows faster than it is read: it says that it is empty, and its 256 GiB take
    // hours.
    int error = 0;
    const auto file =
        platform::SourceFile::open(platform::SourceFile::kNoFolder, "/proc/self/pagemap", error);
    if (!file)
        GTEST_SKIP() << "no /proc/self/pagemap here";
    EXPECT_FALSE(readContent(*file, StopRequest()));
}

} // namespace
} // namespace stowline::backup
