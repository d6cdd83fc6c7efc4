#include "stowline/util/store/ManagedObject.h"

#include "stowline/util/store/ManagedObjectContext.h"
#include "stowline/util/store/StoreSql.h"

namespace stowline {

std::optional<std::int64_t> ManagedObject::number() const
{
    return isSaved_ ? number_ : std::nullopt;
}

const std::optional<Value>& ManagedObject::value(std::string_view attribute) const
{
    return values_[indexOf(attribute)];
}

void ManagedObject::setValue(std::string_view attribute, std::optional<Value> value)
{
    const std::size_t index = indexOf(attribute);
    if (value)
        store::requireFitting(*entity_, entity_->attributes[index], *value);
    if (!saved_)
        saved_ = values_;
    values_[index] = std::move(value);
    if (context_)
        context_->noteChange(shared_from_this());
}

std::size_t ManagedObject::indexOf(std::string_view attribute) const
{
    const AttributeDescription& found = store::requireAttribute(*entity_, attribute);
    return static_cast<std::size_t>(&found - entity_->attributes.data());
}

} // namespace stowline
