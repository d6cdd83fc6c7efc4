#include "stowline/backup/restore/Metadata.h"

#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>

namespace stowline::backup {

namespace {

constexpr std::uint32_t kSetUserId = 04000;
constexpr std::uint32_t kSetGroupId = 02000;
constexpr std::uint32_t kUnchanged = 0xFFFFFFFF;
constexpr std::string_view kCapabilities = "security.capability";
constexpr std::int64_t kCoarsestSeconds = 2; ///< of the clocks of file systems

/// One item on its way to what its record says.
class Putting {
public:
    Putting(const platform::TargetItem& target, const ItemRecord& item, PutOptions options)
        : target_(target), item_(item), options_(options)
    {
    }

    MetadataOutcome put(std::uint32_t owner, std::uint32_t group)
    {
        const auto found = target_.status();
        if (!found) {
            outcome_.fault = sentence("it cannot be looked at", 0);
            return std::move(outcome_);
        }
        now_ = *found;
        putOwner(owner, group);
        putAttributes();
        if (item_.kind != ItemKind::link)
            putMode();
        putModified();
        return std::move(outcome_);
    }

    /// What put() would answer to hasChanged.
    [[nodiscard]] bool wouldChange(std::uint32_t owner, std::uint32_t group) const
    {
        const auto now = target_.status();
        if (!now)
            return true;
        const AttributeWork work = attributeWork();
        return now->owner != owner || now->group != group || !work.wanted.empty() ||
               !work.extra.empty() || (item_.kind != ItemKind::link && now->mode != item_.mode) ||
               Timestamp{now->modifiedSeconds, now->modifiedNanoseconds} != item_.modified;
    }

private:
    struct AttributeWork {
        std::vector<const ExtendedAttribute*> wanted; ///< that are not there, or have another value
        std::vector<std::string> extra;               ///< to be taken away
    };

    [[nodiscard]] AttributeWork attributeWork() const
    {
        int error = 0;
        auto extra = target_.attributes(error).value_or(platform::TargetItem::Attributes());
        AttributeWork work;
        for (const ExtendedAttribute& wanted : item_.attributes) {
            if (options_.withholdsPrivileges && wanted.name == kCapabilities)
                continue;
            const auto there = extra.find(wanted.name);
            if (there == extra.end() || there->second != wanted.value)
                work.wanted.push_back(&wanted);
            extra.erase(wanted.name);
        }
        for (const auto& [name, value] : extra) {
            const bool isOurs = name.starts_with("user.") ||
                                name.starts_with("system.posix_acl_") || name == kCapabilities;
            if (isOurs &&
                !(options_.keepsMark && name == kGatheringMark)) // else the system's own: labels
                work.extra.push_back(name);
        }
        return work;
    }

    [[nodiscard]] std::string sentence(const std::string& what, int error) const
    {
        return item_.path + ": " + what +
               (error == 0 ? "." : ": " + platform::systemErrorText(error) + ".");
    }

    /// @param error of the system; 0: it was not even tried
    void lose(LossKind kind, const std::string& what, int error)
    {
        const bool isNotAllowed = error == EPERM && platform::ownUserNumber() != 0;
        outcome_.losses.push_back({kind, isNotAllowed, sentence(what, error)});
    }

    /// What comes only together with an owner that did not come.
    void loseWithOwner(LossKind kind, const std::string& what)
    {
        outcome_.losses.push_back({kind, isOwnerNotAllowed_, sentence(what, 0)});
    }

    void putOwner(std::uint32_t owner, std::uint32_t group)
    {
        isOwnerRight_ = now_.owner == owner;
        isGroupRight_ = now_.group == group;
        if (isOwnerRight_ && isGroupRight_)
            return;
        outcome_.hasChanged = true;
        isModeLost_ = true; // the system takes set-id bits away
        int error = target_.setOwner(owner, group);
        if (error == 0) {
            isOwnerRight_ = isGroupRight_ = true;
            return;
        }
        if (!isGroupRight_)
            isGroupRight_ = target_.setOwner(kUnchanged, group) == 0;
        isOwnerNotAllowed_ = error == EPERM && platform::ownUserNumber() != 0;
        if (!isOwnerRight_)
            lose(LossKind::owner,
                 "the owner " + nameOr(item_.ownerName, owner) + " cannot be put back", error);
        if (!isGroupRight_)
            lose(LossKind::group,
                 "the group " + nameOr(item_.groupName, group) + " cannot be put back", error);
    }

    static std::string nameOr(const std::string& name, std::uint32_t number)
    {
        return name.empty() ? std::to_string(number) : name;
    }

    void putAttributes()
    {
        const AttributeWork work = attributeWork();
        for (const ExtendedAttribute* wanted : work.wanted) {
            if (wanted->name == kCapabilities && !isOwnerRight_) {
                loseWithOwner(LossKind::capabilities,
                              "its capabilities are dropped, since it has a different owner");
                continue;
            }
            outcome_.hasChanged = true;
            if (const int refused = target_.setAttribute(wanted->name, wanted->value))
                lose(LossKind::attribute,
                     "the extended attribute " + wanted->name + " cannot be put back", refused);
        }
        for (const std::string& name : work.extra) {
            outcome_.hasChanged = true;
            if (const int refused = target_.removeAttribute(name))
                lose(LossKind::attribute,
                     "the extended attribute " + name + " cannot be taken away", refused);
        }
    }

    void putMode()
    {
        std::uint32_t mode = item_.mode;
        if ((mode & kSetUserId) != 0 && !isOwnerRight_)
            mode &= ~kSetUserId;
        if ((mode & kSetGroupId) != 0 && !isGroupRight_ && item_.kind != ItemKind::folder)
            mode &= ~kSetGroupId;
        if (mode != item_.mode)
            loseWithOwner(LossKind::setId,
                          "its set-id bits are dropped, since it has a different owner");
        if (options_.withholdsPrivileges)
            mode &= ~(kSetUserId | kSetGroupId);
        if (mode == now_.mode && !isModeLost_)
            return;
        outcome_.hasChanged = true;
        if (const int refused = target_.setMode(mode))
            lose(LossKind::mode, "its mode cannot be put back", refused);
    }

    void putModified()
    {
        const Timestamp& wanted = item_.modified;
        if (now_.modifiedSeconds == wanted.seconds &&
            now_.modifiedNanoseconds == wanted.nanoseconds)
            return;
        if (const int refused = target_.setModified(wanted.seconds, wanted.nanoseconds))
            return lose(LossKind::time, "its time cannot be put back", refused);
        // File systems take the nearest time that they can hold, and do not say so. That of one
        // which counts in twos of seconds, the coarsest there is, is as near as it can be.
        const auto held = target_.status();
        const Timestamp before{now_.modifiedSeconds, now_.modifiedNanoseconds};
        const Timestamp after =
            held ? Timestamp{held->modifiedSeconds, held->modifiedNanoseconds} : wanted;
        outcome_.hasChanged = outcome_.hasChanged || after != before;
        if (std::abs(after.seconds - wanted.seconds) >= kCoarsestSeconds)
            lose(LossKind::time, "its time cannot be put back: the target holds no such time", 0);
    }

    const platform::TargetItem& target_;
    const ItemRecord& item_;
    platform::TargetStatus now_;
    bool isOwnerRight_ = false;
    bool isGroupRight_ = false;
    bool isOwnerNotAllowed_ = false;
    bool isModeLost_ = false;
    const PutOptions options_;
    MetadataOutcome outcome_;
};

template <class Table, class Find>
std::uint32_t numberFor(Table& table, const std::string& name, std::uint32_t number, Find find)
{
    if (name.empty())
        return number;
    const auto [place, isNew] = table.try_emplace(name);
    if (isNew)
        place->second = find(name);
    return place->second.value_or(number);
}

} // namespace

std::uint32_t Owners::owner(const ItemRecord& item)
{
    const std::lock_guard lock(mutex_);
    return numberFor(users_, item.ownerName, item.owner, platform::userNumber);
}

std::uint32_t Owners::group(const ItemRecord& item)
{
    const std::lock_guard lock(mutex_);
    return numberFor(groups_, item.groupName, item.group, platform::groupNumber);
}

bool hasPrivileges(const ItemRecord& item)
{
    return (item.mode & (kSetUserId | kSetGroupId)) != 0 ||
           std::ranges::any_of(item.attributes, [](const ExtendedAttribute& attribute) {
               return attribute.name == kCapabilities;
           });
}

MetadataOutcome putMetadata(const platform::TargetItem& target, const ItemRecord& item,
                            Owners& owners, PutOptions options)
{
    return Putting(target, item, options).put(owners.owner(item), owners.group(item));
}

bool isMetadataOther(const platform::TargetItem& target, const ItemRecord& item, Owners& owners)
{
    return Putting(target, item, {}).wouldChange(owners.owner(item), owners.group(item));
}

bool isMetadataOther(const platform::TargetFolder& folder, const std::string& name,
                     const ItemRecord& item, Owners& owners)
{
    int error = 0;
    const auto target = folder.item(name, error);
    return !target || isMetadataOther(*target, item, owners);
}

} // namespace stowline::backup
