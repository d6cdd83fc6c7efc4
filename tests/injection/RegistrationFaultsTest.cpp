// What the development service has registered is on the disk, and what is not is not registered.
#include "devserver/Storage.h"
#include "tests/injection/Injection.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>

namespace stowline::devserver {
namespace {

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

/// A service's storage, and files that are sent to it.
class RegistrationFaults : public testing::Test {
protected:
    /// Sends a file whole. @return what would register it
    Registration sent(const std::string& name)
    {
        const UploadPlace place{"ann", path_, name};
        EXPECT_TRUE(storage_.addPart(place, {.fileName = name, .bytes = "hello"}));
        return {.place = place,
                .systemName = "iMac",
                .folder = "/home",
                .name = name,
                .size = 5,
                .uploadedSize = 5,
                .clientDate = "2026-01-01 00:00:00"};
    }

    bool isRegistered(const Registration& registration)
    {
        try {
            return storage_.registerFile(registration) == RegistrationOutcome::success;
        } catch (const std::exception&) {
            return false; // which is a fault of the call
        }
    }

    const test::TemporaryFolder folder_;
    Storage storage_{folder_.path()};
    const std::string path_ = storage_.uploadPath("ann", 1, "G");
};

TEST_F(RegistrationFaults, ContentFolderAndRowAreWrittenThroughBeforeSuccess)
{
    for (const auto& [function, least] :
         {std::pair("fdatasync", 2U), std::pair("fsync", 1U)}) { // content and row; folder
        const Registration registration = sent(function);
        test::arm({function, kNever, false});
        EXPECT_TRUE(isRegistered(registration));
        EXPECT_GE(test::disarm().calls, least) << function;
    }
}

TEST_F(RegistrationFaults, WhatCannotBeWrittenThroughIsNotRegistered)
{
    for (const char* function : {"fdatasync", "fsync"}) {
        const Registration first = sent(function);
        test::arm({function, kNever, false});
        EXPECT_TRUE(isRegistered(first));
        const std::size_t calls = test::disarm().calls;
        for (std::size_t call = 1; call <= calls; ++call) {
            const Registration next = sent(std::string(function) + std::to_string(call));
            test::arm({function, call, false});
            EXPECT_FALSE(isRegistered(next)) << function << call;
            EXPECT_EQ(test::disarm().failures, 1U);
            EXPECT_FALSE(storage_.held(next.place)->isRegistered);
            EXPECT_TRUE(isRegistered(next)) << function << call;
        }
    }
}

} // namespace
} // namespace stowline::devserver
