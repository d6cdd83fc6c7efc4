#include "stowline/platform/values/HandledException.h"

#include <new>
#include <system_error>

namespace stowline::platform {

HandledException handledException()
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return {FailureKind::noMemory, std::string(kNoMemorySentence)};
    } catch (const std::system_error& fault) {
        if (fault.code() == std::errc::resource_unavailable_try_again)
            return {FailureKind::noThread, std::string(kNoThreadSentence)};
        return {FailureKind::unexpected, fault.what()}; // as those of the file system
    } catch (const std::exception& fault) {
        return {FailureKind::unexpected, fault.what()};
    } catch (...) {
        return {};
    }
}

std::string handledSentence() noexcept
{
    try {
        return handledException().sentence;
    } catch (const std::bad_alloc&) { // what ended tells it all the same
        return {};
    }
}

} // namespace stowline::platform
