// A helper program of this very build that can wait as a nursery, and then does with each call what
// STOWLINE_STAND_IN says: not what helpers should do.
#include "stowline/platform/processes/HelperProgram.h"
#include "stowline/platform/processes/NurseryMessages.h"
#include "stowline/platform/processes/NurseryWork.h"
#include "stowline/platform/processes/StandardStreams.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace {

int misbehave(const std::vector<std::string>& /*words*/)
{
    using namespace stowline;
    const char* variable = std::getenv("STOWLINE_STAND_IN");
    const std::string what = variable ? variable : "";
    std::signal(SIGPIPE, SIG_DFL);
    ::alarm(100); // should nobody end it
    if (what == "says that it was refused") {
        constexpr int itsCallsSocket = 4;
        platform::sendReport(itsCallsSocket, {platform::NurseryReport::Kind::refused, EAGAIN, 0});
    }
    if (what == "hangs")
        return ::pause();
    if (what == "crashes") {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        return std::raise(SIGSEGV);
    }
    const std::string piece(1 << 20, 'x');
    while (what == "writes for ever") {
        if (!platform::writeOnceToStandardOutput(piece))
            return EXIT_FAILURE;
    }
    (void)platform::writeOnceToStandardOutput("answer");
    platform::closeStandardOutput();
    if (what == "stays")
        return ::pause();
    platform::awaitReleaseBytes();
    return 7;
}

} // namespace

int main(int count, char** begin)
{
    using namespace stowline;
    const std::vector<std::string> words(begin, begin + count);
    if (platform::isNursery(words))
        return platform::runNursery(words.front(),
                                    {.prepare = [] {}, .prepareMore = {}, .run = misbehave});
    platform::endWithParent();
    return misbehave(words);
}
