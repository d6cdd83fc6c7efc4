// WebServiceCaller: performs the one SOAP call that its argument describes, writes the archived
// result to standard output, closes it, and stays until its parent releases it. Started as a
// nursery it waits instead, and forks a child that does so for each call.
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/processes/HelperProgram.h"
#include "stowline/platform/processes/NurseryWork.h"
#include "stowline/platform/processes/Signals.h"
#include "stowline/platform/processes/StandardStreams.h"
#include "stowline/tool/CallWorker.h"

#include <csignal>

namespace {

using namespace stowline;

int performCall(const std::vector<std::string>& words)
{
    // A parent that is gone is a write that fails, not the end of this process.
    std::signal(SIGPIPE, SIG_IGN);
    tool::CallWorkerOptions options;
    options.writeOutput = platform::writeOnceToStandardOutput;
    const auto status = tool::runCallWorker(words, options);
    platform::closeStandardOutput();
    platform::awaitReleaseBytes();
    return static_cast<int>(status);
}

void prepareSoon()
{
    platform::prepareForTls();
    tool::rehearseCall();
}

} // namespace

int main(int count, char** begin)
{
    platform::takeStandardDescriptors();
    platform::keepMemoryPrivate();
    platform::boundMemory(std::size_t(1) << 30);
    const std::vector<std::string> words(begin, begin + count);
    if (platform::isNursery(words))
        return platform::runNursery(words.front(), {.prepare = platform::prepareForExchanges,
                                                    .prepareSoon = prepareSoon,
                                                    .prepareMore = platform::prepareSomeTrust,
                                                    .run = performCall});
    platform::endWithParent();
    return performCall(words);
}
