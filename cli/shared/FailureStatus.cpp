#include "cli/shared/FailureStatus.h"

#include <algorithm>
#include <array>

namespace stowline::cli {

namespace {

struct Meaning {
    FailureKind kind;
    ExitStatus status;
};

constexpr std::array kMeanings{
    Meaning{FailureKind::unspecified, ExitStatus::temporary},
    Meaning{FailureKind::noMemory, ExitStatus::temporary},
    Meaning{FailureKind::noThread, ExitStatus::temporary},
    Meaning{FailureKind::unexpected, ExitStatus::failed},
    Meaning{FailureKind::hostUnreachable, ExitStatus::hostUnreachable},
    Meaning{FailureKind::invalidSettings, ExitStatus::settingsInvalid},
    Meaning{FailureKind::unsendableValue, ExitStatus::failed},
    Meaning{FailureKind::fault, ExitStatus::temporary},
    Meaning{FailureKind::unreadableAnswer, ExitStatus::temporary},
    Meaning{FailureKind::timeOut, ExitStatus::temporary},
    Meaning{FailureKind::connection, ExitStatus::hostUnreachable},
    Meaning{FailureKind::nameNotFound, ExitStatus::hostUnreachable},
    Meaning{FailureKind::certificate, ExitStatus::failed},
    Meaning{FailureKind::proxyRefused, ExitStatus::hostUnreachable},
    Meaning{FailureKind::refusedRedirect, ExitStatus::settingsInvalid},
    Meaning{FailureKind::tooLarge, ExitStatus::failed},
    Meaning{FailureKind::requestTooLarge, ExitStatus::refused},
    Meaning{FailureKind::badRequest, ExitStatus::refused},
    Meaning{FailureKind::unavailable, ExitStatus::temporary},
    Meaning{FailureKind::helperFailed, ExitStatus::failed},
    Meaning{FailureKind::refusedByService, ExitStatus::refused},
    Meaning{FailureKind::stopped, ExitStatus::interrupted},
};

const Meaning& meaningOf(FailureKind kind)
{
    const auto* found = std::ranges::find(kMeanings, kind, &Meaning::kind);
    return found == kMeanings.end() ? kMeanings.front() : *found;
}

} // namespace

ExitStatus statusFor(FailureKind kind)
{
    return meaningOf(kind).status;
}

} // namespace stowline::cli
