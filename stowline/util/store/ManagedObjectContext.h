// Objects kept in a file: inserted, changed, found again by conditions.
#pragma once

#include "stowline/platform/values/Error.h"
#include "stowline/util/store/EntityDescription.h"
#include "stowline/util/store/ManagedObject.h"
#include "stowline/util/store/Predicate.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// Domain of a store's errors. Their code is SQLite's; that of a request which cannot be carried
/// out (an unknown attribute, a value of the wrong kind) is 0.
inline constexpr const char* kStoreErrorDomain = "com.Stowline.ObjectStore";

/// What to fetch or count.
struct FetchRequest {
    const EntityDescription* entity = nullptr;        ///< of the context's model
    std::optional<Predicate> predicate = {};          ///< absent for every object
    std::vector<SortDescriptor> sortDescriptors = {}; ///< none for no particular order
    std::uint64_t fetchLimit = 0;                     ///< 0 for no limit
    std::uint64_t fetchOffset = 0;
};

/// A window on an object store, which is an SQLite database (one table an entity).
///
/// Fetching and counting see the context's own unsaved changes. Unsaved changes that have been seen
/// in this way keep other contexts of the same file from saving until save() or rollback(). A row
/// is one object in a context: fetching it twice gives the same one.
///
/// Used from one thread or queue at a time, the one that owns it. Operations report failures
/// through the error slot, which may be null and is left alone on success; after a failure the
/// context has the same unsaved changes as before and can be used on.
class ManagedObjectContext {
public:
    struct Options {
        /// How long to wait for a store that another process or context has locked.
        std::chrono::milliseconds lockPatience{5000};
    };

    /// Opens a store and makes it when it is missing (mode 0600, its folder must exist). Entities
    /// and attributes that it lacks are added to it; what the model lacks is left as it is.
    /// @return null with an error when the file is not a store, cannot be opened, or holds an
    /// attribute
    ///         of the model as another type
    [[nodiscard]] static std::unique_ptr<ManagedObjectContext> open(const std::string& path,
                                                                    ObjectModel model,
                                                                    platform::ErrorSlot error,
                                                                    const Options& options);
    [[nodiscard]] static std::unique_ptr<ManagedObjectContext>
    open(const std::string& path, ObjectModel model, platform::ErrorSlot error)
    {
        return open(path, std::move(model), error, Options());
    }

    ManagedObjectContext(const ManagedObjectContext&) = delete;
    ManagedObjectContext& operator=(const ManagedObjectContext&) = delete;
    /// Unsaved changes are lost.
    ~ManagedObjectContext();

    /// Null when the model has no such entity.
    [[nodiscard]] const EntityDescription* entityNamed(std::string_view name) const;

    /// A new object that holds nothing yet.
    /// @param entity of this context's model
    [[nodiscard]] std::shared_ptr<ManagedObject> insertObject(const EntityDescription& entity);
    void deleteObject(const std::shared_ptr<ManagedObject>& object);

    [[nodiscard]] bool hasChanges() const;

    /// Makes all changes durable, or none.
    bool save(platform::ErrorSlot error);

    /// Takes all unsaved changes back, in the objects too.
    void rollback();

    /// @return the objects asked for; absent with an error
    [[nodiscard]] std::optional<std::vector<std::shared_ptr<ManagedObject>>>
    executeFetchRequest(const FetchRequest& request, platform::ErrorSlot error);

    /// @return how many objects executeFetchRequest() would give; absent with an error
    [[nodiscard]] std::optional<std::uint64_t> countForFetchRequest(const FetchRequest& request,
                                                                    platform::ErrorSlot error);

private:
    friend class ManagedObject;
    class Store;

    explicit ManagedObjectContext(std::unique_ptr<Store> store);
    void noteChange(const std::shared_ptr<ManagedObject>& object);

    std::unique_ptr<Store> store_;
};

} // namespace stowline
#pragma GCC visibility pop
