#include "stowline/backup/Account.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/util/General.h"

namespace stowline::backup {

ChainIdentity identityOfThisUser()
{
    const std::uint32_t number = platform::ownUserNumber();
    return {.machine = General::hardwareId().value_or("unknown"),
            .user = platform::userName(number).value_or("uid" + std::to_string(number))};
}

} // namespace stowline::backup
