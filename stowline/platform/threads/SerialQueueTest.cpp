#include "stowline/platform/threads/SerialQueue.h"

#include "stowline/platform/threads/Semaphore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

/// Runs a function in the child of a fork. @return its result, or -1 when it did not come to it
template <class Function> int inChild(Function function)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20); // a child that hangs fails the test instead of hanging it
        ::_exit(function() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SerialQueue, RunsTasksInOrder)
{
    std::vector<int> order;
    {
        SerialQueue queue("q");
        for (int i = 0; i < 1000; ++i)
            queue.async([&order, i] { order.push_back(i); });
    }
    ASSERT_EQ(order.size(), 1000U);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(SerialQueue, SyncOnAnIdleQueueRunsInlineOnTheCaller)
{
    SerialQueue queue("q");
    std::thread::id ranOn;
    queue.sync([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(SerialQueue, SyncWaitsForWhatIsBeforeIt)
{
    SerialQueue queue("q");
    std::promise<void> go;
    std::vector<int> order;
    queue.async([&] {
        go.get_future().wait();
        order.push_back(1);
    });
    std::thread opener([&] { go.set_value(); });
    queue.sync([&] { order.push_back(2); });
    opener.join();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(SerialQueue, OneTaskAtATimeWhateverTheCallers)
{
    SerialQueue queue("q");
    int inside = 0;
    int most = 0;
    int total = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const auto task = [&] {
                    most = std::max(most, ++inside);
                    ++total;
                    --inside;
                };
                if ((i + t) % 2)
                    queue.async(task);
                else
                    queue.sync(task);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    queue.sync([] {});
    EXPECT_EQ(most, 1);
    EXPECT_EQ(total, 4000);
}

TEST(SerialQueue, TellsWhichQueueATaskIsOn)
{
    SerialQueue outer("outer");
    SerialQueue inner("inner");
    SerialQueue nameless("");
    EXPECT_EQ(SerialQueue::currentLabel(), nullptr);
    outer.sync([&] {
        EXPECT_STREQ(SerialQueue::currentLabel(), "outer");
        inner.sync([&] {
            EXPECT_STREQ(SerialQueue::currentLabel(), "inner");
            EXPECT_TRUE(outer.isCurrent());
            EXPECT_TRUE(inner.isCurrent());
        });
        EXPECT_FALSE(inner.isCurrent());
        nameless.sync([&] { EXPECT_EQ(SerialQueue::currentLabel(), nullptr); });
    });
    EXPECT_FALSE(outer.isCurrent());
}

TEST(SerialQueue, ATaskKnowsWhetherOneOfItsKindComesNext)
{
    const int kind = 0;
    const int other = 0;
    std::vector<bool> next;
    std::vector<bool> nextOther;
    std::promise<void> go;
    {
        SerialQueue queue("q");
        const auto look = [&] {
            next.push_back(queue.isNextMarked(&kind));
            nextOther.push_back(queue.isNextMarked(&other));
        };
        queue.async([&go] { go.get_future().wait(); });
        queue.async(look, &kind);
        queue.async(look, &kind);
        queue.async(look, &other);
        queue.async(look);
        std::thread waiter([&queue, &look] { queue.sync(look); });
        go.set_value();
        waiter.join();
        queue.async(look, &kind);
    }
    // Whether the worker takes the two marked tasks together is its own affair; the rest is not.
    ASSERT_EQ(next.size(), 6U);
    EXPECT_EQ(std::count(next.begin() + 1, next.end(), true), 0);
    EXPECT_FALSE(nextOther[0] || nextOther[2] || nextOther[3] || nextOther[5]);
}

TEST(SerialQueue, SyncFromItsOwnTaskRunsAtOnce)
{
    SerialQueue queue("q");
    bool ran = false;
    queue.sync([&] { queue.sync([&] { ran = true; }); });
    EXPECT_TRUE(ran);
}

TEST(SerialQueue, MayBeDestroyedByItsOwnTask)
{
    std::promise<void> done;
    auto queue = std::make_shared<SerialQueue>("q");
    SerialQueue* raw = queue.get();
    raw->async([queue = std::move(queue), &done]() mutable {
        queue.reset();
        done.set_value();
    });
    done.get_future().wait();
}

TEST(SerialQueue, WorksInTheChildOfAFork)
{
    SerialQueue queue("q");
    std::promise<void> go;
    auto gate = go.get_future().share();
    std::promise<void> started;
    queue.async([gate, &started] {
        started.set_value();
        gate.wait();
    });
    queue.async([] {});
    started.get_future().wait();
    const int status = inChild([&] {
        int ran = 0;
        queue.sync([&] { ++ran; });
        std::promise<void> done;
        queue.async([&] {
            ++ran;
            done.set_value();
        });
        done.get_future().wait();
        return ran == 2;
    });
    go.set_value();
    EXPECT_EQ(status, 0);
}

TEST(QueueGroup, WaitsForEveryTask)
{
    SerialQueue a("a");
    SerialQueue b("b");
    std::atomic<int> ran = 0;
    QueueGroup group;
    for (int i = 0; i < 100; ++i) {
        group.async(a, [&] { ++ran; });
        group.async(b, [&] { ++ran; });
    }
    group.wait();
    EXPECT_EQ(ran, 200);
    group.wait(); // nothing open: returns at once
}

TEST(Semaphore, BoundsWhatIsOutstanding)
{
    Semaphore semaphore(3);
    std::atomic<int> outstanding = 0;
    std::atomic<int> most = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                semaphore.wait();
                const int now = ++outstanding;
                int known = most;
                while (now > known && !most.compare_exchange_weak(known, now)) {
                }
                --outstanding;
                semaphore.signal();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_LE(most, 3);
}

TEST(Semaphore, AWaitingThreadGoesOnAsSoonAsThereIsOne)
{
    Semaphore semaphore(1000);
    for (int i = 0; i < 1000; ++i)
        semaphore.wait();
    std::promise<void> went;
    std::thread waiter([&] {
        semaphore.wait();
        went.set_value();
    });
    semaphore.signal();
    EXPECT_EQ(went.get_future().wait_for(20s), std::future_status::ready);
    semaphore.signal(1000); // lets it end when it was not
    waiter.join();
}

TEST(Semaphore, GivingSeveralBackWakesSeveral)
{
    Semaphore semaphore(1);
    semaphore.wait();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] { semaphore.wait(); });
    semaphore.signal(4);
    for (auto& waiter : waiters)
        waiter.join();
}

TEST(Semaphore, TakingWithoutWaitingLeavesADebt)
{
    Semaphore semaphore(1);
    semaphore.wait();
    semaphore.takeWithoutWaiting();
    semaphore.signal(); // pays the debt
    std::atomic<bool> got = false;
    std::thread waiter([&] {
        semaphore.wait();
        got = true;
    });
    semaphore.signal();
    waiter.join();
    EXPECT_TRUE(got);
}

TEST(Semaphore, StartsAnewInTheChildOfAFork)
{
    Semaphore semaphore(1);
    semaphore.wait();
    EXPECT_EQ(inChild([&] {
                  semaphore.wait();
                  return true;
              }),
              0);
}

} // namespace
} // namespace stowline::platform
