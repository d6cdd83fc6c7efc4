// WebServiceCaller: performs the one SOAP call that its argument describes, writes the archived
// result to standard output, closes it, and stays until its parent releases it.
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/processes/StandardStreams.h"
#include "stowline/tool/CallWorker.h"

#include <csignal>

int main(int count, char** words)
{
    using namespace stowline;
    platform::takeStandardDescriptors();
    platform::keepMemoryPrivate();
    platform::endWithParent();
    platform::boundMemory(std::size_t(1) << 30);
    // A parent that is gone is a write that fails, not the end of this process.
    std::signal(SIGPIPE, SIG_IGN);
    tool::CallWorkerOptions options;
    options.writeOutput = platform::writeOnceToStandardOutput;
    const auto status = tool::runCallWorker({words, words + count}, options);
    platform::closeStandardOutput();
    platform::awaitReleaseBytes();
    return static_cast<int>(status);
}
