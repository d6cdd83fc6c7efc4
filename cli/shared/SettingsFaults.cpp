#include "cli/shared/SettingsFaults.h"

#include "cli/shared/Output.h"

#include <fmt/format.h>

namespace stowline::cli {

void showFaults(const std::string& file, const std::vector<SettingsFault>& faults)
{
    for (const SettingsFault& fault : faults) {
        const std::string where = fault.path.empty() ? "" : fault.path + ": ";
        output().item(fmt::format("{}:{}: {}{}", file, fault.line, where, fault.sentence), "fault",
                      {{"file", file},
                       {"line", fault.line},
                       {"path", fault.path},
                       {"message", fault.sentence}});
    }
}

} // namespace stowline::cli
