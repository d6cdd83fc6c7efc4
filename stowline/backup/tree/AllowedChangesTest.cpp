#include "stowline/backup/tree/AllowedChanges.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

bool allows(const char* pattern, const char* path)
{
    AllowedChanges changes({"/home/ann", "/srv/data/"});
    EXPECT_TRUE(changes.add(pattern));
    return changes.allows(path);
}

TEST(AllowedChanges, AreNamesAtAnyDepth)
{
    EXPECT_TRUE(allows("*.log", "/home/ann/a/b/x.log"));
    EXPECT_TRUE(allows("*.log", "/x.log"));
    EXPECT_FALSE(allows("*.log", "/home/ann/x.log.gz"));
    EXPECT_FALSE(allows("*.log", "/home/ann/x.log/y")) << "its folder is another name";
}

TEST(AllowedChanges, ArePathsFromWhatWasNamedOn)
{
    EXPECT_TRUE(allows("logs/*.log", "/home/ann/logs/x.log"));
    EXPECT_TRUE(allows("/logs/**/x", "/home/ann/logs/a/b/x"));
    EXPECT_TRUE(allows("x/y", "/srv/data/x/y"));
    EXPECT_FALSE(allows("logs/*.log", "/home/ann/more/logs/x.log"));
    EXPECT_FALSE(allows("logs/*.log", "/home/anna/logs/x.log"));
}

TEST(AllowedChanges, AreWholePathsToo)
{
    EXPECT_TRUE(allows("/home/ann/*.log", "/home/ann/x.log"));
    EXPECT_TRUE(allows("/stdin/dump", "/stdin/dump"));
    EXPECT_FALSE(allows("/home/ann/*.log", "/home/ann/a/x.log"));
}

TEST(AllowedChanges, TakeNothingThatIsNotAPattern)
{
    EXPECT_FALSE(AllowedChanges().add("/"));
    EXPECT_FALSE(AllowedChanges().add(""));
    EXPECT_FALSE(AllowedChanges().allows("/home/ann/x"));
}

} // namespace
} // namespace stowline::backup
