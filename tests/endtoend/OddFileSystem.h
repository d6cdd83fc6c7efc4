// File systems that do not do what others do.
#pragma once

#include "tests/endtoend/Command.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPaths.h"

#include <filesystem>
#include <optional>
#include <sys/mount.h>

namespace stowline::test {

/// A file system with a flaw, in this process's mount namespace.
class OddFileSystem {
public:
    OddFileSystem(const std::filesystem::path& folder, const Words& flaws) : folder_(folder)
    {
        std::filesystem::create_directories(folder);
        Words words{"/usr/bin/python3", sourceFile("tests/odd_file_system.py"), behind_.path(),
                    folder};
        words.insert(words.end(), flaws.begin(), flaws.end());
        program_.emplace(ProgramRun{std::move(words)});
        isMounted_ = program_->readLine() == "mounted";
    }
    ~OddFileSystem() { (void)umount2(folder_.c_str(), MNT_DETACH); }
    OddFileSystem(const OddFileSystem&) = delete;
    OddFileSystem& operator=(const OddFileSystem&) = delete;

    [[nodiscard]] bool isMounted() const { return isMounted_; }
    [[nodiscard]] std::filesystem::path behind() const { return behind_.path(); }

private:
    const std::filesystem::path folder_;
    const TemporaryFolder behind_;
    std::optional<BackgroundProgram> program_;
    bool isMounted_ = false;
};

inline constexpr const char* kNoOddFileSystem =
    "Needs /dev/fuse and the packages python3-fusepy, libfuse2.";

} // namespace stowline::test
