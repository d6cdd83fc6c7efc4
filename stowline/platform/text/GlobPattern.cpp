#include "stowline/platform/text/GlobPattern.h"

#include <fnmatch.h>

namespace stowline::platform {

bool matchesGlob(const std::string& pattern, const std::string& text, bool slashesCount)
{
    return ::fnmatch(pattern.c_str(), text.c_str(), slashesCount ? FNM_PATHNAME : 0) == 0;
}

} // namespace stowline::platform
