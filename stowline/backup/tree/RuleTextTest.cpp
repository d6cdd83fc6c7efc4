#include "stowline/backup/tree/RuleText.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Kind = NotedRule::Kind;

TEST(RuleText, IsReadBackAsTheRuleThatItIs)
{
    const std::pair<NotedRule, const char*> rules[] = {
        {{Kind::include, "*.txt"}, "include *.txt"},
        {{Kind::exclude, "a b/"}, "exclude a b/"},
        {{Kind::excludeFrom, "x\n!y"}, "exclude-from x\n!y"},
        {{Kind::skipsHidden, ""}, "skip-hidden"},
        {{Kind::skipsCaches, ""}, "exclude-caches"},
        {{Kind::staysOnFileSystem, ""}, "one-file-system"},
        {{Kind::tooLong, ""}, "too long to be noted"}};
    for (const auto& [rule, text] : rules) {
        EXPECT_EQ(textOf(rule), text);
        EXPECT_EQ(parsedRule(text), rule) << text;
    }
}

TEST(RuleText, KeepsWhatItDoesNotKnow)
{
    for (const char* text : {"", "newer-than 5", "skip-hidden files", "excludes", "include"}) {
        EXPECT_EQ(parsedRule(text), (NotedRule{Kind::unknown, text}));
        EXPECT_EQ(textOf(parsedRule(text)), text);
    }
}

} // namespace
} // namespace stowline::backup
