#include "stowline/backup/RunLoss.h"

#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

namespace stowline::backup {

std::string sentenceOf(const RunLoss& loss)
{
    if (loss.items == 0)
        return fmt::format("Run {} could not tell what was gone, for the record before it could "
                           "not be read.",
                           loss.run);
    return fmt::format("Run {} found {} gone or emptied, of the {} that the run before it held.",
                       loss.run, platform::countText(loss.gone, "item", "items"),
                       platform::countText(loss.items, "item", "items"));
}

} // namespace stowline::backup
