#include "tests/support/Helpers.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/HelperProgram.h"
#include "tests/support/Program.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace stowline::test {

namespace {

struct Helper {
    int id = 0;
    int parent = 0;
    bool isOfNursery = false;
};

int parentOf(const std::string& process)
{
    const std::string stat = platform::readFile(process + "/stat").value_or("");
    // After the name in parentheses: state and parent (proc(5)).
    std::istringstream rest(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
    std::string state;
    int parent = 0;
    rest >> state >> parent;
    return parent;
}

/// Every process that is a helper program begun for a host.
std::vector<Helper> allHelpers(int host)
{
    const std::string mark =
        std::string("\0", 1) + platform::kParentVariable + "=" + std::to_string(host) + '\0';
    std::vector<Helper> helpers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string process = entry.path().string();
        const auto words = platform::readFile(process + "/cmdline").value_or("");
        const auto name = words.substr(0, words.find('\0'));
        if (!name.ends_with("/WebServiceCaller"))
            continue;
        const auto environment = '\0' + platform::readFile(process + "/environ").value_or("");
        if (environment.find(mark) != std::string::npos)
            helpers.push_back({std::stoi(entry.path().filename()), parentOf(process),
                               words.find(std::string("\0--nursery", 10)) != std::string::npos});
    }
    return helpers;
}

/// Whether one is forked by another, rather than being a nursery itself.
bool isChildOfNursery(const Helper& helper, const std::vector<Helper>& all)
{
    return helper.isOfNursery &&
           std::ranges::any_of(all, [&](const Helper& other) { return other.id == helper.parent; });
}

} // namespace

std::vector<int> nurseriesOf(int host)
{
    const auto all = allHelpers(host);
    std::vector<int> ids;
    for (const Helper& helper : all) {
        if (helper.isOfNursery && !isChildOfNursery(helper, all))
            ids.push_back(helper.id);
    }
    return ids;
}

std::vector<int> helpersOf(int host)
{
    const auto all = allHelpers(host);
    std::vector<int> ids;
    for (const Helper& helper : all) {
        if (!helper.isOfNursery || isChildOfNursery(helper, all))
            ids.push_back(helper.id);
    }
    return ids;
}

} // namespace stowline::test
