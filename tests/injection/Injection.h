// Makes system calls and allocations fail, one after the other.
//
// Injection.cpp defines the C library's functions of its table, and operator new, in front of the
// real ones: in a test that links it for the test's own process, and, built as a library that is
// preloaded, in a helper program, which is told by the variable STOWLINE_INJECTION ("read:3:once",
// "new:9:always") and keeps in the file STOWLINE_INJECTION_COUNT, as a std::size_t, how many calls
// it has made, or one that it forked.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace stowline::test {

/// The failure of one function: its n-th call since arming, or that and all later ones.
struct Injection {
    std::string function; ///< of injectableFunctions()
    std::size_t call = 1; ///< 1 is the first
    bool isPersistent = false;
};

/// The functions that can be made to fail; "new" is operator new.
[[nodiscard]] std::vector<std::string> injectableFunctions();

/// Begins to count the calls of all threads, and lets them fail as told. One at a time.
void arm(const Injection& injection);

/// What happened since arming.
struct Counts {
    std::size_t calls = 0;
    std::size_t failures = 0;
};

/// Ends that.
Counts disarm();

/// Runs this at the beginning of each call of the function that is armed, in the thread that calls
/// it, with the call's number; until another one is armed.
void atEachCall(void (*callee)(std::size_t call));

} // namespace stowline::test
