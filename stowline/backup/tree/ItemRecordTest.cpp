#include "stowline/backup/tree/ItemRecord.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace stowline::backup {
namespace {

TEST(Paths, AreTakenApartAndPutTogether)
{
    EXPECT_EQ(parentOf("/a/b"), "/a");
    EXPECT_EQ(parentOf("/a"), "/");
    EXPECT_EQ(parentOf("/"), "");
    EXPECT_EQ(nameOf("/a/b"), "b");
    EXPECT_EQ(nameOf("/"), "/");
    EXPECT_EQ(pathIn("/", "a"), "/a");
    EXPECT_EQ(pathIn("/a", "b"), "/a/b");
}

TEST(ComparePaths, PutsAFolderBeforeWhatIsInItAndThatBeforeItsNeighbours)
{
    const std::vector<std::string> walked{"/",    "/a",     "/a/b", "/a/b/c", "/a/b-c",
                                          "/a-b", "/a.txt", "/ab",  "/b",     "/\xff"};
    for (std::size_t i = 0; i < walked.size(); ++i) {
        for (std::size_t j = 0; j < walked.size(); ++j) {
            const int order = comparePaths(walked[i], walked[j]);
            EXPECT_EQ(order < 0, i < j) << walked[i] << " " << walked[j];
            EXPECT_EQ(order == 0, i == j) << walked[i] << " " << walked[j];
        }
    }
}

} // namespace
} // namespace stowline::backup
