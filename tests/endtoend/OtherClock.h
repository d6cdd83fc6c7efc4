// Programs that read another time than the machine has (libfaketime).
#pragma once

#include "tests/support/Program.h"

#include <filesystem>
#include <string>

namespace stowline::test {

inline constexpr const char* kClockLibrary = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";

/// Why no program can be given another clock here; empty when one can.
inline std::string whyNoOtherClock()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return "A sanitizer's library has to be the first one; so has the clock's.";
#else
    return std::filesystem::exists(kClockLibrary) ? "" : "Needs the package libfaketime.";
#endif
}

/// Runs it with a clock that is shifted, as by "+1y"; files keep their times, and waiting takes as
/// long as ever.
inline ProgramResult runWithClock(ProgramRun run, const std::string& shift)
{
    run.environment.insert({{"LD_PRELOAD", kClockLibrary},
                            {"FAKETIME", shift},
                            {"NO_FAKE_STAT", "1"},
                            {"FAKETIME_DONT_FAKE_MONOTONIC", "1"}});
    return runProgram(run);
}

} // namespace stowline::test
