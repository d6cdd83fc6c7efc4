// A tree with everything that a tree can have.
#pragma once

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::test {

/// Sets both times of an item, of a link its own.
inline void setTime(const std::filesystem::path& path, std::int64_t seconds, long nanoseconds)
{
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

/// Files, folders, links, hard links, a pipe, holes, odd names, modes, times, extended attributes,
/// and other owners where this user may give them.
/// @param name of the tree, below the folder
/// @param large what its largest file holds
inline void makeTree(const TemporaryFolder& folder, const std::string& name,
                     const std::string& large)
{
    namespace fs = std::filesystem;
    const fs::path tree = folder.path() / name;
    const auto write = [&](const std::string& item, const std::string& content) {
        return folder.write((fs::path(name) / item).string(), content);
    };
    write("plain", "hello");
    write("empty", "");
    write("odd \xff\x01\n\"name", "odd");
    write("deep/er/large", large);
    write("deep/set-id", "x");
    write("deep/read-only", "r");
    std::string holes(3U << 20, '\0');
    holes.replace(1U << 20, 3, "abc");
    write("holes", holes);
    fs::create_hard_link(tree / "plain", tree / "deep/another name");
    fs::create_hard_link(tree / "plain", tree / "third");
    fs::create_symlink("../nowhere \xfe", tree / "deep/link");
    fs::create_directory_symlink("/etc", tree / "link-to-folder");
    fs::create_directory(tree / "empty folder");
    ASSERT_EQ(mkfifo((tree / "pipe").c_str(), 0640), 0);
    ASSERT_EQ(chmod((tree / "deep/set-id").c_str(), 04751), 0);
    ASSERT_EQ(chmod((tree / "deep/read-only").c_str(), 0400), 0);
    ASSERT_EQ(chmod((tree / "empty folder").c_str(), 01500), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(lchown((tree / "deep/er/large").c_str(), 1234, 4321), 0);
        ASSERT_EQ(lchown((tree / "deep/link").c_str(), 1234, 4321), 0);
    }
    (void)setxattr((tree / "plain").c_str(), "user.note", "n\0te", 4, 0);
    (void)setxattr((tree / "deep").c_str(), "user.folder", "f", 1, 0);
    setTime(tree / "plain", 1000000000, 123456789);
    setTime(tree / "deep/link", 1000000001, 5);
    setTime(tree / "deep/er", 999, 999999999);
    setTime(tree / "deep", -77, 1);
    setTime(tree, 1234567890, 42);
}

} // namespace stowline::test
