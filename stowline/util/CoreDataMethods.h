// Counting and fetching objects in one call.
#pragma once

#include "stowline/util/store/ManagedObjectContext.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// Raised when a store reports an error; its reason is the error's message.
class GenericException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace stowline

/// Free functions on an object-store context, used from where the context is used. Without a
/// predicate they mean every object; without sort descriptors the order is not defined. A request
/// that cannot be carried out (an entity or attribute that the model lacks) is an error too.
/// @throws GenericException when the store reports an error: the only way in which they fail
namespace stowline::CoreDataMethods {

using ObjectArray = std::vector<std::shared_ptr<ManagedObject>>;

[[nodiscard]] std::uint64_t TW_countForEntity(ManagedObjectContext& context,
                                              const EntityDescription* entity,
                                              const std::optional<Predicate>& withPredicate);

[[nodiscard]] std::uint64_t TW_countForEntityForName(ManagedObjectContext& context,
                                                     std::string_view name,
                                                     const std::optional<Predicate>& withPredicate);

[[nodiscard]] ObjectArray
TW_fetchObjectArrayForEntity(ManagedObjectContext& context, const EntityDescription* entity,
                             const std::optional<Predicate>& withPredicate);

[[nodiscard]] ObjectArray
TW_fetchObjectArrayForEntity(ManagedObjectContext& context, const EntityDescription* entity,
                             const std::optional<Predicate>& withPredicate,
                             const std::vector<SortDescriptor>& withSortDescriptors);

[[nodiscard]] ObjectArray
TW_fetchObjectArrayForEntityName(ManagedObjectContext& context, std::string_view name,
                                 const std::optional<Predicate>& withPredicate);

/// @param withFetchLimit 0 for no limit
[[nodiscard]] ObjectArray
TW_fetchObjectArrayForEntityName(ManagedObjectContext& context, std::string_view name,
                                 const std::optional<Predicate>& withPredicate,
                                 std::uint64_t withFetchLimit, std::uint64_t fromOffset,
                                 const std::vector<SortDescriptor>& sortedBy);

} // namespace stowline::CoreDataMethods
#pragma GCC visibility pop
