// Opening, saving and fetching objects while everything that can fail does.
#include "stowline/util/store/ManagedObjectContext.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdlib>

namespace stowline {
namespace {

const std::vector<std::string> kCalled{"openat",      "new",    "pread64", "pwrite64", "fdatasync",
                                       "ftruncate64", "stat64", "fstat64", "unlink",   "mmap64",
                                       "open",        "open64", "fcntl64"};

/// Each turn opens the store, adds an object, saves, and counts.
class Storing {
public:
    /// @param mayLackError when there is no memory for an error either
    explicit Storing(bool mayLackError = false) : mayLackError_(mayLackError) {}

    test::Path path()
    {
        return {[this] { run(); }, [this] { check(); },
                [this] {
                    run();
                    EXPECT_TRUE(isSaved_) << error_->text();
                    check();
                }};
    }

private:
    void run()
    {
        isSaved_ = false;
        isTried_ = false;
        counted_.reset();
        error_.reset();
        try {
            const auto context = ManagedObjectContext::open(
                file_, {{"File", {{"name", AttributeType::string, true}}}}, &error_,
                {.lockPatience = std::chrono::milliseconds(20)});
            if (!context)
                return;
            const EntityDescription* entity = context->entityNamed("File");
            context->insertObject(*entity)->setValue("name", "a name that takes some room " +
                                                                 std::to_string(++names_));
            isTried_ = true;
            isSaved_ = context->save(&error_);
            counted_ =
                context->countForFetchRequest({.entity = entity}, isSaved_ ? &error_ : nullptr);
        } catch (const std::bad_alloc&) {
            isTried_ = false; // making an object may throw that, saving it does not
        }
    }

    /// A failure has an error; what was saved is there, and nothing else.
    void check()
    {
        saved_ += isSaved_ ? 1 : 0;
        EXPECT_TRUE(isSaved_ || error_ || !isTried_ || mayLackError_);
        EXPECT_TRUE(!counted_ || !isSaved_ || counted_ == saved_);
        std::optional<Error> error;
        const auto context = ManagedObjectContext::open(
            file_, {{"File", {{"name", AttributeType::string, true}}}}, &error);
        ASSERT_TRUE(context) << error->text();
        EXPECT_EQ(context->countForFetchRequest({.entity = context->entityNamed("File")}, &error),
                  saved_);
    }

    const bool mayLackError_;
    const test::TemporaryFolder folder_;
    const std::string file_ = folder_.path() / "store.sqlite";
    std::optional<Error> error_;
    std::optional<std::uint64_t> counted_;
    bool isSaved_ = false;
    bool isTried_ = false;
    std::uint64_t saved_ = 0;
    int names_ = 0;
};

class ObjectStoreFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(ObjectStoreFaults, LoseNothingThatWasSaved)
{
    if (GetParam().function == "fcntl64" && !std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "The database waits ten seconds for each lock; see scripts/test --long.";
    Storing storing(GetParam().function == "new" && GetParam().isPersistent);
    test::failInTurn(GetParam(), storing.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, ObjectStoreFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

TEST(ObjectStoreFaults, AreAllTried)
{
    Storing storing;
    EXPECT_EQ(test::unlisted(kCalled, storing.path()), std::vector<std::string>());
}

} // namespace
} // namespace stowline
