#include "stowline/backup/content/SideBySide.h"

#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace stowline::backup {

namespace {

/// Threads that are waited for, however the work ends.
struct Threads {
    Threads() = default;
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;
    ~Threads()
    {
        for (std::thread& thread : all)
            thread.join();
    }
    std::vector<std::thread> all;
};

} // namespace

void sideBySide(std::size_t count, const std::function<void(std::size_t)>& work)
{
    std::vector<std::exception_ptr> thrown(count);
    const auto one = [&](std::size_t number) {
        try {
            work(number);
        } catch (...) {
            thrown[number] = std::current_exception();
        }
    };
    {
        Threads threads;
        threads.all.reserve(count);
        std::size_t next = 1;
        try {
            for (; next < count; ++next)
                threads.all.emplace_back(one, next);
        } catch (const std::system_error&) { // no more threads: here, then
        }
        for (std::size_t number = next; number < count; ++number)
            one(number);
        if (count > 0)
            one(0);
    }
    for (const std::exception_ptr& exception : thrown)
        if (exception)
            std::rethrow_exception(exception);
}

} // namespace stowline::backup
