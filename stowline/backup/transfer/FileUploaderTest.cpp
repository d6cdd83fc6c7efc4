// What one file's upload sends, part by part, and which answers it does not go along with.
#include "stowline/backup/transfer/FileUploader.h"

#include "stowline/util/Crc32.h"
#include "tests/support/RawServer.h"
#include "tests/support/TestBundle.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <deque>

namespace stowline::backup {
namespace {

using test::named;
using test::RawServer;

constexpr const char* kContent = "0123456789";
constexpr std::uint64_t kPartBytes = 4;

/// Uploads a file of ten bytes, four at a time, to a service that says of each part in turn how
/// much it holds now, and in the end always the last of these. Nothing can be registered with it.
class Upload {
public:
    explicit Upload(std::deque<int> held)
        : held_(std::move(held)), server_([this](const std::string&, const auto& connection) {
              const std::lock_guard lock(mutex_);
              connection.send(fmt::format("HTTP/1.1 200 OK\r\nStatus: true\r\nX-ReceivedBytes: "
                                          "{}\r\nContent-Length: 0\r\n\r\n",
                                          held_.front()));
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
                              {"responseHeaderNames", Array{"Status", "X-ReceivedBytes"}}}}}}});
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

} // namespace
} // namespace stowline::backup
