#include "stowline/backup/record/KeptRuns.h"

namespace stowline::backup {

std::vector<std::uint64_t> keptRuns(const RecordChain& chain)
{
    std::vector<std::uint64_t> kept;
    for (const ListedRun& run : chain.runs()) {
        if (run.state == RecordState::finished && !run.isForgotten)
            kept.push_back(run.run);
    }
    return kept;
}

} // namespace stowline::backup
