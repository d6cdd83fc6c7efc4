// Copying a file while everything that can fail does.
#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/TemporaryFolder.h"

namespace stowline {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kCalled{"new",  "stat",   "lstat", "fstat",           "fstatat",
                                       "open", "openat", "read",  "copy_file_range", "lseek"};

class Copying {
public:
    test::Path path()
    {
        return {[this] { isCopied_ = General::copyFileAt(source_, target_); }, [this] { check(); },
                [this] {
                    isCopied_ = General::copyFileAt(source_, target_);
                    EXPECT_TRUE(isCopied_);
                    check();
                }};
    }

private:
    /// All or nothing, and the source as it was.
    void check()
    {
        EXPECT_EQ(platform::readFile(source_), content_);
        EXPECT_EQ(platform::readFile(target_), isCopied_ ? std::optional(content_) : std::nullopt);
        fs::remove(target_);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1);
    }

    const test::TemporaryFolder folder_;
    const std::string content_ = std::string(300000, 'x');
    const std::string source_ = folder_.write("source", content_);
    const std::string target_ = folder_.path() / "target";
    bool isCopied_ = false;
};

class CopyFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(CopyFaults, LeaveAllOrNothing)
{
    Copying copying;
    test::failInTurn(GetParam(), copying.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, CopyFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

TEST(CopyFaults, AreAllTried)
{
    Copying copying;
    EXPECT_EQ(test::unlisted(kCalled, copying.path()), std::vector<std::string>());
}

} // namespace
} // namespace stowline
