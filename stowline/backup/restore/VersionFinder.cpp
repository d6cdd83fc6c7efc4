#include "stowline/backup/restore/VersionFinder.h"

#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/service/RemoteName.h"

#include <fmt/format.h>

namespace stowline::backup {

VersionFinder::Answer VersionFinder::versionFor(const std::string& path,
                                                const StoredContent& content)
{
    if (!content.version.empty())
        return {content.version, content.list, std::nullopt};
    const auto held = held_.find(remotePath(parentOf(path)), remotePath(nameOf(path)));
    if (held.failure || !held.file)
        return {{}, {}, held.failure};
    const HeldFile wanted{content.storedSize, fmt::format("{:08x}", content.checksum),
                          held.file->id};
    Answer answer;
    const auto version = versionOf(account_, wanted, tries_, answer.failure);
    if (version) {
        answer.version = version->version;
        answer.list = version->list;
    }
    return answer;
}

} // namespace stowline::backup
