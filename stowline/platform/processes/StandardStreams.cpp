#include "stowline/platform/processes/StandardStreams.h"

#include "stowline/platform/files/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace stowline::platform {

void takeStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // The lowest free number is given out, and all below are taken by now. A descriptor that
        // names a place only (O_PATH) refuses reading and writing; "/" is there in any container.
        if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF &&
            ::open("/", O_PATH) != descriptor) // NOLINT: children inherit it
            std::_Exit(EXIT_FAILURE);
    }
}

bool writeToStandardOutput(std::string_view bytes)
{
    return writeAll(STDOUT_FILENO, bytes);
}

void writeGatheredToStandardError(std::span<const std::string_view> pieces)
{
    std::array<iovec, 16> vectors{};
    std::size_t count = 0;
    for (const std::string_view piece : pieces.first(std::min(pieces.size(), vectors.size())))
        vectors.at(count++) = {const_cast<char*>(piece.data()), piece.size()};
    std::span<iovec> left(vectors.data(), count);
    while (!left.empty()) {
        const ssize_t written = ::writev(STDERR_FILENO, left.data(), static_cast<int>(left.size()));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return;
        auto taken = static_cast<std::size_t>(written);
        while (!left.empty() && taken >= left.front().iov_len) {
            taken -= left.front().iov_len;
            left = left.subspan(1);
        }
        if (!left.empty()) {
            left.front().iov_base = static_cast<char*>(left.front().iov_base) + taken;
            left.front().iov_len -= taken;
        }
    }
}

} // namespace stowline::platform
