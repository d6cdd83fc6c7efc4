// Exercises the reader of a run's record: whatever the service sends is a record or is refused, and
// no item of one has a path that leads out of a tree. An input is what stands in the gzip member;
// one that is packed already is read as it is.
#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/record/RecordReader.h"
#include "stowline/platform/files/GzipStream.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using namespace stowline;

std::string packed(std::string_view text)
{
    std::string bytes;
    platform::GzipWriter writer([&bytes](std::string_view some) { bytes += some; });
    writer.write(text);
    writer.finish();
    return bytes;
}

void checkPath(const std::string& path)
{
    const bool leadsOut =
        path.empty() || path.front() != '/' || (path + "/").find("/../") != std::string::npos ||
        (path + "/").find("/./") != std::string::npos || path.find("//") != std::string::npos ||
        path.find('\0') != std::string::npos;
    if (leadsOut)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    const bool isPacked = input.starts_with("\x1f\x8b");
    const std::string stored = isPacked ? std::string(input) : packed(input);
    try {
        backup::RecordReader reader(
            {.head = {},
             .item = [](const backup::StoredItem& item) { checkPath(item.item.path); },
             .gone = checkPath,
             .place = [](const backup::PlaceLine& place) { checkPath(place.path); }});
        // In pieces of other sizes than the lines have.
        for (std::size_t at = 0; at < stored.size(); at += 7)
            reader.feed(std::string_view(stored).substr(at, 7));
        reader.finish();
    } catch (const backup::RecordFault&) {
        return 0; // refused
    }
    return 0;
}
