#include "stowline/platform/files/DescriptorLimit.h"

#include "stowline/platform/files/FileDescriptor.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <vector>

namespace stowline::platform {

std::size_t descriptorLimit(std::size_t atMost)
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return atMost;
    return static_cast<std::size_t>(std::min<rlim_t>(atMost, limit.rlim_cur));
}

bool areDescriptorsFree(std::size_t count)
{
    std::vector<FileDescriptor> opened;
    while (opened.size() < count) {
        FileDescriptor next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        opened.push_back(std::move(next)); // which may throw
        if (!opened.back().isOpen())
            return false;
    }
    return true;
}

} // namespace stowline::platform
