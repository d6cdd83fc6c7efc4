// Conditions on the attributes of objects.
#pragma once

#include "stowline/platform/values/Value.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// A condition that an object meets or not; there is no third answer. A plain value that any thread
/// may use. Whether the attributes exist and hold what they are compared with shows when it is
/// used.
///
/// Text is compared exactly, by code points. An attribute that holds nothing is unequal to every
/// value, and neither less nor greater; a negation of a condition is met whenever the condition is
/// not.
class Predicate {
public:
    enum class Relation { equal, notEqual, less, lessOrEqual, greater, greaterOrEqual };

    [[nodiscard]] static Predicate comparing(std::string attribute, Relation relation, Value value);

    /// Equal to one of the values; no values are met by no object.
    [[nodiscard]] static Predicate in(std::string attribute, Array values);

    /// Of text attributes.
    [[nodiscard]] static Predicate beginsWith(std::string attribute, std::string text);
    [[nodiscard]] static Predicate contains(std::string attribute, std::string text);
    /// The whole text is of a form in which "*" stands for any characters, "?" for one, and a
    /// backslash takes the meaning from what follows it.
    [[nodiscard]] static Predicate like(std::string attribute, std::string form);

    [[nodiscard]] static Predicate isNull(std::string attribute);
    [[nodiscard]] static Predicate isNotNull(std::string attribute);

    /// All of none is met by every object, any of none by no object.
    [[nodiscard]] static Predicate allOf(std::vector<Predicate> conditions);
    [[nodiscard]] static Predicate anyOf(std::vector<Predicate> conditions);
    [[nodiscard]] static Predicate negationOf(Predicate condition);

    /// What it is made of, for those who evaluate it.
    enum class Kind { comparison, in, beginsWith, contains, like, isNull, allOf, anyOf, negation };
    [[nodiscard]] Kind kind() const { return content_->kind; }
    [[nodiscard]] const std::string& attribute() const { return content_->attribute; }
    [[nodiscard]] Relation relation() const { return content_->relation; }
    [[nodiscard]] const Array& values() const { return content_->values; }
    [[nodiscard]] const std::vector<Predicate>& conditions() const { return content_->conditions; }

private:
    struct Content {
        Kind kind;
        std::string attribute = {};
        Relation relation = Relation::equal;
        Array values = {};
        std::vector<Predicate> conditions = {};
    };
    explicit Predicate(Content content)
        : content_(std::make_shared<const Content>(std::move(content)))
    {
    }
    std::shared_ptr<const Content> content_;
};

/// The order of fetched objects: by one attribute; nothing comes before every value.
struct SortDescriptor {
    std::string attribute;
    bool ascending = true;
};

} // namespace stowline
#pragma GCC visibility pop
