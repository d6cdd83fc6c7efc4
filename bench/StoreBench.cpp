// The object store with a million objects.
#include "bench/Measure.h"
#include "stowline/util/CoreDataMethods.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <cstdlib>
#include <functional>
#include <random>

namespace stowline::bench {

namespace {

constexpr int kObjects = 1000000;
constexpr int kPerSave = 50000;
constexpr int kRounds = 51;

const ObjectModel kModel{{"File",
                          {{"name", AttributeType::string, true},
                           {"size", AttributeType::integer, true},
                           {"owner", AttributeType::string}}}};

void fill(ManagedObjectContext& context)
{
    std::mt19937_64 generator(1);
    const EntityDescription& entity = *context.entityNamed("File");
    for (int i = 0; i < kObjects; ++i) {
        const auto object = context.insertObject(entity);
        object->setValue("name", fmt::format("folder-{:04}/file-{}", generator() % 5000, i));
        object->setValue("size", static_cast<std::int64_t>(generator() % 1000000));
        object->setValue("owner", i % 2 == 0 ? "ann" : "bob");
        if (i % kPerSave == kPerSave - 1 && !context.save(nullptr))
            std::exit(1);
    }
}

/// Median time of a question, given a different number on each round.
double timeOf(const std::function<void(std::int64_t)>& ask)
{
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round)
        times.push_back(microsecondsFor([&] { ask(round * 19000); }));
    return median(times);
}

Row row(const std::string& subject, double time, double limit)
{
    return {subject,
            fmt::format("{:.2f} ms", time / 1000),
            fmt::format("{} ms", limit),
            time / 1000 / limit,
            "≤ 1.0",
            time / 1000 <= limit};
}

} // namespace

void measureStore()
{
    using namespace CoreDataMethods;
    const test::TemporaryFolder folder;
    const auto context = ManagedObjectContext::open(folder.path() / "store", kModel, nullptr);
    if (!context)
        std::exit(1);
    const double filling = microsecondsFor([&] { fill(*context); });
    fmt::print("{} objects inserted and saved in {:.1f} s\n", kObjects, filling / 1e6);
    using Relation = Predicate::Relation;
    const double page = timeOf([&](std::int64_t size) {
        const auto found = TW_fetchObjectArrayForEntityName(
            *context, "File",
            Predicate::allOf({Predicate::comparing("size", Relation::greaterOrEqual, size),
                              Predicate::comparing("owner", Relation::equal, "ann")}),
            50, 0, {{"size"}});
        if (found.empty())
            std::exit(1);
    });
    const double prefix = timeOf([&](std::int64_t number) {
        const auto found = TW_fetchObjectArrayForEntityName(
            *context, "File",
            Predicate::beginsWith("name", fmt::format("folder-{:04}/", number % 5000)), 50, 0,
            {{"name"}});
        if (found.empty())
            std::exit(1);
    });
    const double everything =
        timeOf([&](std::int64_t) { (void)TW_countForEntityForName(*context, "File", {}); });
    const double some = timeOf([&](std::int64_t) {
        (void)TW_countForEntityForName(*context, "File",
                                       Predicate::comparing("size", Relation::less, 500000));
    });
    print({row("fetching 50 of 1,000,000 by two conditions, sorted", page, 5),
           row("fetching 50 by the beginning of a name, sorted", prefix, 5),
           row("counting 1,000,000 objects", everything, 50),
           row("counting the half that meets a condition", some, 50)});
}

} // namespace stowline::bench
