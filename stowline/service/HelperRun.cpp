#include "stowline/service/HelperRun.h"

#include "stowline/call/CallArchive.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/processes/Nursery.h"
#include "stowline/platform/values/Format.h"
#include "stowline/service/WebServiceBroker.h"

#include <atomic>
#include <cstdint>
#include <cstring>

namespace stowline {

namespace {

using platform::consoleLog;
using platform::formatText;

/// The tool gives a call up after 60 seconds; one that does not keep to that is ended.
constexpr std::chrono::seconds kToolLimit{75};

/// More than any answer that the helper takes makes.
constexpr std::size_t kMostOutputBytes = std::size_t(256) << 20;

/// The count of bytes read, in the machine's byte order; the tool ignores the value.
std::string releaseBytes(std::string_view output)
{
    const auto count = static_cast<std::uint32_t>(output.size());
    std::string bytes(sizeof count, '\0');
    std::memcpy(bytes.data(), &count, sizeof count);
    return bytes;
}

/// The tool's exit status when no answer came in its time.
constexpr int kStatusOfTimeout = 252;

using Result = platform::Outcome<Dictionary, HelperFailure>;

Result failure(const std::string& message, FailureKind kind, bool isTold = true)
{
    return HelperFailure{
        platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode, message, kind),
        isTold};
}

/// Of a run that gave no result.
Result noAnswer(const platform::ChildAnswer& answer)
{
    const platform::ChildExit& exit = answer.exit;
    const bool tookTooLong =
        answer.endedByLimit || (exit.isKnown && !exit.bySignal && exit.status == kStatusOfTimeout);
    return tookTooLong ? failure("The service did not answer in time.", FailureKind::timeOut, false)
                       : failure("WebServiceCaller ended without an answer.",
                                 FailureKind::helperFailed, false);
}

/// What a run that came to its end gave.
Result resultOf(const platform::ChildAnswer& answer)
{
    consoleLog(formatText("WebServiceCaller termination status = %d, inData.length = %d",
                          answer.exit.status, answer.output.size()));
    if (answer.endedBySize)
        return failure(formatText("The answer is larger than %d bytes.", kMostOutputBytes),
                       FailureKind::tooLarge);
    const bool failed = answer.exit.isKnown ? !answer.exit.isSuccess() : answer.endedByLimit;
    if (failed || answer.output.empty())
        return noAnswer(answer);
    const auto root = unarchive(answer.output);
    if (root && root->dictionary())
        return *root->dictionary();
    consoleLog(formatText("Error result type from WebServiceCaller:\n%@", root));
    return failure("WebServiceCaller wrote no result.", FailureKind::helperFailed, false);
}

std::atomic<bool> nurseryIsUsed = false;

/// One line for a reason that holds on, not one for each call.
void noteStartAlone(const Operation& operation, std::string_view reason)
{
    static std::atomic<std::size_t> noted = 0;
    const std::size_t hash = std::hash<std::string_view>()(reason) | 1U;
    if (noted.exchange(hash) != hash)
        OPERATION_LOG_INFO(operation, "WebServiceCaller is started separately for each call: %@.",
                           reason);
}

std::filesystem::path helperProgram()
{
    return platform::Bundle::executableFolder() / "WebServiceCaller";
}

platform::Outcome<platform::ChildAnswer, platform::StartFailure>
runHelper(const Operation& operation, std::string_view input)
{
    const platform::ChildRun run{.program = helperProgram(),
                                 .input = input,
                                 .releaseBytes = releaseBytes,
                                 .limit = kToolLimit,
                                 .maximumOutputBytes = kMostOutputBytes};
    if (!nurseryIsUsed)
        return platform::runChild(run);
    return platform::runNurseryChild(
        run, [&operation](std::string_view reason) { noteStartAlone(operation, reason); });
}

} // namespace

void useNurseryForHelpers(bool isUsed)
{
    nurseryIsUsed = isUsed;
    if (!isUsed)
        platform::endNursery();
}

void beginNurseryForHelpers()
{
    if (nurseryIsUsed)
        platform::beginNursery(helperProgram());
}

Result resultOfHelper(const Operation& operation, const WebServiceCallRequest& request)
{
    const auto encoded = encodedRequest(request.dictionary());
    if (!encoded)
        return failure("The request cannot be encoded.", FailureKind::unsendableValue, false);
    const auto answer = runHelper(operation, *encoded);
    if (!answer)
        return failure(helperProgram().string() + " cannot be started. " +
                           answer.error().sentence(),
                       FailureKind::helperFailed);
    if (answer->endedByStop)
        return failure("The call was stopped.", FailureKind::stopped);
    return resultOf(*answer);
}

} // namespace stowline
