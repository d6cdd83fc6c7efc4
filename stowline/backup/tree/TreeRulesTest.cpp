#include "stowline/backup/tree/TreeRules.h"

#include <gtest/gtest.h>

#include <random>

namespace stowline::backup {
namespace {

constexpr bool kFile = false;
constexpr bool kFolder = true;

TEST(Pattern, MatchesAsGitignoreUsersExpect)
{
    const struct {
        const char* pattern;
        const char* below;
        bool isFolder;
        bool matches;
    } rows[] = {
        // a name at any depth
        {"*.o", "a.o", kFile, true},
        {"*.o", "x/y/a.o", kFile, true},
        {"*.o", "a.o", kFolder, true},
        {"*.o", "a.o/b", kFile, false},
        {"*.o", "a.oo", kFile, false},
        {"build", "build", kFolder, true},
        {"build", "x/build", kFile, true},
        {"build", "builder", kFile, false},
        {"build", "Build", kFile, false},
        {"a?c", "abc", kFile, true},
        {"a?c", "ac", kFile, false},
        {"[a-c]x", "x/bx", kFile, true},
        {"[!a-c]x", "bx", kFile, false},
        {"*", ".hidden", kFile, true},
        {"*.txt", "\xff\xfe.txt", kFile, true},
        {"\\*", "*", kFile, true},
        {"\\*", "a", kFile, false},
        {"\\!a", "!a", kFile, true},
        // folders only
        {"build/", "build", kFolder, true},
        {"build/", "x/build", kFolder, true},
        {"build/", "build", kFile, false},
        {"build//", "build", kFolder, true},
        // from the named path on
        {"/a", "a", kFile, true},
        {"/a", "x/a", kFile, false},
        {"./a", "a", kFile, true},
        {"./a", "x/a", kFile, false},
        {"/a/", "a", kFolder, true},
        {"/a/", "a", kFile, false},
        {"a/b", "a/b", kFile, true},
        {"a/b", "x/a/b", kFile, false},
        {"a//b", "a/b", kFile, true},
        {"a/*", "a/b", kFile, true},
        {"a/*", "a/b/c", kFile, false},
        {"a*b", "a/b", kFile, false},
        {"a?b/c", "a/b/c", kFile, false},
        // any number of folders
        {"**/b", "b", kFile, true},
        {"**/b", "x/b", kFile, true},
        {"**/b", "x/y/b", kFile, true},
        {"**/b", "x/bb", kFile, false},
        {"a/**", "a", kFolder, false},
        {"a/**", "a/b", kFile, true},
        {"a/**", "a/b/c", kFile, true},
        {"a/**/b", "a/b", kFile, true},
        {"a/**/b", "a/x/b", kFile, true},
        {"a/**/b", "a/x/y/b", kFile, true},
        {"a/**/b", "a/x/y/c", kFile, false},
        {"a/**/", "a/b", kFolder, true},
        {"**", "a/b", kFile, true},
        {"a/**/**/**/b", "a/b", kFile, true},
        {"a**b", "axxb", kFile, true},
        {"x/a**b", "x/a/b", kFile, false},
    };
    for (const auto& row : rows) {
        const auto pattern = Pattern::of(row.pattern);
        ASSERT_TRUE(pattern) << row.pattern;
        EXPECT_EQ(pattern->matches(row.below, row.isFolder), row.matches)
            << row.pattern << " on " << row.below;
        EXPECT_EQ(pattern->text(), row.pattern);
    }
}

TEST(Pattern, NeedsAName)
{
    for (const char* text : {"", "/", "//", ".", "./"})
        EXPECT_FALSE(Pattern::of(text)) << text;
    EXPECT_FALSE(Pattern::of(std::string_view("a\0b", 3)));
}

TEST(Pattern, WithManyDoubleStarsTakesNoLongTime)
{
    std::string pattern;
    std::string path;
    for (int i = 0; i < 40; ++i) {
        pattern += "**/a/";
        path += "a/";
    }
    EXPECT_FALSE(Pattern::of(pattern + "b")->matches(path + "c", kFile));
}

std::optional<Exclusion> excludedBy(const TreeRules& rules, std::string_view below,
                                    bool isFolder = kFile, bool isHidden = false)
{
    return rules.excludes({below, isFolder, isHidden, rules.includes(below, isFolder)});
}

Exclusion byPattern(const std::string& pattern)
{
    return {Rule::pattern, pattern};
}

TEST(TreeRules, TakeEverythingWithoutPatterns)
{
    EXPECT_EQ(excludedBy({}, ".x", kFile, true), std::nullopt);
}

TEST(TreeRules, TellThePatternThatDecided)
{
    TreeRules rules;
    ASSERT_TRUE(rules.exclude("*.o"));
    ASSERT_TRUE(rules.exclude("/a/*"));
    EXPECT_FALSE(rules.exclude(""));
    EXPECT_EQ(excludedBy(rules, "x.o"), byPattern("*.o"));
    EXPECT_EQ(excludedBy(rules, "a/x.o"), byPattern("/a/*"));
    EXPECT_EQ(excludedBy(rules, "x.c"), std::nullopt);
}

TEST(TreeRules, LetTheLastLineDecide)
{
    TreeRules rules;
    EXPECT_EQ(rules.excludeLines("# objects\n\n*.o\n!keep.o\n/lib/keep.o\n"), std::nullopt);
    EXPECT_EQ(excludedBy(rules, "a.o"), byPattern("*.o"));
    EXPECT_EQ(excludedBy(rules, "x/keep.o"), std::nullopt);
    EXPECT_EQ(excludedBy(rules, "lib/keep.o"), byPattern("/lib/keep.o"));
    EXPECT_EQ(excludedBy(rules, "# objects"), std::nullopt);
    ASSERT_TRUE(rules.exclude("keep.o"));
    EXPECT_EQ(excludedBy(rules, "x/keep.o"), byPattern("keep.o"));
}

TEST(TreeRules, ReadLinesAsGitignoreFilesAreRead)
{
    TreeRules rules;
    EXPECT_EQ(rules.excludeLines("blank   \nkept\\ \n\\#a\n\\!b\nlast"), std::nullopt);
    EXPECT_TRUE(excludedBy(rules, "blank"));
    EXPECT_TRUE(excludedBy(rules, "kept "));
    EXPECT_FALSE(excludedBy(rules, "kept"));
    EXPECT_TRUE(excludedBy(rules, "#a"));
    EXPECT_TRUE(excludedBy(rules, "!b"));
    EXPECT_TRUE(excludedBy(rules, "last"));
    EXPECT_EQ(TreeRules().excludeLines("a\n#\n/\nb"), 3U);
    EXPECT_EQ(TreeRules().excludeLines("!"), 1U);
    EXPECT_EQ(TreeRules().excludeLines(""), std::nullopt);
}

TEST(TreeRules, ReadLinesThatAnEditorOfAnotherSystemWrote)
{
    TreeRules rules;
    EXPECT_EQ(rules.excludeLines("\xef\xbb\xbf*.o\r\n\r\n# objects\r\n!keep.o\r\nblank  \r\nlast"),
              std::nullopt);
    EXPECT_EQ(excludedBy(rules, "a.o"), byPattern("*.o"));
    EXPECT_EQ(excludedBy(rules, "keep.o"), std::nullopt);
    EXPECT_EQ(excludedBy(rules, "blank"), byPattern("blank"));
    EXPECT_EQ(excludedBy(rules, "last"), byPattern("last"));
    EXPECT_EQ(TreeRules().excludeLines("a\r\n/\r\n"), 2U);
}

TEST(TreeRules, TakeAnOptionsPatternByItsWord)
{
    TreeRules rules;
    ASSERT_TRUE(rules.exclude("#x"));
    ASSERT_TRUE(rules.exclude("!y"));
    EXPECT_TRUE(excludedBy(rules, "#x"));
    EXPECT_TRUE(excludedBy(rules, "!y"));
}

TEST(TreeRules, TakeOnlyWhatIsIncludedButEveryFolderOnTheWay)
{
    TreeRules rules;
    ASSERT_TRUE(rules.include("*.jpg"));
    ASSERT_TRUE(rules.include("/docs/"));
    ASSERT_TRUE(rules.exclude("bad*"));
    const Exclusion notIncluded{Rule::notIncluded, {}};
    EXPECT_EQ(excludedBy(rules, "a/b.jpg"), std::nullopt);
    EXPECT_EQ(excludedBy(rules, "a/b.txt"), notIncluded);
    EXPECT_EQ(excludedBy(rules, "a", kFolder), std::nullopt);
    EXPECT_EQ(excludedBy(rules, "bad.jpg"), byPattern("bad*"));
    EXPECT_TRUE(rules.includes("docs", kFolder));
    EXPECT_FALSE(rules.includes("docs", kFile));
    EXPECT_EQ(rules.excludes({.below = "docs/x.txt", .isIncluded = true}), std::nullopt);
}

TEST(TreeRules, LeaveHiddenItemsOutWhenAsked)
{
    TreeRules rules;
    rules.skipsHidden = true;
    EXPECT_EQ(excludedBy(rules, "x", kFile, true), (Exclusion{Rule::hidden, {}}));
    EXPECT_EQ(excludedBy(rules, "x", kFolder, true), (Exclusion{Rule::hidden, {}}));
    EXPECT_EQ(excludedBy(rules, "x", kFile, false), std::nullopt);
}

TEST(TreeRules, AreToldInWords)
{
    EXPECT_EQ(sentenceOf(byPattern("*.o")), "pattern *.o");
    EXPECT_EQ(sentenceOf({Rule::notIncluded, {}}), "not among what is included");
    EXPECT_EQ(sentenceOf({Rule::hidden, {}}), "hidden");
    EXPECT_EQ(sentenceOf({Rule::cacheFolder, {}}), "tagged as a cache");
    EXPECT_EQ(sentenceOf({Rule::otherFileSystem, {}}), "on another file system");
    EXPECT_EQ(sentenceOf({Rule::pseudoFileSystem, {}}), "shows the state of the system");
    EXPECT_EQ(sentenceOf({Rule::ownFolder, {}}), "keeps the state of backups");
}

TEST(CacheTag, IsKnownByItsSignature)
{
    EXPECT_TRUE(isCacheTag("Signature: 8a477f597d28d172789f06886806bc55"));
    EXPECT_TRUE(isCacheTag("Signature: 8a477f597d28d172789f06886806bc55\n# by x"));
    EXPECT_FALSE(isCacheTag("Signature: 8a477f597d28d172789f06886806bc5"));
    EXPECT_FALSE(isCacheTag(" Signature: 8a477f597d28d172789f06886806bc55"));
    EXPECT_FALSE(isCacheTag(""));
}

TEST(PathsOfList, AreLinesOrEndWithNul)
{
    using Paths = std::vector<std::string>;
    EXPECT_EQ(pathsOfList("a\n\n#b \nc"), (Paths{"a", "#b ", "c"}));
    EXPECT_EQ(pathsOfList(std::string_view("a\nb\0c\0", 6)), (Paths{"a\nb", "c"}));
    EXPECT_EQ(pathsOfList(""), Paths{});
}

/// Random patterns and paths: a pattern without wildcards matches exactly its own path, adding a
/// leading "**/" matches at every depth, and nothing ends the process.
TEST(Pattern, KeepsItsLawsForAnyBytes)
{
    std::mt19937 random(11);
    const std::string bytes = "ab*?[]\\!/ .\xff-";
    const auto randomText = [&](std::size_t most) {
        std::string text;
        for (auto length = 1 + random() % most; length > 0; --length)
            text += bytes[random() % bytes.size()];
        return text;
    };
    for (int round = 0; round < 20'000; ++round) {
        const std::string text = randomText(8);
        const std::string path = randomText(10);
        if (const auto pattern = Pattern::of(text)) {
            const bool inFolder = pattern->matches("x/" + path, kFolder);
            if (!pattern->matches("x/" + path, kFile) && inFolder) {
                EXPECT_TRUE(text.ends_with('/')) << text;
            }
            const bool areNames = (text + path).find('/') == std::string::npos;
            if (areNames) {
                EXPECT_EQ(pattern->matches(path, kFile), inFolder) << text << " on " << path;
            }
        }
        std::string quoted;
        for (const char c : path)
            quoted.append(c == '/' ? "" : "\\").append(1, c);
        const auto exact = Pattern::of("/" + quoted);
        const bool hasDots = ("/" + path + "/").find("/./") != std::string::npos;
        if (!exact || path.ends_with('/') || hasDots) // no path that is walked has such names
            continue;
        EXPECT_TRUE(exact->matches(path, kFile)) << path;
        EXPECT_TRUE(Pattern::of("**/" + quoted)->matches("x/y/" + path, kFile)) << path;
        EXPECT_FALSE(exact->matches(path + "b", kFile)) << path;
    }
}

} // namespace
} // namespace stowline::backup
