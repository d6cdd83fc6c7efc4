#include "tests/support/NetworkNamespace.h"

#include "tests/support/Program.h"

#include <filesystem>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace stowline::test {

namespace {

std::string ipProgram()
{
    for (const char* path : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
        if (std::filesystem::exists(path))
            return path;
    }
    return {};
}

} // namespace

std::optional<std::string> enterNetworkNamespace()
{
    if (ipProgram().empty())
        return "The program \"ip\" is not installed (package iproute2).";
    if (::unshare(CLONE_NEWNET) != 0)
        return "This user may not make a network namespace.";
    return std::nullopt;
}

void ip(const std::string& words)
{
    ProgramRun run{{ipProgram()}};
    std::istringstream stream(words);
    for (std::string word; stream >> word;)
        run.words.push_back(word);
    const auto result = runProgram(run);
    if (result.status != 0)
        throw std::runtime_error("ip " + words + ": " + result.errors);
}

} // namespace stowline::test
