#include "stowline/platform/files/LeftWrites.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>

namespace stowline::platform {
namespace {

namespace fs = std::filesystem;

TEST(LeftWrites, AreRemovedWhenNobodyIsAtThemAnyMore)
{
    const test::TemporaryFolder folder;
    for (const char* name : {"note.a1B2c3", "note.Zz9Zz9", "note", "note.sqlite3", "note.a1B2c",
                             "note.a1B-c3", ".a1B2c3"})
        folder.write(name, "x");
    fs::create_directory(folder.path() / "folder.a1B2c3");
    fs::create_symlink("note", folder.path() / "link.a1B2c3");
    const FileDescriptor written(::open((folder.path() / "note.Zz9Zz9").c_str(), O_RDWR));
    ASSERT_EQ(::flock(written.number(), LOCK_EX), 0);
    removeLeftWrites(folder.path());
    auto left = namesInFolder(folder.path());
    std::ranges::sort(left);
    EXPECT_EQ(left, (std::vector<std::string>{".a1B2c3", "folder.a1B2c3", "link.a1B2c3", "note",
                                              "note.Zz9Zz9", "note.a1B-c3", "note.a1B2c",
                                              "note.sqlite3"}));
    removeLeftWrites(folder.path() / "nowhere");
}

TEST(LeftWrites, AreNotThoseOfAWriterBesideIt)
{
    const test::TemporaryFolder folder;
    std::atomic<bool> isOver = false;
    std::thread sweeper([&] {
        while (!isOver)
            removeLeftWrites(folder.path());
    });
    int error = 0;
    for (int i = 0; i < 2000; ++i)
        EXPECT_TRUE(replaceFile(folder.path() / "note", std::to_string(i), error)) << error;
    isOver = true;
    sweeper.join();
    EXPECT_EQ(readFile(folder.path() / "note"), "1999");
}

} // namespace
} // namespace stowline::platform
