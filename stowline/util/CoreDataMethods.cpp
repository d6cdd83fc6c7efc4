#include "stowline/util/CoreDataMethods.h"

#include "stowline/platform/values/Format.h"

namespace stowline::CoreDataMethods {

namespace {

[[noreturn]] void raise(const std::optional<Error>& error)
{
    throw GenericException(platform::formatText("%@", error->localizedDescription()));
}

ObjectArray fetched(ManagedObjectContext& context, const FetchRequest& request)
{
    std::optional<Error> error;
    auto objects = context.executeFetchRequest(request, &error);
    if (!objects)
        raise(error);
    return std::move(*objects);
}

} // namespace

std::uint64_t TW_countForEntity(ManagedObjectContext& context, const EntityDescription* entity,
                                const std::optional<Predicate>& withPredicate)
{
    std::optional<Error> error;
    const auto count = context.countForFetchRequest({entity, withPredicate}, &error);
    if (!count)
        raise(error);
    return *count;
}

std::uint64_t TW_countForEntityForName(ManagedObjectContext& context, std::string_view name,
                                       const std::optional<Predicate>& withPredicate)
{
    return TW_countForEntity(context, context.entityNamed(name), withPredicate);
}

ObjectArray TW_fetchObjectArrayForEntity(ManagedObjectContext& context,
                                         const EntityDescription* entity,
                                         const std::optional<Predicate>& withPredicate)
{
    return fetched(context, {entity, withPredicate});
}

ObjectArray TW_fetchObjectArrayForEntity(ManagedObjectContext& context,
                                         const EntityDescription* entity,
                                         const std::optional<Predicate>& withPredicate,
                                         const std::vector<SortDescriptor>& withSortDescriptors)
{
    return fetched(context, {entity, withPredicate, withSortDescriptors});
}

ObjectArray TW_fetchObjectArrayForEntityName(ManagedObjectContext& context, std::string_view name,
                                             const std::optional<Predicate>& withPredicate)
{
    return fetched(context, {context.entityNamed(name), withPredicate});
}

ObjectArray TW_fetchObjectArrayForEntityName(ManagedObjectContext& context, std::string_view name,
                                             const std::optional<Predicate>& withPredicate,
                                             std::uint64_t withFetchLimit, std::uint64_t fromOffset,
                                             const std::vector<SortDescriptor>& sortedBy)
{
    return fetched(
        context, {context.entityNamed(name), withPredicate, sortedBy, withFetchLimit, fromOffset});
}

} // namespace stowline::CoreDataMethods
