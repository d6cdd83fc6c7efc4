// One object of a store, in memory.
#pragma once

#include "stowline/platform/values/Value.h"
#include "stowline/util/store/EntityDescription.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

class ManagedObjectContext;

/// An object that a ManagedObjectContext inserted or fetched. Changes are in memory until the
/// context saves them. Used from where the context is used; changes after the context is gone go
/// nowhere.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
public:
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    [[nodiscard]] const EntityDescription& entity() const { return *entity_; }

    /// Its number in the store, the same for ever and never given to another; absent until it is
    /// saved for the first time.
    [[nodiscard]] std::optional<std::int64_t> number() const;

    /// What an attribute holds; absent for nothing.
    /// @throws std::invalid_argument when the entity has no such attribute
    [[nodiscard]] const std::optional<Value>& value(std::string_view attribute) const;

    /// @throws std::invalid_argument also when the attribute does not hold values of this kind
    void setValue(std::string_view attribute, std::optional<Value> value);

    /// Whether it has been deleted, saved or not.
    [[nodiscard]] bool isDeleted() const { return isDeleted_; }

private:
    friend class ManagedObjectContext;
    using Values = std::vector<std::optional<Value>>; ///< in the order of the entity's attributes

    ManagedObject(std::shared_ptr<const EntityDescription> entity, ManagedObjectContext* context)
        : entity_(std::move(entity)), context_(context), values_(entity_->attributes.size())
    {
    }
    [[nodiscard]] std::size_t indexOf(std::string_view attribute) const;

    const std::shared_ptr<const EntityDescription> entity_;
    ManagedObjectContext* context_; ///< null when it takes no notice of changes any more
    Values values_;
    std::optional<Values> saved_;        ///< as the store has them, while there are changes
    std::optional<std::int64_t> number_; ///< also of a row that is not committed yet
    bool isSaved_ = false;               ///< the store has a committed row
    bool isDeleted_ = false;
    bool isChanged_ = false;   ///< the context knows of unsaved changes
    bool isUnwritten_ = false; ///< of which the open transaction does not have all
};

} // namespace stowline
#pragma GCC visibility pop
