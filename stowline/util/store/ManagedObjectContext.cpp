#include "stowline/util/store/ManagedObjectContext.h"

#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/util/store/FormMatch.h"
#include "stowline/util/store/StoreSql.h"
#include "stowline/util/store/StoreValues.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <map>
#include <utility>

namespace stowline {

namespace {

namespace fs = std::filesystem;

using Objects = std::vector<std::shared_ptr<ManagedObject>>;

/// The exception that is being handled, as an error of the store; without a sentence when there is
/// no memory even for that.
Error errorOfHandledException() noexcept
{
    try {
        const platform::HandledException handled = platform::handledException();
        const int code = handled.kind == FailureKind::noMemory ? SQLITE_NOMEM : 0;
        return platform::makeError(kStoreErrorDomain, code, handled.sentence, handled.kind);
    } catch (const std::bad_alloc&) {
        return {.code = SQLITE_NOMEM, .kind = FailureKind::noMemory};
    }
}

/// An empty database for the owner alone; one that is there is left as it is.
void prepareFile(const std::string& path)
{
    if (platform::FileHandle::create(path))
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
}

std::string_view textOf(sqlite3_value* value)
{
    const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
    return bytes ? std::string_view(bytes, static_cast<std::size_t>(sqlite3_value_bytes(value)))
                 : std::string_view();
}

/// is_of_form(text, form) for SQL, whose own GLOB stops at a NUL; nothing is of no form.
void answerIsOfForm(sqlite3_context* answer, int /*count*/, sqlite3_value** values)
{
    if (sqlite3_value_type(values[0]) == SQLITE_NULL)
        return sqlite3_result_null(answer);
    sqlite3_result_int(answer, store::isOfForm(textOf(values[0]), textOf(values[1])) ? 1 : 0);
}

} // namespace

/// The database, and what stands between it and the objects.
///
/// Changes are written in a transaction that stays open until they are saved, and only when a fetch
/// must see them or they are saved.
class ManagedObjectContext::Store {
public:
    Store(const std::string& path, ObjectModel model, const Options& options)
        : path_(path), model_(std::make_shared<const ObjectModel>(std::move(model))),
          database_(path, SQLite::OPEN_READWRITE, static_cast<int>(options.lockPatience.count()))
    {
        database_.exec("PRAGMA journal_mode = WAL");
        database_.createFunction(store::kIsOfForm, 2, true, nullptr, answerIsOfForm);
        SQLite::Transaction schema(database_);
        for (const EntityDescription& entity : *model_)
            prepareTable(entity);
        schema.commit();
    }

    [[nodiscard]] const ObjectModel& model() const { return *model_; }
    [[nodiscard]] bool hasChanges() const { return !changed_.empty(); }

    void noteChange(const std::shared_ptr<ManagedObject>& object)
    {
        if (!std::exchange(object->isChanged_, true))
            changed_.push_back(object);
        if (!std::exchange(object->isUnwritten_, true))
            unwritten_.push_back(object);
    }

    [[nodiscard]] std::shared_ptr<ManagedObject> newObject(const EntityDescription& entity,
                                                           ManagedObjectContext* context) const
    {
        return std::shared_ptr<ManagedObject>(
            new ManagedObject(std::shared_ptr<const EntityDescription>(model_, &entity), context));
    }

    void save()
    {
        writeChanges();
        if (inTransaction_)
            database_.exec("COMMIT");
        inTransaction_ = false;
        for (const auto& object : changed_) {
            object->isSaved_ = !object->isDeleted_;
            object->saved_.reset();
            object->isChanged_ = false;
        }
        changed_.clear();
    }

    void rollback()
    {
        if (inTransaction_ && sqlite3_get_autocommit(database_.getHandle()) == 0)
            database_.exec("ROLLBACK");
        forgetTransaction();
        for (const auto& object : changed_) {
            if (object->saved_)
                object->values_ = *std::exchange(object->saved_, std::nullopt);
            object->isDeleted_ = false;
            object->isChanged_ = false;
            object->isUnwritten_ = false;
            if (!object->isSaved_)
                object->context_ = nullptr;
        }
        changed_.clear();
        unwritten_.clear();
    }

    [[nodiscard]] Objects fetch(const FetchRequest& request, ManagedObjectContext* context)
    {
        writeChanges();
        const EntityDescription& entity = entityOf(request);
        const store::Sql sql = store::selectRows(selectionOf(request));
        SQLite::Statement rows(database_, sql.text);
        store::bindAll(rows, sql.values);
        Objects objects;
        while (rows.executeStep())
            objects.push_back(objectOfRow(rows, entity, context));
        return objects;
    }

    [[nodiscard]] std::uint64_t count(const FetchRequest& request)
    {
        writeChanges();
        const store::Sql sql = store::selectCount(selectionOf(request));
        SQLite::Statement row(database_, sql.text);
        store::bindAll(row, sql.values);
        (void)row.executeStep();
        return static_cast<std::uint64_t>(row.getColumn(0).getInt64());
    }

    /// After a failure: a full disk, for one, makes the database give the transaction up.
    void noteLostTransaction()
    {
        if (inTransaction_ && sqlite3_get_autocommit(database_.getHandle()) != 0)
            forgetTransaction();
    }

    /// Objects that outlive the context must not reach for it.
    void detachObjects()
    {
        for (const auto& [key, known] : known_) {
            if (const auto object = known.lock())
                object->context_ = nullptr;
        }
        for (const auto& object : changed_)
            object->context_ = nullptr;
    }

    [[nodiscard]] Error errorOf(const SQLite::Exception& fault) const
    {
        return platform::makeError(kStoreErrorDomain, fault.getExtendedErrorCode(),
                                   "The object store " + path_ +
                                       " cannot be used: " + fault.what() + ".");
    }

private:
    using Key = std::pair<const EntityDescription*, std::int64_t>;

    void prepareTable(const EntityDescription& entity)
    {
        database_.exec(store::createTable(entity));
        std::map<std::string, std::string> columns;
        SQLite::Statement rows(database_, "PRAGMA table_info(" + store::quoted(entity.name) + ")");
        while (rows.executeStep())
            columns[rows.getColumn(1).getString()] = rows.getColumn(2).getString();
        for (const AttributeDescription& attribute : entity.attributes) {
            const auto column = columns.find(attribute.name);
            if (column == columns.end())
                database_.exec(store::addColumn(entity, attribute));
            else if (column->second != store::columnType(attribute.type))
                throw store::InvalidRequest("The object store " + path_ + " holds " + entity.name +
                                            "." + attribute.name +
                                            " as another type than the model. Please give the "
                                            "attribute another name.");
            if (attribute.isIndexed)
                database_.exec(store::createIndex(entity, attribute));
        }
    }

    const EntityDescription& entityOf(const FetchRequest& request) const
    {
        if (!request.entity)
            throw store::InvalidRequest("The request names no entity that the model has.");
        return *request.entity;
    }

    store::Selection selectionOf(const FetchRequest& request) const
    {
        return {entityOf(request), request.predicate, request.sortDescriptors, request.fetchLimit,
                request.fetchOffset};
    }

    void writeChanges()
    {
        if (unwritten_.empty())
            return;
        if (!inTransaction_) {
            database_.exec("BEGIN IMMEDIATE");
            inTransaction_ = true;
        }
        // In the order of the changes; what was written before a failure need not be again.
        std::size_t written = 0;
        try {
            for (; written < unwritten_.size(); ++written)
                write(unwritten_[written]);
        } catch (...) {
            unwritten_.erase(unwritten_.begin(),
                             unwritten_.begin() + static_cast<std::ptrdiff_t>(written));
            throw;
        }
        unwritten_.clear();
    }

    void write(const std::shared_ptr<ManagedObject>& object)
    {
        const EntityDescription& entity = *object->entity_;
        if (object->isDeleted_) {
            if (object->number_)
                runWith(store::deleteRow(entity), {}, object->number_);
        } else if (object->number_) {
            runWith(store::updateRow(entity), object->values_, object->number_);
        } else {
            runWith(store::insertRow(entity), object->values_, std::nullopt);
            object->number_ = database_.getLastInsertRowid();
            known_[{&entity, *object->number_}] = object;
        }
        object->isUnwritten_ = false;
    }

    void runWith(const std::string& sql, const ManagedObject::Values& values,
                 std::optional<std::int64_t> number)
    {
        auto& statement = statements_[sql];
        if (!statement)
            statement = std::make_unique<SQLite::Statement>(database_, sql);
        statement->reset();
        statement->clearBindings();
        int place = 0;
        for (const auto& value : values) {
            ++place;
            if (value)
                store::bindValue(*statement, place, *value);
        }
        if (number)
            statement->bind(++place, *number);
        statement->exec();
        statement->reset();
    }

    std::shared_ptr<ManagedObject> objectOfRow(SQLite::Statement& row,
                                               const EntityDescription& entity,
                                               ManagedObjectContext* context)
    {
        const std::int64_t number = row.getColumn(0).getInt64();
        auto& known = known_[{&entity, number}];
        auto object = known.lock();
        if (!object) {
            object = newObject(entity, context);
            object->number_ = number;
            object->isSaved_ = true;
            known = object;
            forgetTheGone();
        }
        if (!object->isChanged_) {
            int column = 0;
            for (const AttributeDescription& attribute : entity.attributes) {
                const SQLite::Column cell = row.getColumn(++column);
                object->values_[static_cast<std::size_t>(column) - 1] =
                    cell.isNull() ? std::nullopt
                                  : std::optional(store::readColumn(cell, attribute.type));
            }
        }
        return object;
    }

    /// Now and then, so that what is remembered stays in proportion to what is in use.
    void forgetTheGone()
    {
        if (known_.size() < mostKnown_)
            return;
        std::erase_if(known_, [](const auto& entry) { return entry.second.expired(); });
        mostKnown_ = std::max(kFewObjects, 2 * known_.size());
    }

    /// Nothing of the transaction is in the database.
    void forgetTransaction()
    {
        inTransaction_ = false;
        unwritten_.clear();
        for (const auto& object : changed_) {
            if (!object->isSaved_ && object->number_) {
                known_.erase({object->entity_.get(), *object->number_});
                object->number_.reset();
            }
            object->isUnwritten_ = true;
            unwritten_.push_back(object);
        }
    }

    static constexpr std::size_t kFewObjects = 1000;

    const std::string path_;
    const std::shared_ptr<const ObjectModel> model_; ///< shared with the objects
    SQLite::Database database_;
    std::map<std::string, std::unique_ptr<SQLite::Statement>> statements_;
    bool inTransaction_ = false;
    Objects changed_;   ///< since the last save, in the order of their first change
    Objects unwritten_; ///< of these, what the open transaction does not have
    std::map<Key, std::weak_ptr<ManagedObject>> known_;
    std::size_t mostKnown_ = kFewObjects;
};

namespace {

/// Runs a piece of work on the store and turns what it throws into an error.
/// @return what the work returns; absent with an error
template <class Store, class Work>
auto attempt(Store& store, platform::ErrorSlot slot, Work work) -> std::optional<decltype(work())>
{
    std::optional<Error> error;
    try {
        return work();
    } catch (const SQLite::Exception& fault) {
        error = store.errorOf(fault);
    } catch (const store::InvalidRequest& fault) {
        error = platform::makeError(kStoreErrorDomain, 0, fault.what());
    } catch (...) {
        error = errorOfHandledException();
    }
    store.noteLostTransaction();
    if (slot)
        *slot = error;
    return std::nullopt;
}

} // namespace

std::unique_ptr<ManagedObjectContext> ManagedObjectContext::open(const std::string& path,
                                                                 ObjectModel model,
                                                                 platform::ErrorSlot error,
                                                                 const Options& options)
{
    const auto fail = [error](int code, const std::string& sentence) {
        if (error)
            *error = platform::makeError(kStoreErrorDomain, code, sentence);
    };
    try {
        store::requireUsableModel(model);
        prepareFile(path);
        return std::unique_ptr<ManagedObjectContext>(
            new ManagedObjectContext(std::make_unique<Store>(path, std::move(model), options)));
    } catch (const SQLite::Exception& fault) {
        fail(fault.getExtendedErrorCode(),
             "The object store " + path + " cannot be opened: " + fault.what() + ".");
    } catch (const platform::FileFault& fault) {
        fail(0, std::string("The object store cannot be made: ") + fault.what() + ".");
    } catch (...) {
        if (error)
            *error = errorOfHandledException();
    }
    return nullptr;
}

ManagedObjectContext::ManagedObjectContext(std::unique_ptr<Store> store) : store_(std::move(store))
{
}

ManagedObjectContext::~ManagedObjectContext()
{
    store_->detachObjects();
}

const EntityDescription* ManagedObjectContext::entityNamed(std::string_view name) const
{
    for (const EntityDescription& entity : store_->model()) {
        if (entity.name == name)
            return &entity;
    }
    return nullptr;
}

std::shared_ptr<ManagedObject> ManagedObjectContext::insertObject(const EntityDescription& entity)
{
    auto object = store_->newObject(entity, this);
    store_->noteChange(object);
    return object;
}

void ManagedObjectContext::deleteObject(const std::shared_ptr<ManagedObject>& object)
{
    object->isDeleted_ = true;
    if (object->context_)
        store_->noteChange(object);
}

bool ManagedObjectContext::hasChanges() const
{
    return store_->hasChanges();
}

bool ManagedObjectContext::save(platform::ErrorSlot error)
{
    return attempt(*store_, error,
                   [&] {
                       store_->save();
                       return true;
                   })
        .has_value();
}

void ManagedObjectContext::rollback()
{
    (void)attempt(*store_, nullptr, [&] {
        store_->rollback();
        return true;
    });
}

std::optional<Objects> ManagedObjectContext::executeFetchRequest(const FetchRequest& request,
                                                                 platform::ErrorSlot error)
{
    return attempt(*store_, error, [&] { return store_->fetch(request, this); });
}

std::optional<std::uint64_t> ManagedObjectContext::countForFetchRequest(const FetchRequest& request,
                                                                        platform::ErrorSlot error)
{
    return attempt(*store_, error, [&] { return store_->count(request); });
}

void ManagedObjectContext::noteChange(const std::shared_ptr<ManagedObject>& object)
{
    store_->noteChange(object);
}

} // namespace stowline
