// What the tests of the object store have in common.
#pragma once

#include "stowline/util/store/ManagedObjectContext.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace stowline {

using Relation = Predicate::Relation;
using ObjectPointer = std::shared_ptr<ManagedObject>;

inline ObjectModel fileModel()
{
    return {{"File",
             {{"name", AttributeType::string, true},
              {"size", AttributeType::integer, true},
              {"ratio", AttributeType::real},
              {"isHidden", AttributeType::boolean},
              {"changed", AttributeType::date},
              {"digest", AttributeType::data}}},
            {"Folder", {{"name"}}}};
}

inline Date day(int number)
{
    return Date(std::chrono::hours(24 * number));
}

class ObjectStoreTest : public testing::Test {
protected:
    ObjectStoreTest() { open(); }

    void open()
    {
        std::optional<Error> error;
        context_ = ManagedObjectContext::open(path(), fileModel(), &error);
        ASSERT_TRUE(context_) << error->text();
    }
    [[nodiscard]] std::string path() const { return folder_.path() / "store.sqlite"; }
    [[nodiscard]] const EntityDescription* file() const { return context_->entityNamed("File"); }

    ObjectPointer add(std::optional<Value> name, std::optional<Value> size = std::nullopt)
    {
        auto object = context_->insertObject(*file());
        object->setValue("name", std::move(name));
        object->setValue("size", std::move(size));
        return object;
    }
    void save()
    {
        std::optional<Error> error;
        ASSERT_TRUE(context_->save(&error)) << error->text();
    }

    std::vector<ObjectPointer> fetch(FetchRequest request)
    {
        request.entity = file();
        std::optional<Error> error;
        auto objects = context_->executeFetchRequest(request, &error);
        EXPECT_TRUE(objects) << error->text();
        return objects.value_or(std::vector<ObjectPointer>());
    }
    /// Names of the objects that meet a condition, in order.
    std::vector<std::string> names(const Predicate& predicate)
    {
        std::vector<std::string> found;
        for (const auto& object : fetch({.predicate = predicate, .sortDescriptors = {{"name"}}}))
            found.push_back(object->value("name") ? object->value("name")->text() : "-");
        EXPECT_EQ(
            context_->countForFetchRequest({.entity = file(), .predicate = predicate}, nullptr),
            found.size());
        return found;
    }
    std::string refusal(FetchRequest request)
    {
        std::optional<Error> error;
        EXPECT_FALSE(context_->executeFetchRequest(request, &error));
        EXPECT_FALSE(context_->countForFetchRequest(request, nullptr));
        return error ? error->localizedDescription() : "no error";
    }

    test::TemporaryFolder folder_;
    std::unique_ptr<ManagedObjectContext> context_;
};

using Names = std::vector<std::string>;

} // namespace stowline
