#include "cli/shared/FailureWords.h"

#include "stowline/service/FailureSentence.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace stowline::cli {

namespace {

using platform::CertificateFault;

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
    Meaning{FailureKind::helperFailed, ExitStatus::failed},
    Meaning{FailureKind::refusedByService, ExitStatus::refused},
    Meaning{FailureKind::stopped, ExitStatus::interrupted},
};

const Meaning& meaningOf(FailureKind kind)
{
    const auto* found = std::ranges::find(kMeanings, kind, &Meaning::kind);
    return found == kMeanings.end() ? kMeanings.front() : *found;
}

const char* certificateWords(CertificateFault fault)
{
    switch (fault) {
    case CertificateFault::selfSigned:
        return "The certificate of {0} is signed by itself, which this system does not trust. If "
               "the service is your own, add the certificate to the system's trusted ones "
               "(update-ca-certificates); if not, do not go on.";
    case CertificateFault::unknownIssuer:
        return "The certificate of {0} comes from an issuer that this system does not trust. "
               "Please update the system's certificates (ca-certificates), or add the issuer's if "
               "it is your own.";
    case CertificateFault::expired:
        return "The certificate of {0} has expired. Please check this machine's clock; if it is "
               "right, the provider must renew the certificate.";
    case CertificateFault::notYetValid:
        return "The certificate of {0} is not valid yet. Please check this machine's clock.";
    case CertificateFault::otherHost:
        return "The certificate of {0} is for another name. Please check the address in the "
               "settings; if it is right, do not go on.";
    default:
        return "";
    }
}

} // namespace

ExitStatus statusFor(FailureKind kind)
{
    return meaningOf(kind).status;
}

std::string wordsFor(FailureKind kind, const std::string& host, CertificateFault certificate)
{
    const std::string words = kind == FailureKind::certificate ? certificateWords(certificate) : "";
    return words.empty() ? sentenceFor(kind, host) : fmt::format(fmt::runtime(words), host);
}

} // namespace stowline::cli
