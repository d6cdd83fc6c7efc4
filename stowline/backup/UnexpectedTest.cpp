#include "stowline/backup/Unexpected.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

namespace stowline::backup {
namespace {

template <class Fault> std::string sentenceOf(const Fault& fault)
{
    try {
        throw fault;
    } catch (const std::exception&) {
        return sentenceOfHandledException();
    }
}

TEST(Unexpected, OnlyAThreadThatIsNotToBeHadIsToldAsOne)
{
    const auto noThread = std::make_error_code(std::errc::resource_unavailable_try_again);
    EXPECT_EQ(sentenceOf(std::system_error(noThread)),
              "The system has no threads left. Please close programs and try again.");
    const std::filesystem::filesystem_error full(
        "cannot write", "/a/b", std::make_error_code(std::errc::no_space_on_device));
    EXPECT_EQ(sentenceOf(full), "filesystem error: cannot write: No space left on device [/a/b]");
}

TEST(Unexpected, WantOfMemoryIsToldWithItsCureAndAllElseInItsOwnWords)
{
    EXPECT_EQ(sentenceOf(std::bad_alloc()),
              "There is not enough memory. Please close programs and try again.");
    EXPECT_EQ(sentenceOf(std::runtime_error("A sentence.")), "A sentence.");
}

} // namespace
} // namespace stowline::backup
