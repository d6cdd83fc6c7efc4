// A nursery that is stopped at the very moment at which it forks.
#include "stowline/service/NurseryTest.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <thread>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::Caller;
using test::nursery;
using test::RawServer;

#ifdef __x86_64__ // which call a process makes is read as this processor has it

/// Holds a process as it is about to fork, until the system ends it.
class HeldAtFork {
public:
    /// @return whether the system lets us
    bool hold(int process)
    {
        process_ = process;
        return ::ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0 &&
               ::ptrace(PTRACE_INTERRUPT, process, nullptr, nullptr) == 0 && goOn();
    }
    /// Lets it go on to the next fork. @return false when it ended before
    bool awaitFork()
    {
        for (;;) {
            user_regs_struct registers{};
            if (!awaitStop() || ::ptrace(PTRACE_GETREGS, process_, nullptr, &registers) != 0)
                return false;
            const auto call = static_cast<long>(registers.orig_rax);
            if (call == SYS_clone || call == SYS_clone3 || call == SYS_fork)
                return true;
            if (!goOn())
                return false;
        }
    }
    /// Whether it ended by SIGKILL.
    [[nodiscard]] bool isKilled()
    {
        return !awaitStop() && WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL;
    }

private:
    [[nodiscard]] bool goOn() const
    {
        int status = 0;
        if (status_ == 0 && ::waitpid(process_, &status, 0) != process_)
            return false;
        return ::ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr) == 0;
    }
    bool awaitStop() { return ::waitpid(process_, &status_, 0) == process_ && WIFSTOPPED(status_); }

    int process_ = -1;
    int status_ = 0;
};

TEST(Nursery, OneThatIsStoppedAsItForksIsEndedAndTheCallFails)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    HeldAtFork held;
    if (!held.hold(nursery()))
        GTEST_SKIP() << "This process may not follow another one.";
    const auto start = std::chrono::steady_clock::now();
    std::thread call([] { EXPECT_FALSE(Caller::works()); });
    EXPECT_TRUE(held.awaitFork());
    EXPECT_TRUE(held.isKilled());
    call.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 60s); // the limit of a call is 75 s
    EXPECT_EQ(server.requests().size(), 1U);                  // it counted as begun
    EXPECT_TRUE(Caller::works());
}

#endif

} // namespace
} // namespace stowline
