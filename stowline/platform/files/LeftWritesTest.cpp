#include "stowline/platform/files/LeftWrites.h"

#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

namespace stowline::platform {
namespace {

namespace fs = std::filesystem;

TEST(LeftWrites, AreRemovedOnceNobodyIsAtThemAnyMore)
{
    const test::TemporaryFolder folder;
    const auto old = fs::file_time_type::clock::now() - std::chrono::minutes(61);
    const auto write = [&](const char* name, bool isOld) {
        folder.write(name, "x");
        if (isOld)
            fs::last_write_time(folder.path() / name, old);
    };
    write("note.a1B2c3", true);
    write("note.Zz9Zz9", false); // being written
    for (const char* other : {"note", "note.sqlite3", "note.a1B2c", "note.a1B-c3", ".a1B2c3"})
        write(other, true);
    fs::create_directory(folder.path() / "folder.a1B2c3");
    fs::create_symlink("note", folder.path() / "link.a1B2c3");
    removeLeftWrites(folder.path());
    auto left = namesInFolder(folder.path());
    std::ranges::sort(left);
    EXPECT_EQ(left, (std::vector<std::string>{".a1B2c3", "folder.a1B2c3", "link.a1B2c3", "note",
                                              "note.Zz9Zz9", "note.a1B-c3", "note.a1B2c",
                                              "note.sqlite3"}));
    removeLeftWrites(folder.path() / "nowhere");
}

} // namespace
} // namespace stowline::platform
