#include "stowline/util/CoreDataMethods.h"

#include "tests/support/TemporaryFolder.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

namespace stowline {
namespace {

using namespace CoreDataMethods;

class CoreDataMethodsTest : public testing::Test {
protected:
    void SetUp() override
    {
        open();
        for (int i = 0; i < 200; ++i) {
            auto object = context_->insertObject(*item());
            object->setValue("number", i);
            object->setValue("text", std::string(500, 'x'));
        }
        ASSERT_TRUE(context_->save(nullptr));
    }
    void open()
    {
        context_ = ManagedObjectContext::open(path(), model_, nullptr,
                                              {.lockPatience = std::chrono::milliseconds(20)});
        ASSERT_TRUE(context_);
    }
    [[nodiscard]] std::string path() const { return folder_.path() / "store"; }
    [[nodiscard]] const EntityDescription* item() const { return context_->entityNamed("Item"); }
    template <class Work> static std::string reasonOf(Work work)
    {
        try {
            work();
            return "nothing raised";
        } catch (const GenericException& raised) {
            return raised.what();
        }
    }
    /// What each of the six helpers raises.
    std::vector<std::string> reasons()
    {
        auto& context = *context_;
        return {reasonOf([&] { (void)TW_countForEntity(context, item(), {}); }),
                reasonOf([&] { (void)TW_countForEntityForName(context, "Item", {}); }),
                reasonOf([&] { (void)TW_fetchObjectArrayForEntity(context, item(), {}); }),
                reasonOf([&] { (void)TW_fetchObjectArrayForEntity(context, item(), {}, {}); }),
                reasonOf([&] { (void)TW_fetchObjectArrayForEntityName(context, "Item", {}); }),
                reasonOf([&] {
                    (void)TW_fetchObjectArrayForEntityName(context, "Item", {}, 0, 0, {});
                })};
    }

    const ObjectModel model_{
        {"Item", {{"number", AttributeType::integer, true}, {"text", AttributeType::string}}}};
    test::TemporaryFolder folder_;
    std::unique_ptr<ManagedObjectContext> context_;
    const Predicate small_ = Predicate::comparing("number", Predicate::Relation::less, 10);
};

TEST_F(CoreDataMethodsTest, Count)
{
    EXPECT_EQ(TW_countForEntity(*context_, item(), {}), 200U);
    EXPECT_EQ(TW_countForEntity(*context_, item(), small_), 10U);
    EXPECT_EQ(TW_countForEntityForName(*context_, "Item", small_), 10U);
}

TEST_F(CoreDataMethodsTest, Fetch)
{
    EXPECT_EQ(TW_fetchObjectArrayForEntity(*context_, item(), small_).size(), 10U);
    EXPECT_EQ(TW_fetchObjectArrayForEntityName(*context_, "Item", {}).size(), 200U);
    const auto sorted =
        TW_fetchObjectArrayForEntity(*context_, item(), small_, {{"number", false}});
    ASSERT_EQ(sorted.size(), 10U);
    EXPECT_EQ(sorted[0]->value("number"), Value(9));
    const auto page = TW_fetchObjectArrayForEntityName(*context_, "Item", {}, 5, 3, {{"number"}});
    ASSERT_EQ(page.size(), 5U);
    EXPECT_EQ(page[0]->value("number"), Value(3));
    EXPECT_EQ(
        TW_fetchObjectArrayForEntityName(*context_, "Item", small_, 0, 4, {{"number"}}).size(), 6U);
}

TEST_F(CoreDataMethodsTest, AnUnknownEntityIsRaised)
{
    EXPECT_EQ(reasonOf([&] { (void)TW_countForEntityForName(*context_, "Nothing", {}); }),
              "The request names no entity that the model has.");
    EXPECT_EQ(reasonOf([&] { (void)TW_fetchObjectArrayForEntity(*context_, nullptr, {}); }),
              "The request names no entity that the model has.");
}

TEST_F(CoreDataMethodsTest, ACorruptStoreIsRaisedByAll)
{
    context_.reset();
    {
        SQLite::Database database(path(), SQLite::OPEN_READWRITE);
        database.exec("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    // What follows the first three pages (schema and roots) becomes noise.
    const auto size = std::filesystem::file_size(path());
    {
        std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(4096);
        for (auto at = 4096U; at < size; ++at)
            file.put('\x5a');
    }
    open();
    for (const std::string& reason : reasons())
        EXPECT_EQ(reason, "The object store " + path() +
                              " cannot be used: database disk image is malformed.");
}

TEST_F(CoreDataMethodsTest, ALockedStoreIsRaisedByAll)
{
    // Another program writes, and there are changes here that the fetch must see.
    SQLite::Database other(path(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    (void)context_->insertObject(*item());
    for (const std::string& reason : reasons())
        EXPECT_EQ(reason, "The object store " + path() + " cannot be used: database is locked.");
    other.exec("ROLLBACK");
    EXPECT_EQ(TW_countForEntity(*context_, item(), {}), 201U);
}

} // namespace
} // namespace stowline
