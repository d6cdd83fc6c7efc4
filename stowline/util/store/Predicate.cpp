#include "stowline/util/store/Predicate.h"

namespace stowline {

Predicate Predicate::comparing(std::string attribute, Relation relation, Value value)
{
    return Predicate(
        {Kind::comparison, std::move(attribute), relation, Array{std::move(value)}, {}});
}

Predicate Predicate::in(std::string attribute, Array values)
{
    return Predicate({Kind::in, std::move(attribute), Relation::equal, std::move(values), {}});
}

Predicate Predicate::beginsWith(std::string attribute, std::string text)
{
    return Predicate(
        {Kind::beginsWith, std::move(attribute), Relation::equal, Array{std::move(text)}, {}});
}

Predicate Predicate::contains(std::string attribute, std::string text)
{
    return Predicate(
        {Kind::contains, std::move(attribute), Relation::equal, Array{std::move(text)}, {}});
}

Predicate Predicate::like(std::string attribute, std::string form)
{
    return Predicate(
        {Kind::like, std::move(attribute), Relation::equal, Array{std::move(form)}, {}});
}

Predicate Predicate::isNull(std::string attribute)
{
    return Predicate({Kind::isNull, std::move(attribute)});
}

Predicate Predicate::isNotNull(std::string attribute)
{
    return negationOf(isNull(std::move(attribute)));
}

Predicate Predicate::allOf(std::vector<Predicate> conditions)
{
    return Predicate({Kind::allOf, {}, Relation::equal, {}, std::move(conditions)});
}

Predicate Predicate::anyOf(std::vector<Predicate> conditions)
{
    return Predicate({Kind::anyOf, {}, Relation::equal, {}, std::move(conditions)});
}

Predicate Predicate::negationOf(Predicate condition)
{
    return Predicate({Kind::negation, {}, Relation::equal, {}, {std::move(condition)}});
}

} // namespace stowline
