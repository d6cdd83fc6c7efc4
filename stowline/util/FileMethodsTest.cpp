// The application's own folders.
#include "stowline/util/FileMethods.h"

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using namespace FileMethods;

class FileMethodsTest : public testing::Test {
protected:
    FileMethodsTest()
    {
        ::setenv("HOME", home_.path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", data().c_str(), 1);
        DDLog::addLogger(log_);
    }
    [[nodiscard]] std::string data() const { return home_.path() / "data"; }
    /// Texts of one level, in order, and that all are General's.
    [[nodiscard]] std::vector<std::string> lines(std::int32_t flag) const
    {
        DDLog::flushLog();
        std::vector<std::string> texts;
        for (const auto& line : log_->lines()) {
            if (line.flag == flag && line.text.starts_with("\nGeneral."))
                texts.push_back(line.text);
        }
        return texts;
    }

    test::TemporaryFolder home_;
    const test::TestBundle bundle_{{},
                                   {{"CFBundleExecutable", "vault"},
                                    {"TW_CompanyName", "Acme Incorporated"},
                                    {"TW_CompanyShortName", "Acme"},
                                    {"TW_ProductName", "Vault"}}};
    const std::shared_ptr<CountingLogger> log_ = std::make_shared<CountingLogger>();
    const FileManager manager_{};
    std::optional<Error> error_ = platform::makeError("before", 1, "before");
};

TEST_F(FileMethodsTest, FindsAndMakesAFolder)
{
    const auto path = TW_findOrCreateDirectory(manager_, StandardFolder::applicationSupport,
                                               platform::kUserDomain, "a/b", &error_);
    EXPECT_EQ(path, data() + "/a/b");
    EXPECT_TRUE(fs::is_directory(*path));
    EXPECT_FALSE(error_) << "it is cleared first";
    EXPECT_EQ(TW_findOrCreateDirectory(manager_, StandardFolder::applicationSupport,
                                       platform::kUserDomain, "a/b", nullptr),
              path);
    EXPECT_EQ(TW_findOrCreateDirectory(manager_, StandardFolder::documents, platform::kUserDomain,
                                       std::nullopt, nullptr),
              home_.path() / "Documents");
}

TEST_F(FileMethodsTest, AKindThatADomainLacksIsABrandedError)
{
    EXPECT_FALSE(TW_findOrCreateDirectory(manager_, StandardFolder::documents,
                                          platform::kNetworkDomain, "x", &error_));
    ASSERT_TRUE(error_);
    EXPECT_EQ(error_->domain, "com.Acme.Vault.ErrorDomain");
    EXPECT_EQ(error_->code, 150);
    EXPECT_EQ(error_->localizedDescription(),
              "Path 1 not found for domain 4. Cannot proceed to create specified directory.");
    EXPECT_FALSE(TW_findOrCreateDirectory(manager_, static_cast<StandardFolder>(99),
                                          platform::kUserDomain, "x", nullptr));
}

TEST_F(FileMethodsTest, AFileInTheWayIsTheFileManagersError)
{
    home_.write("data/vault", "a file");
    EXPECT_FALSE(TW_findOrCreateDirectory(manager_, StandardFolder::applicationSupport,
                                          platform::kUserDomain, "vault", &error_));
    ASSERT_TRUE(error_);
    EXPECT_EQ(error_->domain, platform::kFileErrorDomain);
    EXPECT_EQ(error_->code, ENOTDIR);
    EXPECT_EQ(error_->localizedDescription(),
              "The folder " + data() +
                  "/vault cannot be made: Not a directory. Please check the folders above it.");
}

TEST_F(FileMethodsTest, TheSupportFolderIsNamedAfterTheExecutable)
{
    EXPECT_EQ(TW_appSupportDirectory(manager_, &error_), data() + "/vault");
    EXPECT_TRUE(fs::is_directory(data() + "/vault"));
    EXPECT_EQ(error_->domain, "before") << "left alone when all is well";
    EXPECT_EQ(TW_appSupportDirectory(manager_, nullptr), data() + "/vault");
    const std::string line = "\nGeneral.TW_appSupportDirectory. Created: " + data() + "/vault";
    EXPECT_EQ(lines(kLogFlagInfo), (std::vector{line, line}));
}

TEST_F(FileMethodsTest, ASupportFolderThatCannotBeMadeIsLoggedAndTold)
{
    home_.write("data", "a file");
    EXPECT_FALSE(TW_appSupportDirectory(manager_, &error_));
    ASSERT_TRUE(error_);
    EXPECT_EQ(error_->code, ENOTDIR);
    EXPECT_EQ(lines(kLogFlagError),
              std::vector{"\nGeneral.TW_appSupportDirectory. Unable to find or create application "
                          "support directory:\n" +
                          error_->text()});
    EXPECT_FALSE(TW_appSupportDirectory(manager_, nullptr));
}

TEST_F(FileMethodsTest, ASubFolderIsMade)
{
    EXPECT_EQ(TW_appSupportDirectoryWithSubDirectory(manager_, "Logs", nullptr),
              data() + "/vault/Logs");
    EXPECT_TRUE(fs::is_directory(data() + "/vault/Logs"));
    const std::string created = "\nGeneral.TW_appSupportDirectory. Created: " + data() + "/vault";
    const std::string creating = "\nGeneral.TW_appSupportDirectoryWithSubDirectory. Creating "
                                 "subdir at path: " +
                                 data() + "/vault/Logs";
    EXPECT_EQ(lines(kLogFlagInfo), (std::vector{created, creating}));
}

TEST_F(FileMethodsTest, ASubFolderThatCannotBeMadeIsLoggedAndTold)
{
    home_.write("data/vault/parent", "a file");
    EXPECT_FALSE(TW_appSupportDirectoryWithSubDirectory(manager_, "parent/child", &error_));
    ASSERT_TRUE(error_);
    EXPECT_EQ(error_->domain, platform::kFileErrorDomain);
    EXPECT_EQ(lines(kLogFlagError),
              std::vector{"\nGeneral.TW_appSupportDirectoryWithSubDirectory. Unable to find or "
                          "create application support subdirectory \"parent/child\": " +
                          error_->text()});
    EXPECT_FALSE(TW_appSupportDirectoryWithSubDirectory(manager_, "parent/child", nullptr));
}

TEST_F(FileMethodsTest, ASubFolderWithoutSupportFolderHasItsError)
{
    home_.write("data", "a file");
    EXPECT_FALSE(TW_appSupportDirectoryWithSubDirectory(manager_, "Logs", &error_));
    EXPECT_EQ(error_->code, ENOTDIR);
    EXPECT_EQ(lines(kLogFlagError).size(), 1U);
}

TEST_F(FileMethodsTest, AParentThatCannotBeWrittenIsTold)
{
    // Not even root can make folders there.
    ::setenv("XDG_DATA_HOME", "/proc/self", 1);
    EXPECT_FALSE(TW_appSupportDirectoryWithSubDirectory(manager_, "Logs", &error_));
    ASSERT_TRUE(error_);
    EXPECT_EQ(error_->domain, platform::kFileErrorDomain);
    EXPECT_EQ(lines(kLogFlagError).size(), 1U);
}

TEST_F(FileMethodsTest, ANameWithNulIsRefused)
{
    EXPECT_FALSE(TW_appSupportDirectoryWithSubDirectory(manager_, std::string("a\0b", 3), &error_));
    EXPECT_EQ(error_->code, EINVAL);
    EXPECT_FALSE(fs::exists(data() + "/vault/a"));
}

} // namespace
} // namespace stowline
