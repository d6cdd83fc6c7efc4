// measured-program FILE PROGRAM WORD…: runs a program and writes to the file what it took, in one
// line: microseconds, microseconds of processor time, KiB of memory at the most. Counted are the
// program and all that it started, also what was made nobody's child; the memory is the sum of what
// the program and each such orphan took at the most. Its exit status is the program's. It is small,
// so that what it forks does not begin with the memory of a large program.
#include <chrono>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

long long microsecondsOf(const timeval& time)
{
    return time.tv_sec * 1000000LL + time.tv_usec;
}

} // namespace

int main(int count, char** words)
{
    if (count < 3)
        return 2;
    ::prctl(PR_SET_CHILD_SUBREAPER, 1); // orphans come to us
    const auto begun = Clock::now();
    const pid_t program = ::fork();
    if (program == 0) {
        ::execvp(words[2], words + 2);
        ::_exit(127);
    }
    int programStatus = 0;
    int status = 0;
    struct rusage usage = {};
    long long processor = 0;
    long long kibibytes = 0;
    long long taken = 0;
    for (pid_t ended = 0; (ended = ::wait4(-1, &status, 0, &usage)) > 0;) {
        processor += microsecondsOf(usage.ru_utime) + microsecondsOf(usage.ru_stime);
        kibibytes += usage.ru_maxrss;
        if (ended != program)
            continue;
        programStatus = status;
        taken = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun).count();
    }
    std::FILE* file = std::fopen(words[1], "w");
    if (!file || std::fprintf(file, "%lld %lld %lld\n", taken, processor, kibibytes) < 0 ||
        std::fclose(file) != 0)
        return 126;
    return WIFEXITED(programStatus) ? WEXITSTATUS(programStatus) : 125;
}
