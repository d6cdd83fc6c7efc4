#include "stowline/backup/ProofLookup.h"

#include "stowline/backup/RunState.h"
#include "stowline/backup/record/RecordHead.h"

namespace stowline::backup {

std::optional<ProofBook> proofBookOf(const RunChoice& choice, const std::string& chain)
{
    const auto identity = parseChainName(chain);
    if (!choice.stateFolder || !identity)
        return std::nullopt;
    const UploadOwner owner = uploadOwner(choice.account, *identity);
    return ProofBook::look(proofFile(*choice.stateFolder, owner), indexOwner(owner));
}

} // namespace stowline::backup
