// What the development service has registered is on the disk, and what is not is not registered.
#include "devserver/Storage.h"
#include "stowline/platform/files/Files.h"
#include "tests/injection/Injection.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <latch>
#include <limits>
#include <thread>
#include <unistd.h>

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
            // Content that may be lost is sent again; the database looks after itself.
            if (storage_.held(next.place)->receivedBytes == 0)
                (void)sent(next.place.guid);
            else
                EXPECT_GT(call, 1U) << function;
            EXPECT_TRUE(isRegistered(next)) << function << call;
        }
    }
}

// ---- together ----

/// Holds the first call of the armed function until all that are awaited have come to rest.
std::latch* firstIsThere = nullptr;
std::latch* mayGoOn = nullptr;

void holdTheFirst(std::size_t call)
{
    if (call != 1)
        return;
    firstIsThere->count_down();
    mayGoOn->wait();
}

bool isAsleep(pid_t thread)
{
    const auto status =
        platform::readFile("/proc/self/task/" + std::to_string(thread) + "/stat").value_or("");
    return status.find(") S ") != std::string::npos;
}

/// Waits until threads have nothing to do but to wait for another.
void awaitRest(const std::vector<std::atomic<pid_t>>& threads)
{
    constexpr int looks = 5; // in a row
    for (int rested = 0; rested < looks; std::this_thread::sleep_for(std::chrono::milliseconds(2)))
        rested = std::ranges::all_of(threads, [](pid_t one) { return one > 0 && isAsleep(one); })
                     ? rested + 1
                     : 0;
}

class RegistrationsTogether : public RegistrationFaults {
protected:
    static constexpr std::size_t kWaiting = 8;

    /// Registers one file, and while its folder is being synchronised the others.
    /// @return which were registered, the first one first
    std::vector<bool> registered(const test::Injection& injection)
    {
        std::vector<Registration> registrations;
        for (std::size_t i = 0; i <= kWaiting; ++i)
            registrations.push_back(sent("f" + std::to_string(i)));
        std::latch first(1);
        std::latch goOn(1);
        firstIsThere = &first;
        mayGoOn = &goOn;
        std::array<std::atomic<bool>, kWaiting + 1> outcomes{};
        std::vector<std::atomic<pid_t>> threads(kWaiting);
        test::arm(injection);
        test::atEachCall(holdTheFirst);
        {
            std::vector<std::jthread> senders;
            senders.emplace_back([&] { outcomes[0] = isRegistered(registrations[0]); });
            first.wait();
            for (std::size_t i = 1; i <= kWaiting; ++i) {
                senders.emplace_back([&, i] {
                    threads[i - 1] = ::gettid();
                    outcomes[i] = isRegistered(registrations[i]);
                });
            }
            awaitRest(threads);
            goOn.count_down();
        }
        return std::vector<bool>(outcomes.begin(), outcomes.end());
    }

    /// Whether a service that begins anew holds a version of a file of registered().
    [[nodiscard]] bool isKept(std::size_t number)
    {
        Storage anew(folder_.path());
        return anew.held({"ann", path_, "f" + std::to_string(number)})->isRegistered;
    }
};

TEST_F(RegistrationsTogether, AreWrittenThroughTogether)
{
    const Registration alone = sent("alone");
    test::arm({"fsync", kNever, false});
    EXPECT_TRUE(isRegistered(alone));
    const std::size_t ofOne = test::disarm().calls;
    EXPECT_EQ(registered({"fsync", kNever, false}), std::vector<bool>(kWaiting + 1, true));
    EXPECT_LE(test::disarm().calls, 3 * ofOne); // the first, the others, perhaps one that was late
}

TEST_F(RegistrationsTogether, NoneCountsWhenTheirFolderCouldNotBeWrittenThrough)
{
    const std::vector<bool> outcomes = registered({"fsync", 2, false});
    EXPECT_EQ(test::disarm().failures, 1U);
    EXPECT_TRUE(outcomes[0]);
    EXPECT_GE(std::ranges::count(outcomes, false), 2);
    for (std::size_t i = 0; i <= kWaiting; ++i) {
        EXPECT_EQ(isKept(i), outcomes[i]) << i;
        if (outcomes[i])
            continue;
        const std::string name = "f" + std::to_string(i);
        EXPECT_EQ(storage_.held({"ann", path_, name})->receivedBytes, 0U);
        EXPECT_TRUE(isRegistered(sent(name))); // from the beginning
    }
}

} // namespace
} // namespace stowline::devserver
