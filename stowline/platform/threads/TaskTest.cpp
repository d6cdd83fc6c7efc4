#include "stowline/platform/threads/Task.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

namespace stowline::platform {
namespace {

/// Counts its own lives: how many are there now.
struct Counted {
    explicit Counted(int& of) : alive(&of) { ++*alive; }
    Counted(const Counted&) = delete;
    Counted(Counted&& other) noexcept : alive(other.alive) { ++*alive; }
    Counted& operator=(const Counted&) = delete;
    Counted& operator=(Counted&&) = delete;
    ~Counted() { --*alive; }
    int* alive;
};

TEST(Task, RunsWhatItWasGivenAsOftenAsItIsCalled)
{
    int runs = 0;
    Task task([&runs] { ++runs; });
    task();
    task();
    EXPECT_EQ(runs, 2);
}

TEST(Task, HoldsWhatCannotBeCopied)
{
    std::string seen;
    Task task([owned = std::make_unique<std::string>("moved"), &seen] { seen = *owned; });
    Task moved(std::move(task));
    EXPECT_FALSE(task); // NOLINT(bugprone-use-after-move): what is left is empty
    moved();
    EXPECT_EQ(seen, "moved");
}

TEST(Task, MovesALargeOneWithoutMovingWhatItHolds)
{
    std::array<char, 4096> large = {};
    large.back() = 'z';
    char last = 0;
    const void* before = nullptr;
    const void* after = nullptr;
    Task task([large, &last, &before, &after] {
        (before ? after : before) = &large;
        last = large.back();
    });
    task();
    Task moved = std::move(task);
    moved();
    EXPECT_EQ(last, 'z');
    EXPECT_EQ(before, after);
}

TEST(Task, EndsWhatItHeldOnceWhenItIsReplacedEmptiedOrGone)
{
    int alive = 0;
    {
        Task small([held = Counted(alive)] { (void)held; });
        Task large(
            [held = Counted(alive), room = std::array<char, 256>{}] { (void)held, (void)room; });
        EXPECT_EQ(alive, 2);
        Task moved(std::move(small));
        EXPECT_EQ(alive, 2);
        moved = std::move(large);
        EXPECT_EQ(alive, 1);
        moved = nullptr;
        EXPECT_EQ(alive, 0);
        EXPECT_FALSE(moved);
        moved = [held = Counted(alive)] { (void)held; };
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Task, HandsOnWhatItsWorkThrows)
{
    Task task([] { throw std::runtime_error("thrown"); });
    EXPECT_THROW(task(), std::runtime_error);
    EXPECT_TRUE(task);
}

} // namespace
} // namespace stowline::platform
