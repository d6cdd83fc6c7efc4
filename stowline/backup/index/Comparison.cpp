#include "stowline/backup/index/Comparison.h"

namespace stowline::backup {

namespace {

constexpr std::int64_t kStampStepSeconds = 2;

bool isSameDescription(const ItemRecord& known, const ItemRecord& now,
                       const ComparisonOptions& options)
{
    // A folder's number of names follows the folders in it, and says nothing of itself.
    const bool hasSameLinks = now.kind == ItemKind::folder || known.links == now.links;
    return known.size == now.size && known.modified == now.modified && known.mode == now.mode &&
           known.owner == now.owner && known.group == now.group &&
           known.ownerName == now.ownerName && known.groupName == now.groupName &&
           known.linkTarget == now.linkTarget && known.deviceNumber == now.deviceNumber &&
           known.isMountPoint == now.isMountPoint && hasSameLinks &&
           (options.ignoresInode || known.inode == now.inode) &&
           (options.ignoresChangeTime ? known.attributes == now.attributes
                                      : known.changed == now.changed);
}

/// What makes a file be read; none when its content can be relied upon.
ChangeReason reasonToRead(const StoredItem& known, const ItemRecord& now,
                          const ComparisonOptions& options)
{
    if (!known.content)
        return ChangeReason::noContent;
    if (known.changedWhileRead)
        return ChangeReason::changedWhileRead;
    if (options.trustsNothing)
        return ChangeReason::asked;
    if (known.item.size != now.size)
        return ChangeReason::size;
    if (known.item.modified != now.modified)
        return ChangeReason::modified;
    if (!options.ignoresChangeTime && known.item.changed != now.changed)
        return ChangeReason::changed;
    if (!options.ignoresInode && known.item.inode != now.inode)
        return ChangeReason::inode;
    if (isUnsettled(now.modified, known.readBegan) ||
        (!options.ignoresChangeTime && isUnsettled(now.changed, known.readBegan)))
        return ChangeReason::unsettled;
    return ChangeReason::none;
}

} // namespace

bool isUnsettled(const Timestamp& stamp, const Timestamp& readBegan)
{
    return stamp > Timestamp{readBegan.seconds - kStampStepSeconds, readBegan.nanoseconds};
}

Decision compare(const StoredItem* known, const ItemRecord& now, std::string_view sameFileAs,
                 const ComparisonOptions& options)
{
    const bool hasContent = now.kind == ItemKind::file && sameFileAs.empty();
    const Verdict changed = hasContent ? Verdict::read : Verdict::recorded;
    if (!known)
        return {changed, ChangeReason::newItem};
    if (known->item.kind != now.kind)
        return {changed, ChangeReason::kind};
    if (known->sameFileAs != sameFileAs)
        return {changed, ChangeReason::hardLink};
    if (hasContent) {
        if (const auto reason = reasonToRead(*known, now, options); reason != ChangeReason::none)
            return {Verdict::read, reason};
    }
    if (known->isStale)
        return {Verdict::recorded, ChangeReason::stale};
    if (!isSameDescription(known->item, now, options))
        return {Verdict::recorded, ChangeReason::metadata};
    return {};
}

} // namespace stowline::backup
