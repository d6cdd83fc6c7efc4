#include "tests/support/TestPaths.h"

namespace stowline::test {

std::string builtPrograms()
{
    return STOWLINE_TEST_BIN;
}

std::string sourceFile(std::string_view path)
{
    return std::string(STOWLINE_TEST_SOURCE "/").append(path);
}

} // namespace stowline::test
