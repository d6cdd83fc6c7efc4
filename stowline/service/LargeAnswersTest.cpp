// What large answers, and helpers that write without end, cost the host and the helper.
#include "stowline/platform/files/Files.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/Helpers.h"
#include "tests/support/Program.h"
#include "tests/support/SoapAnswers.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace stowline {
namespace {

using test::HelperForm;
using test::RawConnection;
using test::RawServer;

Dictionary settingsFor(const std::string& url)
{
    return test::settingsWith("M", Dictionary{{"URL", url}, {"namespace", "urn:t"}});
}

std::optional<Value> call()
{
    return WebServiceBroker::invokeSOAPMethodWithName("M", {}, {});
}

/// What the development service says of one file.
std::string entry(int number)
{
    const std::string digits = std::to_string(1'000'000 + number).substr(1);
    return "<FileInfo><Name>file " + digits + ".txt</Name><FileID>" + digits +
           "</FileID><IsFolder>false</IsFolder><Size>1024</Size><Path>/big</Path>"
           "<SystemName>iMac</SystemName><Modified>2026-01-01 00:00:00</Modified><Checksum>cafe" +
           digits + "</Checksum><Versions>1</Versions><IsPackage>false</IsPackage></FileInfo>";
}

std::string listing(int entries)
{
    std::string text = "<items>";
    for (int i = 0; i < entries; ++i)
        text += entry(i);
    return test::soapAnswer(text + "</items>");
}

/// Answers every request with the same text, in a process whose memory is nobody's.
class AnsweringProcess {
public:
    explicit AnsweringProcess(const std::function<std::string()>& answer)
    {
        int told[2];
        EXPECT_EQ(::pipe(told), 0);
        process_ = ::fork();
        if (process_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const RawServer server(answer());
            const int port = server.port();
            (void)!::write(told[1], &port, sizeof port);
            for (;;)
                ::pause();
        }
        EXPECT_EQ(::read(told[0], &port_, sizeof port_), ssize_t(sizeof port_));
        ::close(told[0]);
        ::close(told[1]);
    }
    ~AnsweringProcess()
    {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    AnsweringProcess(const AnsweringProcess&) = delete;
    AnsweringProcess& operator=(const AnsweringProcess&) = delete;
    [[nodiscard]] std::string url() const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + "/";
    }

private:
    pid_t process_ = -1;
    int port_ = 0;
};

struct Peaks {
    long host = 0;
    long helper = 0;
};

/// The most memory that a call took, in bytes, in a process of its own.
Peaks peaksOfOneCall()
{
    const test::TemporaryFolder folder;
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&folder] {
        EXPECT_TRUE(call());
        rusage own{};
        rusage helper{};
        ::getrusage(RUSAGE_SELF, &own);
        ::getrusage(RUSAGE_CHILDREN, &helper);
        folder.write("peaks",
                     std::to_string(own.ru_maxrss) + " " + std::to_string(helper.ru_maxrss));
    }));
    Peaks peaks;
    std::istringstream(platform::readFile(folder.path() / "peaks").value_or("")) >> peaks.host >>
        peaks.helper;
    return {peaks.host * 1024, peaks.helper * 1024};
}

TEST(LargeAnswer, TakesMemoryInProportionToItsBytes)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "A sanitizer takes memory of its own.";
#endif
    constexpr int entries = 50'000;
    const AnsweringProcess small([] { return listing(1); });
    const AnsweringProcess large([] { return listing(entries); });
    Peaks before;
    {
        const test::TestBundle bundle(settingsFor(small.url()));
        before = peaksOfOneCall();
    }
    const test::TestBundle bundle(settingsFor(large.url()));
    const Peaks after = peaksOfOneCall();
    const long bytes = static_cast<long>(entry(0).size()) * entries;
    const auto times = [bytes](long peak) { return static_cast<double>(peak) / double(bytes); };
    std::cout << "host " << times(after.host - before.host) << ", helper "
              << times(after.helper - before.helper) << " times the answer's bytes\n";
    EXPECT_LE(times(after.host - before.host), 15);
    EXPECT_LE(times(after.helper - before.helper), 12);
}

TEST(LargeAnswer, OfHalfAMillionEntriesArrivesWhole)
{
    constexpr std::size_t entries = 500'000;
    const AnsweringProcess server([] {
        std::string text = "<items>";
        for (std::size_t i = 0; i < entries; ++i)
            text += "<FileInfo><Name>file " + std::to_string(i) +
                    ".txt</Name><IsFolder>false</IsFolder><Size>1024</Size></FileInfo>";
        return test::soapAnswer(text + "</items>");
    });
    const test::TestBundle bundle(settingsFor(server.url()));
    std::optional<Error> error;
    const auto result = WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error);
    ASSERT_TRUE(result) << (error ? error->text() : "no error");
    const auto items = valueAtKeyPath(*result, "items.FileInfo");
    ASSERT_TRUE(items && items->count() == entries)
        << valueAtKeyPath(*result, "kWSFaultString").value_or("no fault").text();
    const Array& list = *std::as_const(*items).array();
    EXPECT_EQ(
        list.back(),
        Value(Dictionary{{"Name", "file 499999.txt"}, {"IsFolder", "false"}, {"Size", "1024"}}));
}

class LargeHelper : public testing::TestWithParam<HelperForm> {
protected:
    LargeHelper() { WebServiceBroker::useNursery(GetParam() == HelperForm::ofNursery); }
};

INSTANTIATE_TEST_SUITE_P(Forms, LargeHelper, testing::ValuesIn(test::kHelperForms),
                         test::nameOfForm);

TEST_P(LargeHelper, HasAnAddressSpaceOfOneGibibyte)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "A sanitizer takes more address space than the limit leaves.";
#endif
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const test::TestBundle bundle(settingsFor(silent.url()));
    const StopRequest stop;
    std::jthread calling([&stop] {
        const StopScope scope(stop);
        EXPECT_FALSE(call());
    });
    while (silent.requests().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const auto helpers = test::helpersOf(::getpid());
    ASSERT_EQ(helpers.size(), 1U);
    const std::string limits =
        platform::readFile("/proc/" + std::to_string(helpers.front()) + "/limits").value_or("");
    stop.request();
    const auto line = limits.find("Max address space");
    ASSERT_NE(line, std::string::npos);
    std::istringstream words(limits.substr(line + sizeof "Max address space" - 1));
    std::uint64_t soft = 0;
    words >> soft;
    EXPECT_EQ(soft, 1U << 30);
}

TEST_P(LargeHelper, OneThatWritesForEverIsEndedAndToldWithTheLimit)
{
    const RawServer nobody(test::soapAnswer("<a>x</a>"));
    const test::TemporaryFolder folder;
    std::filesystem::create_symlink(test::builtProgram("nursery_stand_in"),
                                    folder.path() / "WebServiceCaller");
    const test::TestBundle bundle(settingsFor(nobody.url()), {}, folder.path());
    const test::TemporaryFolder found;
    ::setenv("STOWLINE_STAND_IN", "writes for ever", 1);
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&found] {
        std::optional<Error> error;
        EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind, FailureKind::tooLarge);
        EXPECT_EQ(error->localizedDescription(), "The answer is larger than 268435456 bytes.");
        rusage own{};
        ::getrusage(RUSAGE_SELF, &own);
        found.write("peak", std::to_string(own.ru_maxrss));
        EXPECT_EQ(test::nurseriesOf(::getpid()).size(), 0U) << "it is given up";
        EXPECT_TRUE(test::helpersOf(::getpid()).empty());
    }));
    constexpr long mostKb = 900L * 1024;
    EXPECT_LT(std::stol(platform::readFile(found.path() / "peak").value_or("0")), mostKb);
}

} // namespace
} // namespace stowline
