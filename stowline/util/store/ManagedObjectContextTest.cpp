// Objects in a database: kinds of values, saving, rolling back, fetching, faults.
#include "stowline/util/store/ManagedObjectContextTest.h"
#include "tests/support/MountNamespace.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <cmath>
#include <limits>

namespace stowline {
namespace {

TEST_F(ObjectStoreTest, KeepsEveryKindOfValue)
{
    const Date moment = day(15000) + std::chrono::microseconds(123456);
    auto object = add(std::string("a\0b", 3), std::numeric_limits<std::int64_t>::min());
    object->setValue("ratio", 0.1);
    object->setValue("isHidden", true);
    object->setValue("changed", moment);
    object->setValue("digest", Data{0, 255, 1});
    EXPECT_FALSE(object->number());
    save();
    EXPECT_EQ(object->number(), 1);
    object.reset();
    open();
    const auto found = fetch({});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]->value("name"), Value(std::string("a\0b", 3)));
    EXPECT_EQ(found[0]->value("size"), Value(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(found[0]->value("ratio"), Value(0.1));
    EXPECT_EQ(found[0]->value("isHidden"), Value(true));
    EXPECT_EQ(found[0]->value("changed"), Value(moment));
    EXPECT_EQ(found[0]->value("digest"), Value(Data{0, 255, 1}));
}

TEST_F(ObjectStoreTest, KeepsNothingAndEmptyApart)
{
    add("");
    add(std::nullopt);
    auto withData = add("data");
    withData->setValue("digest", Data());
    save();
    EXPECT_EQ(names(Predicate::isNull("name")), Names{"-"});
    EXPECT_EQ(names(Predicate::comparing("name", Relation::equal, "")), Names{""});
    EXPECT_EQ(fetch({.predicate = Predicate::isNotNull("name")}).size(), 2U);
    open();
    const auto found = fetch({.predicate = Predicate::isNotNull("digest")});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]->value("digest"), Value(Data()));
}

TEST_F(ObjectStoreTest, TheFileIsForItsOwnerAlone)
{
    EXPECT_EQ(std::filesystem::status(path()).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(ObjectStoreTest, SortsAndPages)
{
    for (int i = 0; i < 10; ++i)
        add("n" + std::to_string(i), i % 3);
    const std::vector<SortDescriptor> order{{"size", false}, {"name", true}};
    std::vector<std::string> paged;
    for (std::uint64_t offset = 0; offset < 12; offset += 4) {
        for (const auto& object :
             fetch({.sortDescriptors = order, .fetchLimit = 4, .fetchOffset = offset}))
            paged.push_back(object->value("name")->text());
    }
    EXPECT_EQ(paged, (Names{"n2", "n5", "n8", "n1", "n4", "n7", "n0", "n3", "n6", "n9"}));
    EXPECT_EQ(fetch({.fetchOffset = 7}).size(), 3U);
    EXPECT_EQ(fetch({.fetchLimit = UINT64_MAX, .fetchOffset = 1}).size(), 9U);
    EXPECT_EQ(fetch({.fetchOffset = UINT64_MAX}).size(), 0U);
    EXPECT_EQ(context_->countForFetchRequest({.entity = file(), .fetchLimit = 4, .fetchOffset = 8},
                                             nullptr),
              2U);
}

TEST_F(ObjectStoreTest, NothingSortsBeforeEveryValue)
{
    add("a", 1);
    add("none");
    EXPECT_EQ(fetch({.sortDescriptors = {{"size"}}})[0]->value("name"), Value("none"));
    EXPECT_EQ(fetch({.sortDescriptors = {{"size", false}}})[0]->value("name"), Value("a"));
}

TEST_F(ObjectStoreTest, UnsavedChangesAreSeenByTheirContextAlone)
{
    const auto other = ManagedObjectContext::open(path(), fileModel(), nullptr);
    ASSERT_TRUE(other);
    add("new");
    EXPECT_TRUE(context_->hasChanges());
    EXPECT_EQ(fetch({}).size(), 1U);
    const FetchRequest everything{.entity = other->entityNamed("File")};
    EXPECT_EQ(other->countForFetchRequest(everything, nullptr), 0U);
    save();
    EXPECT_FALSE(context_->hasChanges());
    EXPECT_EQ(other->countForFetchRequest(everything, nullptr), 1U);
}

TEST_F(ObjectStoreTest, ARowIsOneObject)
{
    const auto object = add("a", 1);
    EXPECT_EQ(fetch({})[0], object);
    save();
    EXPECT_EQ(fetch({})[0], object);
    object->setValue("size", 7);
    EXPECT_EQ(fetch({.predicate = Predicate::comparing("size", Relation::equal, 7)})[0], object);
}

TEST_F(ObjectStoreTest, AFetchBringsWhatOthersSaved)
{
    const auto object = add("a", 1);
    save();
    const auto other = ManagedObjectContext::open(path(), fileModel(), nullptr);
    auto theirs = other->executeFetchRequest({.entity = other->entityNamed("File")}, nullptr);
    theirs->at(0)->setValue("size", 2);
    ASSERT_TRUE(other->save(nullptr));
    EXPECT_EQ(object->value("size"), Value(1));
    EXPECT_EQ(fetch({})[0], object);
    EXPECT_EQ(object->value("size"), Value(2));
}

TEST_F(ObjectStoreTest, DeletedObjectsAreGone)
{
    const auto object = add("a");
    save();
    const auto never = add("never saved");
    context_->deleteObject(object);
    context_->deleteObject(never);
    EXPECT_TRUE(object->isDeleted());
    EXPECT_EQ(fetch({}).size(), 0U);
    save();
    EXPECT_FALSE(object->number());
    open();
    EXPECT_EQ(fetch({}).size(), 0U);
}

TEST_F(ObjectStoreTest, NumbersAreNeverGivenTwice)
{
    const auto first = add("a");
    save();
    const auto number = first->number();
    context_->deleteObject(first);
    save();
    const auto second = add("b");
    save();
    EXPECT_GT(second->number(), number);
}

TEST_F(ObjectStoreTest, RollbackTakesEverythingBack)
{
    const auto kept = add("kept", 1);
    const auto deleted = add("deleted", 2);
    save();
    kept->setValue("size", 5);
    context_->deleteObject(deleted);
    const auto inserted = add("inserted");
    EXPECT_EQ(fetch({}).size(), 2U);
    context_->rollback();
    EXPECT_FALSE(context_->hasChanges());
    EXPECT_EQ(kept->value("size"), Value(1));
    EXPECT_FALSE(deleted->isDeleted());
    EXPECT_EQ(names(Predicate::allOf({})), (Names{"deleted", "kept"}));
    inserted->setValue("size", 9);
    save();
    EXPECT_EQ(fetch({}).size(), 2U);
    const auto after = add("after");
    save();
    EXPECT_EQ(fetch({}).size(), 3U);
    EXPECT_NE(after, inserted);
}

TEST_F(ObjectStoreTest, ObjectsOutliveTheirContext)
{
    const auto object = add("a");
    context_.reset();
    object->setValue("size", 1);
    EXPECT_EQ(object->value("size"), Value(1));
}

TEST_F(ObjectStoreTest, UnknownAttributesAndWrongKindsAreRefused)
{
    const auto object = add("a");
    EXPECT_THROW((void)object->value("nonsense"), std::invalid_argument);
    EXPECT_THROW(object->setValue("nonsense", 1), std::invalid_argument);
    EXPECT_THROW(object->setValue("size", "text"), std::invalid_argument);
    EXPECT_THROW(object->setValue("size", UINT64_MAX), std::invalid_argument);
    EXPECT_THROW(object->setValue("ratio", std::nan("")), std::invalid_argument);
    EXPECT_THROW(object->setValue("isHidden", 1), std::invalid_argument);

    EXPECT_EQ(refusal({.entity = file(), .predicate = Predicate::isNull("nonsense")}),
              "File has no attribute \"nonsense\".");
    EXPECT_EQ(refusal({.entity = file(), .sortDescriptors = {{"nonsense"}}}),
              "File has no attribute \"nonsense\".");
    EXPECT_EQ(refusal({.entity = file(),
                       .predicate = Predicate::comparing("size", Relation::equal, "1")}),
              "File.size holds whole numbers and cannot be a string like this one.");
    EXPECT_EQ(refusal({.entity = file(), .predicate = Predicate::beginsWith("size", "1")}),
              "File.size holds whole numbers and cannot be a string like this one.");
    EXPECT_EQ(refusal({}), "The request names no entity that the model has.");
}

TEST_F(ObjectStoreTest, AModelMayGrow)
{
    add("a", 1);
    save();
    ObjectModel larger = fileModel();
    larger[0].attributes.push_back({"owner", AttributeType::string, true});
    larger.push_back({"Owner", {}});
    context_ = ManagedObjectContext::open(path(), larger, nullptr);
    ASSERT_TRUE(context_);
    const auto found = fetch({});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0]->value("owner"));
    (void)context_->insertObject(*context_->entityNamed("Owner"));
    save();
    // An older program still reads it.
    open();
    EXPECT_EQ(fetch({}).size(), 1U);
}

TEST_F(ObjectStoreTest, AnAttributeOfAnotherTypeIsTold)
{
    std::optional<Error> error;
    EXPECT_FALSE(
        ManagedObjectContext::open(path(), {{"File", {{"size", AttributeType::string}}}}, &error));
    EXPECT_EQ(error->localizedDescription(),
              "The object store " + path() +
                  " holds File.size as another type than the model. Please give the attribute "
                  "another name.");
}

TEST(ObjectStore, RefusesNamesThatAreNone)
{
    const test::TemporaryFolder folder;
    for (const char* name : {"", "_id", "a b", "x\"y", "1a", "ü"}) {
        std::optional<Error> error;
        EXPECT_FALSE(ManagedObjectContext::open(folder.path() / "s", {{name, {}}}, &error));
        EXPECT_TRUE(error->localizedDescription().find("is not a name") != std::string::npos);
        EXPECT_FALSE(ManagedObjectContext::open(folder.path() / "s", {{"E", {{name}}}}, nullptr));
    }
    EXPECT_FALSE(ManagedObjectContext::open(folder.path() / "s", {{"E", {}}, {"e", {}}}, nullptr));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "s"));
}

TEST(ObjectStore, TellsOfFilesThatAreNoStore)
{
    const test::TemporaryFolder folder;
    const std::string text = folder.write("text", "this is no database at all");
    std::optional<Error> error;
    EXPECT_FALSE(ManagedObjectContext::open(text, fileModel(), &error));
    EXPECT_EQ(error->localizedDescription(),
              "The object store " + text + " cannot be opened: file is not a database.");
    EXPECT_EQ(std::filesystem::file_size(text), 26U) << "it must not be touched";
    EXPECT_FALSE(ManagedObjectContext::open(folder.path(), fileModel(), nullptr));
    EXPECT_FALSE(ManagedObjectContext::open(folder.path() / "no" / "s", fileModel(), &error));
    EXPECT_EQ(error->localizedDescription(), "The object store cannot be made: Cannot create " +
                                                 (folder.path() / "no" / "s").string() +
                                                 ": No such file or directory.");
    EXPECT_FALSE(ManagedObjectContext::open("", fileModel(), nullptr));
    EXPECT_FALSE(ManagedObjectContext::open(std::string("a\0b", 3), fileModel(), nullptr));
}

TEST_F(ObjectStoreTest, AfterAFailedSaveNothingIsLost)
{
    context_ = ManagedObjectContext::open(path(), fileModel(), nullptr,
                                          {.lockPatience = std::chrono::milliseconds(20)});
    add("a");
    SQLite::Database other(path(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    std::optional<Error> error;
    EXPECT_FALSE(context_->save(&error));
    EXPECT_EQ(error->localizedDescription(),
              "The object store " + path() + " cannot be used: database is locked.");
    EXPECT_TRUE(context_->hasChanges());
    other.exec("ROLLBACK");
    save();
    EXPECT_EQ(fetch({}).size(), 1U);
}

TEST_F(ObjectStoreTest, AFullDiskLosesNothingThatIsUnsaved)
{
    context_.reset();
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = test::Mount::memory(folder_.path() / "disk", "size=8m");
    const std::string full = folder_.path() / "disk" / "store";
    context_ = ManagedObjectContext::open(full, fileModel(), nullptr);
    ASSERT_TRUE(context_);
    add("first");
    save();
    const auto filler = folder_.write("disk/filler", "");
    std::ofstream(filler) << std::string(9 << 20, 'x');
    std::vector<ObjectPointer> objects;
    for (int i = 0; i < 300; ++i)
        objects.push_back(add(std::string(1000, 'x'), i));
    std::optional<Error> error;
    EXPECT_FALSE(context_->save(&error));
    EXPECT_EQ(error->localizedDescription(),
              "The object store " + full + " cannot be used: database or disk is full.");
    std::filesystem::remove(filler);
    save();
    EXPECT_EQ(fetch({}).size(), 301U);
    SQLite::Database check(full, SQLite::OPEN_READONLY);
    EXPECT_EQ(check.execAndGet("SELECT count(*) FROM File").getInt(), 301);
    EXPECT_EQ(check.execAndGet("PRAGMA integrity_check").getString(), "ok");
}

} // namespace
} // namespace stowline
