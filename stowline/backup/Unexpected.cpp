#include "stowline/backup/Unexpected.h"

#include <new>
#include <system_error>

namespace stowline::backup {

std::string sentenceOfHandledException()
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return "There is not enough memory. Please close programs and try again.";
    } catch (const std::system_error& fault) {
        if (fault.code() == std::errc::resource_unavailable_try_again)
            return "The system has no threads left. Please close programs and try again.";
        return fault.what(); // as those of the file system, which are no matter of threads
    } catch (const std::exception& fault) {
        return fault.what();
    }
}

} // namespace stowline::backup
